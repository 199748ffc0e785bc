// Timer seam: periodic callbacks on the thread that owns the host's window. Where the platform
// has window timers they are used; elsewhere one timer thread of this object plays the host's
// message thread.
#pragma once

#include <cstdint>
#include <memory>

namespace qzdata_report_kelvo {
namespace port {

// A timer callback; `context` is the value given to SetTimer.
using TimerProc = void (*)(void* context);

// The timers of one owner. Callbacks run one at a time, each when due, in the order they fall
// due; a timer that is late fires once, not once for every period it missed. A callback that
// throws is ignored. Any thread may set and kill timers.
class WindowTimers {
  public:
    WindowTimers();
    // Kills every timer and ends the timer thread; waits for a callback that is running.
    ~WindowTimers();
    WindowTimers(const WindowTimers&) = delete;
    WindowTimers& operator=(const WindowTimers&) = delete;

    // Starts a timer that calls `proc(context)` every `elapseMs` milliseconds (at least 1) on
    // the thread of `window` (opaque; may be null). Returns the new timer's id, never 0, or 0
    // when no timer could be set.
    uintptr_t SetTimer(void* window, uint32_t elapseMs, TimerProc proc, void* context);

    // Ends the timer `id`. Returns only when no callback of that timer runs any more (except
    // when called from that very callback); no callback of it starts afterwards. False when no
    // such timer exists.
    bool KillTimer(void* window, uintptr_t id);

    // Kills every timer, waits for a callback that runs (unless called from it) and ends the
    // timer thread; SetTimer fails from then on.
    void Shutdown();

    // Tests: the next `successes` SetTimer calls succeed, all later ones fail. -1 (the default)
    // lets every call succeed.
    void FailSetTimerAfterForTesting(int successes);

  private:
    struct Impl;
    std::shared_ptr<Impl> impl;  // shared with the timer thread
};

}  // namespace port
}  // namespace qzdata_report_kelvo
