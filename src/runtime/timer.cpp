#include "runtime/timer.h"

#include "runtime/micro_time.h"

namespace qzdata_report_kelvo {

CTimer::CTimer(uint32_t startInterval, uint32_t periodicInterval)
    : startInterval(startInterval), periodicInterval(periodicInterval) {}

CTimer::~CTimer() {
    stop();
    thread.join();
}

bool CTimer::start(const CAbstractTimerCallback& newCallback) {
    int64_t now = 0;
    GetMicroTime(now);
    CScopedLock guard(lock);
    if (callback != nullptr) {
        return false;
    }
    nextFiring = now + static_cast<int64_t>(startInterval) * 1000;
    try {
        callback.reset(newCallback.clone());
    } catch (...) {
        callback.reset();
    }
    if (!callback) {
        return false;
    }
    wakeEvent.Reset();
    // The new thread's first step takes this lock, so it cannot fire before start returns.
    thread.start(*this);
    threadAttached = thread.hasHandle();
    if (!threadAttached) {
        callback.reset();
    }
    return threadAttached;
}

void CTimer::run() {
    int64_t previous = 0;
    for (;;) {
        int64_t now = 0;
        GetMicroTime(now);
        int64_t next;
        std::shared_ptr<CAbstractTimerCallback> target;
        {
            CScopedLock guard(lock);
            next = nextFiring;
            target = callback;
        }
        int64_t waitMs = (next - now) / 1000;
        if (waitMs < 0 && previous != 0) {
            // Missed periods are skipped, never fired in a burst.
            CScopedLock guard(lock);
            nextFiring += previous * 1000;
            skippedCount.fetch_add(1, std::memory_order_relaxed);
            continue;
        }
        if (waitMs < 0) {
            waitMs = 0;
        }
        const bool woken =
            wakeEvent.Wait(waitMs >= kInfinite ? kInfinite - 1 : static_cast<uint32_t>(waitMs));
        if (!woken) {
            if (target) {
                try {
                    target->invoke(*this);
                } catch (...) {
                }
            }
        }
        CScopedLock guard(lock);
        if (woken) {
            GetMicroTime(nextFiring);
        }
        previous = periodicInterval;
        nextFiring += previous * 1000;
        skippedCount.store(0, std::memory_order_relaxed);
        if (previous == 0) {
            return;
        }
    }
}

void CTimer::restart(uint32_t milliseconds) {
    CScopedLock guard(lock);
    const uint32_t old = periodicInterval;
    startInterval = milliseconds;
    periodicInterval = milliseconds;
    if (milliseconds != old && threadAttached && callback) {
        wakeEvent.Set();
    }
}

bool CTimer::isRunning() {
    CScopedLock guard(lock);
    return threadAttached;
}

void CTimer::stop() {
    {
        CScopedLock guard(lock);
        if (!callback) {
            return;
        }
        periodicInterval = 0;
    }
    wakeEvent.Set();
    const bool ended = thread.wait(1000);
    CScopedLock guard(lock);
    if (ended) {
        threadAttached = false;
    }
    callback.reset();
}

}  // namespace qzdata_report_kelvo
