// The one report object of the process.
#pragma once

#include "post/report_thread.h"
#include "report/basic_data_report.h"

namespace qzdata_report_kelvo {

using ReportObject = BasicDataReport<ReportThreadImpl>;

// The report object, made on first use and never destroyed. The first call must not race
// another (the library's first call is Init in practice).
ReportObject* GetReportObject();

}  // namespace qzdata_report_kelvo
