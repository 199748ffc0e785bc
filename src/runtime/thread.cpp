#include "runtime/thread.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "runtime/event.h"

namespace qzdata_report_kelvo {

// Shared between the CThread and its running thread, so that either may go first.
struct CThread::State {
    std::mutex mutex;
    std::condition_variable done;
    bool finished = false;
    std::thread thread;
};

namespace {

std::atomic<uint32_t> nextThreadId{1};

}  // namespace

CThread::~CThread() {
    release();
}

void CThread::release() {
    if (!state) {
        return;
    }
    bool finished;
    {
        std::lock_guard<std::mutex> guard(state->mutex);
        finished = state->finished;
    }
    if (state->thread.joinable()) {
        if (finished) {
            state->thread.join();
        } else {
            state->thread.detach();
        }
    }
    state.reset();
    holder.reset();
    id = 0;
}

void CThread::start(CRunnable& target) {
    if (isRunning()) {
        return;
    }
    launch(std::make_shared<CRunnableHolder>(&target), nullptr, nullptr);
}

void CThread::start(ThreadFunction function, void* argument) {
    if (isRunning()) {
        return;
    }
    launch(nullptr, function, argument);
}

void CThread::launch(std::shared_ptr<CRunnableHolder> newHolder, ThreadFunction function,
                     void* argument) {
    release();
    auto newState = std::make_shared<State>();
    try {
        // The thread keeps the holder and the state alive itself, so it never touches this
        // object, which may be destroyed while it runs.
        newState->thread = std::thread([newState, newHolder, function, argument] {
            try {
                if (newHolder) {
                    newHolder->run();
                } else {
                    function(argument);
                }
            } catch (...) {
            }
            {
                std::lock_guard<std::mutex> guard(newState->mutex);
                newState->finished = true;
            }
            newState->done.notify_all();
        });
    } catch (...) {
        return;
    }
    holder = std::move(newHolder);
    state = std::move(newState);
    id = nextThreadId.fetch_add(1, std::memory_order_relaxed);
    if (id == 0) {
        id = nextThreadId.fetch_add(1, std::memory_order_relaxed);
    }
}

bool CThread::isRunning() const {
    if (!state) {
        return false;
    }
    std::lock_guard<std::mutex> guard(state->mutex);
    return !state->finished;
}

bool CThread::wait(uint32_t milliseconds) {
    if (!state) {
        return true;
    }
    {
        std::unique_lock<std::mutex> guard(state->mutex);
        auto finished = [this] { return state->finished; };
        if (milliseconds == kInfinite) {
            state->done.wait(guard, finished);
        } else if (!state->done.wait_for(guard, std::chrono::milliseconds(milliseconds),
                                         finished)) {
            return false;
        }
    }
    release();
    return true;
}

void CThread::join() {
    wait(kInfinite);
}

}  // namespace qzdata_report_kelvo
