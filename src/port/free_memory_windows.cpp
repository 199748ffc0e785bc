#include "port/free_memory.h"

#include <windows.h>

#include <malloc.h>

namespace qzdata_report_kelvo {
namespace port {

void ReleaseFreeMemory() {
    // The C run-time keeps its own free lists on top of the process heap; both are asked to give
    // their free pages back.
    _heapmin();
    ::HeapCompact(::GetProcessHeap(), 0);
}

}  // namespace port
}  // namespace qzdata_report_kelvo
