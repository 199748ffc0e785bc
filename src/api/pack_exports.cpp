#include "api/guard.h"
#include "qzdata_report.h"
#include "report/report_object.h"

namespace qzdata_report_kelvo {

bool PackNotSent(const std::wstring& path) {
    return Guarded(false, [&] { return GetReportObject()->PackNotSent(path); });
}

}  // namespace qzdata_report_kelvo
