// The queueing half of the report object: the worker, the priority buckets, the not-sent
// posts, the state word and the switch that turns the older library off.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include "port/window_timer.h"
#include "qzdata_report.h"
#include "report/constants.h"
#include "runtime/critical_section.h"

namespace qzdata_report_kelvo {

// The states of the object; nothing moves it back.
enum ObjectState : int32_t {
    kNotInitialised = 0,
    kInitialised = 1,  // timers set, worker created but standing still
    kRunning = 2,
};

// `Worker` is the report thread class (ReportThreadImpl; tests may use another with the same
// operations). Threads: the operations are called from the host's threads and, for
// OnPumpTimer, from the timer thread; Init, Run and Exit must not race anything.
template <class Worker>
class BasicDataReportBase {
  public:
    // A post held in a priority bucket.
    struct BucketPost {
        std::wstring url;
        std::list<ReportRecord> records;
        bool flag = false;
        ReportCallback callback = nullptr;
        void* context = nullptr;
    };

    BasicDataReportBase();
    // Ends the timer thread and the worker (see ReleaseThreads).
    virtual ~BasicDataReportBase();
    BasicDataReportBase(const BasicDataReportBase&) = delete;
    BasicDataReportBase& operator=(const BasicDataReportBase&) = delete;

    // Creates the worker (standing still) and registers the not-sent file's load when `path` is
    // not empty; moves the state to 1. False when the worker cannot be created.
    virtual bool InitWorker(WindowHandle window, const std::wstring& path);
    // From state 1 on: lets the worker run and moves the state to 2.
    virtual void Run();
    // Kills the priority timers, flushes the buckets when `flush`, and stops the worker within
    // `timeoutMs`. Does nothing in state 0.
    virtual void Exit(bool flush, uint32_t timeoutMs);
    // Timer thread, every 250 ms: re-posts the posts loaded from the not-sent file and delivers
    // completion callbacks.
    virtual void OnPumpTimer();
    virtual void SetSilent(bool silent);
    virtual bool IsSilent();
    // False above 5.
    virtual bool SetMaxPriority(DataReportPriority priority);
    virtual DataReportPriority GetMaxPriority();
    // PostImmediately; the priority has no effect.
    virtual bool PostWithPriority(const std::wstring& url, DataReportPriority priority,
                                  const std::vector<ReportRecord>& records, ReportCallback callback,
                                  void* context);
    // Queues `records` in posts of at most 20 (each with `callback` and `context`). False
    // before Init, for an empty URL, or when every record is empty.
    virtual bool PostImmediately(const std::wstring& url, const std::vector<ReportRecord>& records,
                                 ReportCallback callback, void* context);
    // Hands one bucket to the worker; false for 6 and above (as unsigned).
    virtual bool FlushWithPriority(DataReportPriority priority);
    // Hands all six buckets to the worker.
    virtual void Flush();
    // Writes the posts still held to a new pack file at `path` and lets each go once it is
    // written: the buckets up to the maximum priority, then the not-sent posts, then the loaded
    // posts if their load is complete. True when all were written, and also when nothing is
    // held (no file is touched then). False in state 0, for an empty path, or when the file
    // cannot be written: it then counts the posts written before the failure, and the others
    // stay held. Host's thread, after Exit: the loaded posts are shared with the pump.
    virtual bool PackNotSent(const std::wstring& path);
    // Worker start-up task: reads the pack file at the path given to Init into the loaded posts
    // and deletes it, unless it did not open or was no pack (too short, another magic); then
    // lets the pump re-post them.
    virtual void LoadNotSent();
    // The switch that turns the older library off; read anew at every export.
    virtual bool IsStopOldSdk();
    // Hands the bucket to the worker in posts of 20 records and empties it. Caller holds
    // queueLock.
    virtual void FlushBucket(DataReportPriority priority);

    // Sets the switch; the strategy does this through the worker's pointer.
    void SetStopOldSdk(bool stop) { stopOldSdk.store(stop, std::memory_order_relaxed); }
    int32_t GetObjectState() const { return objectState.load(std::memory_order_acquire); }
    Worker& GetReportThread() { return reportThread; }
    port::WindowTimers& GetTimers() { return timers; }
    // Tests: a post for bucket `priority` (nothing else ever fills a bucket).
    void AddBucketPostForTesting(size_t priority, BucketPost post);
    size_t BucketSizeForTesting(size_t priority);
    std::vector<ReportPost> NotSentPostsForTesting() { return notSentPosts; }

  protected:
    // PostImmediately for a post of one record that the object built itself, with no
    // callback: the same checks and result, and the post is taken over instead of copied.
    bool HandOver(const std::wstring& url, ReportPost&& post);
    // Kills every timer (waiting for a running callback) and ends the worker. The derived
    // destructor calls it, so that no callback reaches a half-destroyed object.
    void ReleaseThreads();

    // The timers and their thread come first, so that they go last.
    port::WindowTimers timers;
    Worker reportThread;
    std::array<std::list<BucketPost>, report::kPriorityCount> priorityQueues;
    std::vector<ReportPost> notSentPosts;
    std::vector<ReportPost> loadedPosts;
    std::atomic<bool> loadedPostsReady{false};
    std::array<uintptr_t, report::kPriorityCount> priorityTimers{};
    int32_t maxPriority = report::kMaxPriority;
    CCriticalSection queueLock;
    WindowHandle window = nullptr;
    std::wstring notSentPath;
    std::atomic<int32_t> objectState{kNotInitialised};
    std::atomic<bool> stopOldSdk{false};

  private:
    static void LoadNotSentTask(void* object);
};

}  // namespace qzdata_report_kelvo
