// How an export reaches the older library: the switch is read anew at every call, the legacy
// function runs first, and nothing of it (result or exception) reaches the host.
#pragma once

#include <utility>

#include "api/legacy_library.h"

namespace qzdata_report_kelvo {

// The table in force: the test table when one is installed, else the built-in one.
const LegacyFunctions& CurrentLegacyFunctions();

// Tests: makes `table` (which must outlive its use) the table in force; null restores the
// built-in one. Must not race exports.
void SetLegacyFunctionsForTesting(const LegacyFunctions* table);

// True while the older library is still told (the switch is off).
bool LegacyCallsEnabled();

// Calls the legacy function `member` with `args` unless the switch is on or the function is
// missing.
template <class Function, class... Args>
void CallLegacy(Function LegacyFunctions::*member, Args&&... args) noexcept {
    try {
        if (!LegacyCallsEnabled()) {
            return;
        }
        const Function function = CurrentLegacyFunctions().*member;
        if (function != nullptr) {
            function(std::forward<Args>(args)...);
        }
    } catch (...) {
        // A failure of the older library never shows to the host.
    }
}

}  // namespace qzdata_report_kelvo
