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

}  // namespace qzdata_report_kelvo
