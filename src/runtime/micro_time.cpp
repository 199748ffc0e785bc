#include "runtime/micro_time.h"

#include "port/env.h"

namespace qzdata_report_kelvo {

void GetMicroTime(int64_t& microseconds) {
    int64_t counter = 0;
    int64_t frequency = 0;
    if (!port::QueryPerformanceCounter(&counter) || !port::QueryPerformanceFrequency(&frequency) ||
        frequency <= 0) {
        return;
    }
    // Split so that counter * 1000000 cannot overflow on a long uptime.
    microseconds = counter / frequency * 1000000 + counter % frequency * 1000000 / frequency;
}

}  // namespace qzdata_report_kelvo
