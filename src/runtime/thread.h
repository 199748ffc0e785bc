// Runnable targets and a joinable thread object with a timed wait.
#pragma once

#include <cstdint>
#include <memory>

namespace qzdata_report_kelvo {

class CRunnable {
  public:
    virtual ~CRunnable() = default;
    virtual void run() = 0;
};

// Calls a target it does not own; the target must outlive the thread that runs it.
class CRunnableHolder : public CRunnable {
  public:
    explicit CRunnableHolder(CRunnable* target) : target(target) {}
    void run() override { target->run(); }

  private:
    CRunnable* target;
};

// One thread of execution. Each CThread is controlled by one thread (no lock of its own).
// Destroying a CThread whose thread still runs leaves that thread running, detached: look-up
// threads and an abandoned worker rely on it.
class CThread {
  public:
    using ThreadFunction = unsigned (*)(void* argument);

    CThread() = default;
    ~CThread();
    CThread(const CThread&) = delete;
    CThread& operator=(const CThread&) = delete;

    // Starts `target.run()` on a new thread. Does nothing while a thread is still running (the
    // new target is ignored); replaces a finished one. An exception escaping `run` ends the
    // thread silently. If no thread can be created, the object stays without a thread.
    void start(CRunnable& target);
    // Same checks; runs `function(argument)` with no holder.
    void start(ThreadFunction function, void* argument);

    // True while a thread is attached and has not returned.
    bool isRunning() const;

    // True at once without a thread. Otherwise waits up to `milliseconds` (kInfinite: no limit);
    // when the thread has ended, detaches it from this object and returns true, else false.
    bool wait(uint32_t milliseconds);
    void join();

    // 0 when no thread is attached.
    uint32_t threadId() const { return id; }

    // Whether a thread is attached, finished or not (the thread handle).
    bool hasHandle() const { return state != nullptr; }

  private:
    struct State;
    void launch(std::shared_ptr<CRunnableHolder> newHolder, ThreadFunction function,
                void* argument);
    void release();

    std::shared_ptr<CRunnableHolder> holder;
    std::shared_ptr<State> state;
    uint32_t id = 0;
};

}  // namespace qzdata_report_kelvo
