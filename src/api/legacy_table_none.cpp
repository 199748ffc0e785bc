#include "api/legacy_library.h"

namespace qzdata_report_kelvo {

// No legacy library is linked: the gate and the switch stay, and the calls do nothing.
const LegacyFunctions& BuiltInLegacyFunctions() {
    static const LegacyFunctions none{};
    return none;
}

}  // namespace qzdata_report_kelvo
