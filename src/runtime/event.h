// Auto-reset event: Set wakes exactly one waiter (or the next one to wait) and resets itself.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace qzdata_report_kelvo {

inline constexpr uint32_t kInfinite = 0xFFFFFFFFu;

class CEvent {
  public:
    CEvent() = default;
    CEvent(const CEvent&) = delete;
    CEvent& operator=(const CEvent&) = delete;

    void Set();
    void Reset();

    // Waits until the event is signalled (and consumes the signal) or `milliseconds` pass;
    // kInfinite waits without limit. Returns true when signalled, false on time-out.
    bool Wait(uint32_t milliseconds);

  private:
    std::mutex mutex;
    std::condition_variable signalled;
    bool state = false;
};

}  // namespace qzdata_report_kelvo
