// The device configuration reply, which decides whether self-reporting turns on. Three shapes,
// chosen by the first byte:
//   0: the rest is the reply as it came;
//   1: the rest is "time,plain": a well-formed envelope is built around the plain text as the
//      server enciphers it, so the fuzzer reaches the inner document;
//   2: the rest gives a time and a number N: the envelope of {"tzConfig":{"open":N}} must say
//      "open" exactly when N is not 0.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "delivery/upload_log.h"
#include "fuzz_support.h"

using qzdata_report_kelvo::CUploadLog;

namespace {

std::string Envelope(const std::string& time, const std::string& plain) {
    return R"({"code":1,"time":)" + time + R"(,"data":")" +
           qz_fuzz::EncipherDeviceConfig(time, plain) + "\"}";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string rest(reinterpret_cast<const char*>(data) + 1, size - 1);
    switch (data[0] % 3) {
        case 0:
            CUploadLog::ParseDeviceConfig(rest);
            break;
        case 1: {
            const size_t comma = rest.find(',');
            std::string time = rest.substr(0, comma);
            if (time.empty() || time.find_first_not_of("0123456789-") != std::string::npos) {
                time = "1700000000";
            }
            const std::string plain = comma == std::string::npos ? "" : rest.substr(comma + 1);
            if (CUploadLog::ParseDeviceConfig(Envelope(time, plain))) {
                QZ_FUZZ_CHECK(plain.find("tzConfig") != std::string::npos);
            }
            break;
        }
        default: {
            int64_t time = 0;
            int32_t open = 0;
            if (rest.size() < sizeof(time) + sizeof(open)) {
                return 0;
            }
            std::memcpy(&time, rest.data(), sizeof(time));
            std::memcpy(&open, rest.data() + sizeof(time), sizeof(open));
            const std::string reply = Envelope(
                std::to_string(time), R"({"tzConfig":{"open":)" + std::to_string(open) + "}}");
            QZ_FUZZ_CHECK(CUploadLog::ParseDeviceConfig(reply) == (open != 0));
            break;
        }
    }
    return 0;
}
