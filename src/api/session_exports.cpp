#include "api/guard.h"
#include "api/legacy_bridge.h"
#include "qzdata_report.h"
#include "report/report_object.h"

namespace qzdata_report_kelvo {

bool PostSessionInfo(const SessionInfo& info) {
    CallLegacy(&LegacyFunctions::PostSessionInfo, info);
    return Guarded(false, [&] { return GetReportObject()->PostSessionInfo(info); });
}

bool InitSessionInfo(const SessionInfo& info) {
    return Guarded(false, [&] { return GetReportObject()->PostSessionInfo(info); });
}

}  // namespace qzdata_report_kelvo
