#include "api/legacy_bridge.h"

#include <atomic>

namespace qzdata_report_kelvo {

namespace {

std::atomic<const LegacyFunctions*> testTable{nullptr};

}  // namespace

const LegacyFunctions& CurrentLegacyFunctions() {
    const LegacyFunctions* table = testTable.load(std::memory_order_acquire);
    return table != nullptr ? *table : BuiltInLegacyFunctions();
}

void SetLegacyFunctionsForTesting(const LegacyFunctions* table) {
    testTable.store(table, std::memory_order_release);
}

bool LegacyCallsEnabled() {
    // The exported IsStopOldSdk: it fetches (and on the first call makes) the report object.
    return !IsStopOldSdk();
}

}  // namespace qzdata_report_kelvo
