#include "port/port.h"

#include "post/constants.h"
#include "qzdata_report.h"

namespace qzdata_report_kelvo {

std::string GetSDKVersion() {
    return post::kSdkVersion;
}

}  // namespace qzdata_report_kelvo
