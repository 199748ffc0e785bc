#include "port/port.h"

#include "port/clock.h"

#include <ctime>

#include <cerrno>

namespace qzdata_report_kelvo {
namespace port {

namespace {

bool MonotonicNow(timespec* ts) {
    return clock_gettime(CLOCK_MONOTONIC, ts) == 0;
}

}  // namespace

uint32_t GetTickCount() {
    timespec ts{};
    if (!MonotonicNow(&ts)) {
        return 0;
    }
    uint64_t ms =
        static_cast<uint64_t>(ts.tv_sec) * 1000u + static_cast<uint64_t>(ts.tv_nsec) / 1000000u;
    return static_cast<uint32_t>(ms);
}

void Sleep(uint32_t milliseconds) {
    timespec req{};
    req.tv_sec = milliseconds / 1000;
    req.tv_nsec = static_cast<long>(milliseconds % 1000) * 1000000L;
    timespec rem{};
    while (nanosleep(&req, &rem) != 0 && errno == EINTR) {
        req = rem;
    }
}

bool QueryPerformanceCounter(int64_t* counter) {
    timespec ts{};
    if (!MonotonicNow(&ts)) {
        return false;
    }
    *counter = static_cast<int64_t>(ts.tv_sec) * 1000000 + ts.tv_nsec / 1000;
    return true;
}

bool QueryPerformanceFrequency(int64_t* frequency) {
    *frequency = 1000000;
    return true;
}

void GetLocalTime(LocalTime* out) {
    timespec ts{};
    clock_gettime(CLOCK_REALTIME, &ts);
    time_t seconds = ts.tv_sec;
    tm fields{};
    localtime_r(&seconds, &fields);
    out->year = fields.tm_year + 1900;
    out->month = fields.tm_mon + 1;
    out->day = fields.tm_mday;
    out->hour = fields.tm_hour;
    out->minute = fields.tm_min;
    out->second = fields.tm_sec;
    out->milliseconds = static_cast<int>(ts.tv_nsec / 1000000);
}

int64_t Time64() {
    return static_cast<int64_t>(time(nullptr));
}

}  // namespace port
}  // namespace qzdata_report_kelvo
