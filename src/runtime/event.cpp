#include "runtime/event.h"

#include <chrono>

namespace qzdata_report_kelvo {

void CEvent::Set() {
    // Notified under the mutex: a waiter that wakes may destroy the event at once.
    std::lock_guard<std::mutex> guard(mutex);
    state = true;
    signalled.notify_one();
}

void CEvent::Reset() {
    std::lock_guard<std::mutex> guard(mutex);
    state = false;
}

bool CEvent::Wait(uint32_t milliseconds) {
    std::unique_lock<std::mutex> guard(mutex);
    if (milliseconds == kInfinite) {
        signalled.wait(guard, [this] { return state; });
    } else if (!signalled.wait_for(guard, std::chrono::milliseconds(milliseconds),
                                   [this] { return state; })) {
        return false;
    }
    state = false;
    return true;
}

}  // namespace qzdata_report_kelvo
