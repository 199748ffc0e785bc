// What the benchmark programs share: a loopback collector, the library pointed at it, readings
// of this process's memory and CPU time, and the result lines that tools/bench.sh collects.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <thread>

namespace qzdata_report_kelvo {
class ReportThreadImpl;
}

namespace qzbench {

using Clock = std::chrono::steady_clock;

// A collector that costs as little as a peer can: one thread, one connection at a time, each
// request answered at once with a bare 200 and closed. It counts the record requests (targets
// that start with "/c.gif?") and keeps the arrival time of the first and the size of the last
// (request line, headers and body).
class LoopbackCollector {
  public:
    LoopbackCollector() = default;
    ~LoopbackCollector() { Stop(); }
    LoopbackCollector(const LoopbackCollector&) = delete;
    LoopbackCollector& operator=(const LoopbackCollector&) = delete;

    // Listens on `onPort`, or on a port the system picks for 0 (also to start again on the port
    // of an earlier Start after Stop); false when it cannot.
    bool Start(uint16_t onPort = 0);
    // Stops serving and closes the port: connections to it are refused from then on.
    void Stop();

    uint16_t Port() const { return port; }
    uint64_t Records() const { return records.load(std::memory_order_acquire); }
    // Valid once Records() is not 0.
    Clock::time_point FirstRecordTime() const { return firstRecord; }
    size_t LastRecordBytes() const { return lastRecordBytes.load(std::memory_order_relaxed); }

  private:
    void Serve();

    int listener = -1;
    uint16_t port = 0;
    std::atomic<bool> stopping{false};
    std::atomic<uint64_t> records{0};
    std::atomic<size_t> lastRecordBytes{0};
    Clock::time_point firstRecord;  // written before the first count is published
    std::thread thread;
};

// Points the library's collector and strategy fetch at 127.0.0.1:`port`, its device
// configuration at a loopback port that refuses connections, and clears the fallback
// addresses, so that nothing reaches the profile's fixed ports. Before Init.
void RouteLibraryTo(uint16_t port);

// A loopback port that refuses connections for the life of the program (bound, never
// listening, so that no other program can take it).
uint16_t RefusingPort();

// Init as a desktop host calls it: a 60 s heartbeat and the events of `eventMask`.
void InitLibrary(unsigned long eventMask);
// InitLibrary, then Run.
void StartLibrary(unsigned long eventMask);

// The library's report worker: its queue and its delivery engine.
qzdata_report_kelvo::ReportThreadImpl& Worker();

// Waits until `done` holds, up to `limit`; returns whether it held.
template <class Predicate>
bool WaitFor(Predicate done, std::chrono::milliseconds limit) {
    const Clock::time_point end = Clock::now() + limit;
    while (!done()) {
        if (Clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// Private resident memory of this process (RssAnon of /proc/self/status) in KiB; -1 when the
// line cannot be read.
long RssAnonKiB();
// CPU time of this process, all threads, user and system, in seconds.
double ProcessCpuSeconds();

// One result line for tools/bench.sh on standard output: "metric <name> <value>".
void PrintMetric(const char* name, double value);

}  // namespace qzbench
