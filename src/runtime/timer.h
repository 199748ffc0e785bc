// A periodic timer with its own thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "runtime/critical_section.h"
#include "runtime/event.h"
#include "runtime/thread.h"

namespace qzdata_report_kelvo {

class CTimer;

class CAbstractTimerCallback {
  public:
    virtual ~CAbstractTimerCallback() = default;
    // Called on the timer's thread at each firing.
    virtual void invoke(CTimer& timer) const = 0;
    // A new heap copy, owned by the caller.
    virtual CAbstractTimerCallback* clone() const = 0;
};

template <class T>
class CTimerCallback : public CAbstractTimerCallback {
  public:
    using Method = void (T::*)(CTimer&);
    CTimerCallback(T& target, Method method) : target(&target), method(method) {}
    void invoke(CTimer& timer) const override { (target->*method)(timer); }
    CAbstractTimerCallback* clone() const override { return new CTimerCallback(*this); }

  private:
    T* target;
    Method method;
};

// Fires its callback first `startInterval` ms after start, then every `periodicInterval` ms.
// A late timer skips the periods it missed instead of firing in a burst. A periodic interval
// of 0 fires once and ends the thread. An exception from the callback is swallowed.
class CTimer : public CRunnable {
  public:
    CTimer(uint32_t startInterval = 0, uint32_t periodicInterval = 0);
    // Stops the timer (see stop), then waits for a firing that outlasted stop: the thread uses
    // this object to the end.
    ~CTimer() override;
    CTimer(const CTimer&) = delete;
    CTimer& operator=(const CTimer&) = delete;

    // Keeps a clone of `callback` and starts the timer's thread. False when already started (a
    // one-shot timer counts as started until stop) or when the thread could not be created.
    bool start(const CAbstractTimerCallback& callback);
    // Ends the periods and waits up to 1000 ms for the thread; a firing that lasts longer goes
    // on beside the return. Never started: does nothing. Not from the timer's own callback.
    void stop();
    // Sets both intervals; a running timer whose period changes fires next one new period from
    // now. The same value does not wake the thread.
    void restart(uint32_t milliseconds);
    // True from a successful start until stop, even after a one-shot timer's thread ended.
    bool isRunning();
    // Firings missed since the last one that ran.
    int32_t skipped() const { return skippedCount.load(std::memory_order_relaxed); }

    void run() override;

  private:
    uint32_t startInterval;
    uint32_t periodicInterval;
    CEvent wakeEvent;
    std::atomic<int32_t> skippedCount{0};
    // Shared with a firing in progress, so that a stop that gives up on a slow firing does not
    // free the callback under it.
    std::shared_ptr<CAbstractTimerCallback> callback;
    int64_t nextFiring = 0;
    bool threadAttached = false;  // a thread handle is held; guarded by lock
    CCriticalSection lock;
    CThread thread;
};

}  // namespace qzdata_report_kelvo
