// Seam of the precision of short sleeps.
#pragma once

namespace qzdata_report_kelvo {
namespace port {

// Asks the platform to end the calling thread's short sleeps as close to their due time as it
// can. A sending thread pauses 1 ms three times per record, so any lateness the platform adds
// by default to each sleep bounds its throughput. Best effort; calling thread only.
void RequestPreciseSleeps();

}  // namespace port
}  // namespace qzdata_report_kelvo
