#include "port/sleep_precision.h"

#include <sys/prctl.h>

namespace qzdata_report_kelvo {
namespace port {

void RequestPreciseSleeps() {
    // The default slack of 50 us, and more under load, is added to every timed sleep.
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
}

}  // namespace port
}  // namespace qzdata_report_kelvo
