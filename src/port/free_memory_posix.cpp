#include "port/free_memory.h"

#include <malloc.h>

namespace qzdata_report_kelvo {
namespace port {

void ReleaseFreeMemory() {
    malloc_trim(0);
}

}  // namespace port
}  // namespace qzdata_report_kelvo
