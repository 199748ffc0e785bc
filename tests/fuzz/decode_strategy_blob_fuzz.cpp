// The outer layer of the strategy blob, on any bytes. A refused blob leaves the plain text
// empty; an accepted one has a length prefix of 8 decimal digits, a cipher text of exactly the
// blocks that length needs (in hexadecimal), and a plain text of that length, which the
// server's encipherment gives back unchanged.
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz_support.h"
#include "strategy/strategy.h"

using qzdata_report_kelvo::CStrategy;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string blob(reinterpret_cast<const char*>(data), size);
    std::string plain = "left over";
    if (!CStrategy::DecodeStrategyBlob(blob, plain)) {
        QZ_FUZZ_CHECK(plain.empty());
        return 0;
    }
    QZ_FUZZ_CHECK(blob.size() >= 8);
    for (size_t i = 0; i < 8; ++i) {
        QZ_FUZZ_CHECK(std::isdigit(static_cast<unsigned char>(blob[i])));
    }
    const size_t length = std::strtoul(blob.substr(0, 8).c_str(), nullptr, 10);
    QZ_FUZZ_CHECK(length > 0);
    QZ_FUZZ_CHECK(plain.size() == length);
    QZ_FUZZ_CHECK(blob.size() - 8 == 2 * ((length + 15) / 16 * 16));

    const std::string again = qz_fuzz::EncipherStrategyBlob(plain);
    if (!again.empty()) {
        std::string decoded;
        QZ_FUZZ_CHECK(CStrategy::DecodeStrategyBlob(again, decoded));
        QZ_FUZZ_CHECK(decoded == plain);
    }
    return 0;
}
