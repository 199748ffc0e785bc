// A thread that plays a host's message thread: it handles its window messages all the time and runs
// the tasks given to it in between, so that what a task sets up (timers of a null window) belongs
// to it.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "support/wait.h"

namespace qz_test {

class MessageThread {
  public:
    MessageThread() : thread([this] { Loop(); }) {}
    ~MessageThread() {
        quit = true;
        thread.join();
    }

    // Runs `task` on the thread; returns once it has run. One caller at a time.
    void Run(const std::function<void()>& task) {
        std::unique_lock<std::mutex> guard(mutex);
        pending = &task;
        done.wait(guard, [&] { return pending == nullptr; });
    }

  private:
    void Loop() {
        std::unique_lock<std::mutex> guard(mutex);
        while (!quit) {
            if (pending != nullptr) {
                (*pending)();
                pending = nullptr;
                done.notify_all();
            }
            guard.unlock();
            PumpMessagesFor(1);
            guard.lock();
        }
    }

    std::mutex mutex;
    std::condition_variable done;
    const std::function<void()>* pending = nullptr;
    std::atomic<bool> quit{false};
    std::thread thread;  // last: starts once the members above exist
};

}  // namespace qz_test
