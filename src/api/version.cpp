#include "port/port.h"

#include "qzdata_report.h"

namespace qzdata_report_kelvo {

std::string GetSDKVersion() { return "vs-nat-2.2.5"; }

}  // namespace qzdata_report_kelvo
