// The one report object of the process.
#pragma once

#include "post/report_thread.h"
#include "report/basic_data_report.h"

namespace qzdata_report_kelvo {

using ReportObject = BasicDataReport<ReportThreadImpl>;

// The report object, made on first use and never destroyed. The first call must not race
// another (the library's first call is Init in practice).
ReportObject* GetReportObject();

// Tests: destroys the report object (ending its threads), so that the next call makes a fresh
// one. Must not race any other call.
void ResetReportObjectForTesting();

}  // namespace qzdata_report_kelvo
