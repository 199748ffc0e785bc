// The strategy's plain text behind a valid outer layer: the input is enciphered as the server
// does, must decode back unchanged, and is handed to the strategy as the reply of its fetch.
// Whatever the strategy commits keeps the rules of its fields: addresses of 1 to 15 bytes and
// a keep-alive limit of whole seconds, at most 99999.
#include "fuzz_support.h"
#include "strategy/strategy.h"

using qzdata_report_kelvo::CStrategy;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string plain(reinterpret_cast<const char*>(data), size);
    if (plain.empty())
        return 0;
    qz_fuzz::ScratchFolder();
    const std::string blob = qz_fuzz::EncipherStrategyBlob(plain);
    std::string decoded;
    QZ_FUZZ_CHECK(CStrategy::DecodeStrategyBlob(blob, decoded) && decoded == plain);

    CStrategy strategy;
    strategy.SetFetchFunction(
        [&blob](const std::string&, uint16_t, const std::string&, std::string& reply) {
            reply = blob;
            return true;
        });
    strategy.Run();
    for (auto* list : {&strategy.GetFallbackList(), &strategy.GetPostFallbackList(),
                       &strategy.GetSpareFallbackList()})
        for (const std::string& address : list->Copy())
            QZ_FUZZ_CHECK(!address.empty() && address.size() <= 15);
    const uint32_t limit = strategy.GetKeepAliveLimit();
    QZ_FUZZ_CHECK(limit <= 99999u * 1000u && limit % 1000 == 0);
    return 0;
}
