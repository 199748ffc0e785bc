// Clock and sleep seam. Every time source of the library goes through here.
#pragma once

#include <cstdint>

namespace qzdata_report_kelvo {
namespace port {

// Milliseconds of a monotonic clock, cut to 32 bits: wraps like the tick counter the wrap-around
// arithmetic of the callers is written for. Any thread.
uint32_t GetTickCount();

// Suspends the calling thread for at least `milliseconds`.
void Sleep(uint32_t milliseconds);

// Performance counter and its ticks per second. Both return false when the platform has no
// counter; the output is then unchanged.
bool QueryPerformanceCounter(int64_t* counter);
bool QueryPerformanceFrequency(int64_t* frequency);

// Wall-clock local time, as the calendar fields of the host's time zone.
struct LocalTime {
    int year;
    int month;  // 1..12
    int day;    // 1..31
    int hour;
    int minute;
    int second;
    int milliseconds;
};
void GetLocalTime(LocalTime* out);

// Seconds since 1970-01-01 UTC.
int64_t Time64();

}  // namespace port
}  // namespace qzdata_report_kelvo
