// The device configuration reply, which decides whether self-reporting turns on. The first byte
// picks the shape: 0, the rest is the reply as it came; 1, what follows the first comma is the
// plain text of a well-formed envelope; 2, the rest gives a time and a number N, and the
// envelope of {"tzConfig":{"open":N}} says "open" exactly when N is not 0.
#include <cstring>

#include "delivery/upload_log.h"
#include "fuzz_support.h"

using qzdata_report_kelvo::CUploadLog;

static std::string Envelope(const std::string& time, const std::string& plain) {
    return R"({"code":1,"time":)" + time + R"(,"data":")" +
           qz_fuzz::EncipherDeviceConfig(time, plain) + "\"}";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0)
        return 0;
    const std::string rest(reinterpret_cast<const char*>(data) + 1, size - 1);
    if (data[0] % 3 == 0) {
        CUploadLog::ParseDeviceConfig(rest);
    } else if (data[0] % 3 == 1) {
        CUploadLog::ParseDeviceConfig(Envelope("1700000000", rest.substr(rest.find(',') + 1)));
    } else if (rest.size() >= 12) {
        int64_t time;
        int32_t open;
        std::memcpy(&time, rest.data(), 8);
        std::memcpy(&open, rest.data() + 8, 4);
        QZ_FUZZ_CHECK(CUploadLog::ParseDeviceConfig(Envelope(
                          std::to_string(time),
                          R"({"tzConfig":{"open":)" + std::to_string(open) + "}}")) == (open != 0));
    }
    return 0;
}
