#include "port/sleep_precision.h"

#include <windows.h>

#include <timeapi.h>

namespace qzdata_report_kelvo {
namespace port {

void RequestPreciseSleeps() {
    // The default timer period of about 15.6 ms rounds every Sleep(1) up to a whole period. The
    // period is a property of the process, not of a thread, so it is asked for once and kept for
    // the life of the process: a balancing timeEndPeriod per thread would let the last thread to
    // leave restore the coarse period under the others.
    static const bool requested = timeBeginPeriod(1) == TIMERR_NOERROR;
    (void)requested;
}

}  // namespace port
}  // namespace qzdata_report_kelvo
