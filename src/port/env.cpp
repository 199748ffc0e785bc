#include "port/env.h"

#include <atomic>

namespace qzdata_report_kelvo {
namespace port {

namespace {

std::atomic<Env*> installed{nullptr};

}  // namespace

Env* Env::Get() {
    Env* env = installed.load(std::memory_order_acquire);
    return env != nullptr ? env : Default();
}

void Env::Install(Env* env) {
    installed.store(env, std::memory_order_release);
}

bool Env::NewUuid(uint8_t (&bytes)[16]) {
    if (!RandomBytes(bytes, sizeof(bytes))) {
        return false;
    }
    bytes[6] = static_cast<uint8_t>((bytes[6] & 0x0F) | 0x40);
    bytes[8] = static_cast<uint8_t>((bytes[8] & 0x3F) | 0x80);
    return true;
}

}  // namespace port
}  // namespace qzdata_report_kelvo
