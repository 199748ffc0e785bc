// The management serials of the second-generation machine id: read once per process, on a
// thread of their own, so that no caller waits for the management service longer than a bound.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "port/hardware_info.h"
#include "runtime/thread.h"

namespace qzdata_report_kelvo {

// The management service as the probe thread asks it. All calls come from that one thread.
class WmiSerialsSource {
  public:
    virtual ~WmiSerialsSource() = default;
    // False when the service cannot be reached; no other call follows then.
    virtual bool Open() = 0;
    // Replaces `values` with the text values of `fact`, one per object that has one.
    virtual void Query(port::SerialFact fact, std::vector<std::string>& values) = 0;
    virtual void Close() = 0;
};

// One reading of the serials. Its state goes from kNotStarted to kStarted (the thread is
// started, at most once) to kReady (the text is made), never back; a thread that cannot start
// or cannot open the source leaves it at kStarted for good, and the text empty.
class WmiSerialsProbe {
  public:
    enum State { kNotStarted = 0, kStarted = 1, kReady = 2 };

    // `source` must outlive the probe.
    WmiSerialsProbe(WmiSerialsSource& source, uint32_t boundMs);
    // Waits for a thread that still runs.
    ~WmiSerialsProbe();
    WmiSerialsProbe(const WmiSerialsProbe&) = delete;
    WmiSerialsProbe& operator=(const WmiSerialsProbe&) = delete;

    // The text of the last fact queried (the video controllers' device ids, joined) once the
    // state is kReady, else empty. The first call starts the thread and waits for it up to the
    // bound; every other call returns at once, and sees a thread that finished late. Any
    // thread.
    std::string GetText();
    State GetState() const { return state.load(std::memory_order_acquire); }

  private:
    static unsigned ThreadMain(void* probe);
    void Read();

    WmiSerialsSource& source;
    const uint32_t boundMs;
    std::atomic<State> state{kNotStarted};
    std::string text;  // written by the thread before the state becomes kReady
    CThread thread;
};

// The serials of this process's probe over the platform's management service, with the bound
// of 3000 ms. Any thread; never throws.
std::string GetWmiSerialsText();

}  // namespace qzdata_report_kelvo
