#include "api/legacy_library.h"

namespace qzdata_report_kelvo {

const LegacyFunctions& BuiltInLegacyFunctions() {
    static const LegacyFunctions linked = MakeLinkedLegacyFunctions();
    return linked;
}

}  // namespace qzdata_report_kelvo
