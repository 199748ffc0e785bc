#include "port/window_timer.h"

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

namespace qzdata_report_kelvo {
namespace port {

namespace {

using Clock = std::chrono::steady_clock;

struct Timer {
    std::chrono::milliseconds period;
    Clock::time_point due;
    TimerProc proc;
    void* context;
};

}  // namespace

struct WindowTimers::Impl {
    std::mutex mutex;
    std::condition_variable changed;   // a timer was set or killed, or the thread must end
    std::condition_variable finished;  // a callback returned
    std::map<uintptr_t, Timer> timers;
    uintptr_t nextId = 1;
    uintptr_t runningId = 0;
    bool stopping = false;
    int failAfter = -1;
    std::thread thread;

    void Run();
};

void WindowTimers::Impl::Run() {
    std::unique_lock<std::mutex> guard(mutex);
    while (!stopping) {
        if (timers.empty()) {
            changed.wait(guard);
            continue;
        }
        // Earliest due first; among equal times the timer set first.
        auto next = timers.begin();
        for (auto it = timers.begin(); it != timers.end(); ++it) {
            if (it->second.due < next->second.due) {
                next = it;
            }
        }
        const Clock::time_point now = Clock::now();
        // A copy: the timer may be killed while this thread waits.
        const Clock::time_point due = next->second.due;
        if (due > now) {
            changed.wait_until(guard, due);
            continue;
        }
        Timer& timer = next->second;
        timer.due = now + timer.period;
        const TimerProc proc = timer.proc;
        void* const context = timer.context;
        runningId = next->first;
        guard.unlock();
        try {
            proc(context);
        } catch (...) {
        }
        guard.lock();
        runningId = 0;
        finished.notify_all();
    }
}

WindowTimers::WindowTimers() : impl(std::make_shared<Impl>()) {}

WindowTimers::~WindowTimers() {
    Shutdown();
}

void WindowTimers::Shutdown() {
    {
        std::lock_guard<std::mutex> guard(impl->mutex);
        impl->timers.clear();
        impl->stopping = true;
    }
    impl->changed.notify_all();
    if (impl->thread.joinable()) {
        if (impl->thread.get_id() == std::this_thread::get_id()) {
            // The thread keeps its own reference and ends at its next look.
            impl->thread.detach();
        } else {
            impl->thread.join();
        }
    }
}

uintptr_t WindowTimers::SetTimer(void* window, uint32_t elapseMs, TimerProc proc, void* context) {
    (void)window;
    if (proc == nullptr) {
        return 0;
    }
    std::lock_guard<std::mutex> guard(impl->mutex);
    if (impl->stopping) {
        return 0;
    }
    if (impl->failAfter == 0) {
        return 0;
    }
    if (impl->failAfter > 0) {
        --impl->failAfter;
    }
    if (!impl->thread.joinable()) {
        try {
            std::shared_ptr<Impl> state = impl;
            impl->thread = std::thread([state] { state->Run(); });
        } catch (...) {
            return 0;
        }
    }
    const uintptr_t id = impl->nextId++;
    const std::chrono::milliseconds period(elapseMs == 0 ? 1 : elapseMs);
    impl->timers[id] = Timer{period, Clock::now() + period, proc, context};
    impl->changed.notify_all();
    return id;
}

bool WindowTimers::KillTimer(void* window, uintptr_t id) {
    (void)window;
    std::unique_lock<std::mutex> guard(impl->mutex);
    if (impl->timers.erase(id) == 0) {
        return false;
    }
    impl->changed.notify_all();
    if (impl->thread.get_id() != std::this_thread::get_id()) {
        impl->finished.wait(guard, [&] { return impl->runningId != id; });
    }
    return true;
}

void WindowTimers::FailSetTimerAfterForTesting(int successes) {
    std::lock_guard<std::mutex> guard(impl->mutex);
    impl->failAfter = successes;
}

}  // namespace port
}  // namespace qzdata_report_kelvo
