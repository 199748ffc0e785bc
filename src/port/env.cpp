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

}  // namespace port
}  // namespace qzdata_report_kelvo
