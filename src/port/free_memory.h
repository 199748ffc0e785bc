// Seam of the allocator's hold on freed memory.
#pragma once

namespace qzdata_report_kelvo {
namespace port {

// Asks the allocator to give the pages of freed memory back to the system. After a burst of
// reports has drained, the queues' memory is free but would otherwise stay part of the host's
// resident memory for the rest of its life. Costs a walk over the heap: call it after a burst,
// not per report. Best effort; any thread.
void ReleaseFreeMemory();

}  // namespace port
}  // namespace qzdata_report_kelvo
