// The environment: every source of time, dates and randomness that the library reads. The
// platform's env answers from the operating system; a test installs its own env in one place
// (Env::Install) to stand in for any of them, and the library reads it through the free
// functions at the end of this header.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qzdata_report_kelvo {
namespace port {

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

// Every member may be called from any thread at any time.
class Env {
  public:
    virtual ~Env() = default;

    // The env the library reads: the installed one, else the platform's. Never null.
    static Env* Get();
    // The platform's env; never destroyed.
    static Env* Default();
    // Makes `env` the one the library reads; null restores the platform's. Not owned: it must
    // outlive every thread that may still read it. Meant for tests, while no library thread
    // depends on the env it replaces.
    static void Install(Env* env);

    // Milliseconds of a monotonic clock, cut to 32 bits: wraps like the tick counter the
    // wrap-around arithmetic of the callers is written for.
    virtual uint32_t GetTickCount() = 0;
    // Suspends the calling thread for at least `milliseconds`.
    virtual void Sleep(uint32_t milliseconds) = 0;
    // Performance counter and its ticks per second; false (output unchanged) when the platform
    // has no counter.
    virtual bool QueryPerformanceCounter(int64_t* counter) = 0;
    virtual bool QueryPerformanceFrequency(int64_t* frequency) = 0;
    // The local calendar time now.
    virtual void GetLocalTime(LocalTime* out) = 0;
    // Seconds since 1970-01-01 UTC.
    virtual int64_t Time64() = 0;
    // Fills `size` bytes at `buffer` from the random source. False (the buffer then holds
    // zeros) when no random source answers.
    virtual bool RandomBytes(void* buffer, size_t size) = 0;
    // A new random UUID, its 16 bytes in the order of its text form: the platform's generator
    // where it has one, else RandomBytes shaped as version 4. False (the bytes then zeros) when
    // no source answered. Wrappers do not forward it, so a stand-in that fakes RandomBytes also
    // decides the UUIDs.
    virtual bool NewUuid(uint8_t (&bytes)[16]);
};

// An env that forwards every call to `target`; a stand-in overrides only what it fakes.
class EnvWrapper : public Env {
  public:
    explicit EnvWrapper(Env* target = Env::Default()) : target(target) {}

    uint32_t GetTickCount() override { return target->GetTickCount(); }
    void Sleep(uint32_t milliseconds) override { target->Sleep(milliseconds); }
    bool QueryPerformanceCounter(int64_t* counter) override {
        return target->QueryPerformanceCounter(counter);
    }
    bool QueryPerformanceFrequency(int64_t* frequency) override {
        return target->QueryPerformanceFrequency(frequency);
    }
    void GetLocalTime(LocalTime* out) override { target->GetLocalTime(out); }
    int64_t Time64() override { return target->Time64(); }
    bool RandomBytes(void* buffer, size_t size) override {
        return target->RandomBytes(buffer, size);
    }

  private:
    Env* target;
};

inline uint32_t GetTickCount() {
    return Env::Get()->GetTickCount();
}
inline void Sleep(uint32_t milliseconds) {
    Env::Get()->Sleep(milliseconds);
}
inline bool QueryPerformanceCounter(int64_t* counter) {
    return Env::Get()->QueryPerformanceCounter(counter);
}
inline bool QueryPerformanceFrequency(int64_t* frequency) {
    return Env::Get()->QueryPerformanceFrequency(frequency);
}
inline void GetLocalTime(LocalTime* out) {
    Env::Get()->GetLocalTime(out);
}
inline int64_t Time64() {
    return Env::Get()->Time64();
}
inline bool RandomBytes(void* buffer, size_t size) {
    return Env::Get()->RandomBytes(buffer, size);
}
inline bool NewUuid(uint8_t (&bytes)[16]) {
    return Env::Get()->NewUuid(bytes);
}

}  // namespace port
}  // namespace qzdata_report_kelvo
