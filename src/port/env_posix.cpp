#include "port/env.h"

#include <sys/random.h>

#include <cerrno>
#include <cstring>
#include <ctime>

namespace qzdata_report_kelvo {
namespace port {

namespace {

bool MonotonicNow(timespec* ts) {
    return clock_gettime(CLOCK_MONOTONIC, ts) == 0;
}

class PosixEnv final : public Env {
  public:
    uint32_t GetTickCount() override {
        timespec ts{};
        if (!MonotonicNow(&ts)) {
            return 0;
        }
        const uint64_t ms =
            static_cast<uint64_t>(ts.tv_sec) * 1000u + static_cast<uint64_t>(ts.tv_nsec) / 1000000u;
        return static_cast<uint32_t>(ms);
    }

    void Sleep(uint32_t milliseconds) override {
        timespec req{};
        req.tv_sec = milliseconds / 1000;
        req.tv_nsec = static_cast<long>(milliseconds % 1000) * 1000000L;
        timespec rem{};
        while (nanosleep(&req, &rem) != 0 && errno == EINTR) {
            req = rem;
        }
    }

    bool QueryPerformanceCounter(int64_t* counter) override {
        timespec ts{};
        if (!MonotonicNow(&ts)) {
            return false;
        }
        *counter = static_cast<int64_t>(ts.tv_sec) * 1000000 + ts.tv_nsec / 1000;
        return true;
    }

    bool QueryPerformanceFrequency(int64_t* frequency) override {
        *frequency = 1000000;
        return true;
    }

    void GetLocalTime(LocalTime* out) override {
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

    int64_t Time64() override { return static_cast<int64_t>(time(nullptr)); }

    bool RandomBytes(void* buffer, size_t size) override {
        auto* out = static_cast<unsigned char*>(buffer);
        size_t done = 0;
        while (done < size) {
            const ssize_t got = getrandom(out + done, size - done, 0);
            if (got < 0) {
                if (errno == EINTR) {
                    continue;
                }
                std::memset(buffer, 0, size);
                return false;
            }
            done += static_cast<size_t>(got);
        }
        return true;
    }
};

}  // namespace

Env* Env::Default() {
    // Never destroyed: detached threads may still read the clock while the process exits.
    static Env* const env = new PosixEnv();
    return env;
}

}  // namespace port
}  // namespace qzdata_report_kelvo
