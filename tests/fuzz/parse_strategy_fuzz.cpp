// The strategy's plain text, behind a valid outer layer: the input is the plain text, which is
// enciphered as the server does and handed to the strategy as the reply of its fetch. The
// outer layer must give the plain text back; a plain text that reads is committed whole, and
// whatever is committed keeps the rules of the fields (addresses of 1 to 15 bytes, no empty
// set entry or map key, a keep-alive limit of at most 99999 seconds).
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "strategy/strategy.h"

namespace {

using qzdata_report_kelvo::CAddressList;
using qzdata_report_kelvo::CStrategy;
using qzdata_report_kelvo::StoredStrategyFields;

void CheckAddresses(CAddressList& list, const std::vector<std::string>& before, bool& changed) {
    const std::vector<std::string> now = list.Copy();
    changed = changed || now != before;
    for (const std::string& address : now) {
        QZ_FUZZ_CHECK(!address.empty() && address.size() <= 15);
    }
}

template <class Set>
void CheckNoEmptyEntry(const Set& set) {
    for (const auto& entry : set) {
        QZ_FUZZ_CHECK(!std::string(entry).empty());
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    qz_fuzz::ScratchFolder();
    if (qz_fuzz::EncipherStrategyBlob("x").empty()) {
        qz_fuzz::Fail("the crypto library is needed to encipher strategy blobs", __FILE__,
                      __LINE__);
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string plain(reinterpret_cast<const char*>(data), size);
    if (plain.empty()) {
        return 0;
    }
    const std::string blob = qz_fuzz::EncipherStrategyBlob(plain);
    std::string decoded;
    QZ_FUZZ_CHECK(CStrategy::DecodeStrategyBlob(blob, decoded));
    QZ_FUZZ_CHECK(decoded == plain);

    CStrategy strategy;
    const std::vector<std::string> fallback = strategy.GetFallbackList().Copy();
    const std::vector<std::string> postFallback = strategy.GetPostFallbackList().Copy();
    const std::vector<std::string> spare = strategy.GetSpareFallbackList().Copy();
    const StoredStrategyFields defaults = strategy.GetStoredFields();
    const uint32_t defaultLimit = strategy.GetKeepAliveLimit();
    strategy.SetFetchFunction(
        [&blob](const std::string&, uint16_t, const std::string&, std::string& reply) {
            reply = blob;
            return true;
        });
    strategy.Run();

    bool changed = false;
    CheckAddresses(strategy.GetFallbackList(), fallback, changed);
    CheckAddresses(strategy.GetPostFallbackList(), postFallback, changed);
    CheckAddresses(strategy.GetSpareFallbackList(), spare, changed);
    QZ_FUZZ_CHECK(strategy.GetStrategyFallbackList().Copy().empty());
    QZ_FUZZ_CHECK(strategy.GetConfigFallbackList().Copy().empty());
    const StoredStrategyFields stored = strategy.GetStoredFields();
    const uint32_t limit = strategy.GetKeepAliveLimit();
    changed = changed || !(stored == defaults) || limit != defaultLimit;
    if (!changed) {
        return 0;
    }
    // Committed: every field came from the text.
    for (const auto* set : {&stored.specialActs, &stored.stringSet2, &stored.stringSet3,
                            &stored.stringSet4, &stored.stringSet5, &stored.stringSet6}) {
        CheckNoEmptyEntry(*set);
    }
    for (const auto* map : {&stored.intMap1, &stored.intMap2}) {
        for (const auto& [key, value] : *map) {
            QZ_FUZZ_CHECK(!key.empty() && value >= -99 && value <= 999);
        }
    }
    for (uint64_t number : {stored.number3, stored.number5, stored.number6}) {
        QZ_FUZZ_CHECK(number <= 99999);
    }
    QZ_FUZZ_CHECK(limit <= 99999u * 1000u && limit % 1000 == 0);
    return 0;
}
