#include "report/report_object.h"

namespace qzdata_report_kelvo {

namespace {

ReportObject* reportObject = nullptr;

}  // namespace

ReportObject* GetReportObject() {
    if (reportObject == nullptr) {
        reportObject = new ReportObject();
    }
    return reportObject;
}

void ResetReportObjectForTesting() {
    delete reportObject;
    reportObject = nullptr;
}

}  // namespace qzdata_report_kelvo
