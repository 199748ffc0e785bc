// The outer layer of the strategy blob, on any bytes. An accepted blob has a length prefix of
// 8 decimal digits and gives a plain text of that length, which the server's encipherment
// gives back unchanged; a refused one leaves the plain text empty.
#include <cstdlib>

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
    const std::string prefix = blob.substr(0, 8);
    QZ_FUZZ_CHECK(prefix.size() == 8 &&
                  prefix.find_first_not_of("0123456789") == std::string::npos);
    QZ_FUZZ_CHECK(plain.size() == std::strtoul(prefix.c_str(), nullptr, 10));
    std::string again;
    QZ_FUZZ_CHECK(CStrategy::DecodeStrategyBlob(qz_fuzz::EncipherStrategyBlob(plain), again));
    QZ_FUZZ_CHECK(again == plain);
    return 0;
}
