// The report worker: one thread and the queue that feeds it. It formats each queued record
// (RecordFormatter), signs it and hands it to the delivery layer.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "post/record_format.h"
#include "qzdata_report.h"
#include "runtime/critical_section.h"
#include "runtime/event.h"
#include "runtime/thread.h"

namespace qzdata_report_kelvo {

class CDispatchTable;
class CReportContext;

// The request that PostRecord made of one record, as the delivery layer receives it.
struct BuiltRecord {
    std::string action;       // the record's action, in clear in `path`
    std::string path;         // "/c.gif?act=" action "&smkdata=0"
    std::string signedQuery;  // "&key=" K "&time=" T "&" record query
    std::string recordId;     // 32 hexadecimal digits
    int64_t recordTime = -1;  // seconds since 1970 when the request was made
};

// Owned by the report object (by value). Threads: the host's threads post (EnqueuePost) and set
// flags; the host's timer thread calls DeliverResults; everything marked "worker" runs on the
// worker thread only. Lock order: the report object's queue lock before postQueueLock;
// resultQueueLock and commonParamsLock stand alone.
class ReportThreadImpl {
  public:
    using StartupFunction = void (*)(void* argument);
    using RecordObserver = std::function<void(const BuiltRecord& record)>;

    // `stopOldSdkFlag` is the report object's switch, handed on to whoever may set it; it must
    // outlive this object. No thread exists until Create.
    explicit ReportThreadImpl(std::atomic<bool>* stopOldSdkFlag);
    // Closes the worker (see Close) and frees the posts still held.
    virtual ~ReportThreadImpl();
    ReportThreadImpl(const ReportThreadImpl&) = delete;
    ReportThreadImpl& operator=(const ReportThreadImpl&) = delete;

    // Creates the worker thread, standing still until Resume. An empty `agent` takes the default
    // agent text. True when the thread exists (also when it existed already).
    bool Create(const std::wstring& agent);
    // Lets the worker start; harmless when it runs already.
    void Resume();
    // Appends a task that the worker runs, in order, before it drains anything. Before Resume.
    void AddStartupCall(StartupFunction function, void* argument);

    // Queues one post with copies of the records in [first, last) (at most 20). Dropped without
    // a trace while silent. Any thread.
    void EnqueuePost(const std::wstring& url, std::list<ReportRecord>::const_iterator first,
                     std::list<ReportRecord>::const_iterator last, bool flag,
                     ReportCallback callback, void* context);
    void EnqueuePost(const std::wstring& url, std::vector<ReportRecord>::const_iterator first,
                     std::vector<ReportRecord>::const_iterator last, bool flag,
                     ReportCallback callback, void* context);
    // Queues `post` as it stands (taken over, not copied). Dropped while silent. Any thread.
    void EnqueuePost(ReportPost&& post);

    // A post whose records were sent, for the caller to build a new report in its memory, or
    // an empty post when none is kept. Building in used memory spares the posting thread the
    // allocations that dominate the cost of a report; memory the worker frees would reach the
    // posting threads only through the allocator's slow paths. Any thread.
    ReportPost TakeSparePost();

    // Asks the worker to drain its queue and end, and waits up to `timeoutMs` for it. When the
    // time runs out the worker is abandoned: it drops everything at its next step, and what is
    // still queued is lost. Then delivers the completion callbacks that are ready. The host's
    // thread; not from the worker.
    void Stop(unsigned long timeoutMs);

    // Tells a worker that still runs to drop everything, and waits until it has noticed (at its
    // next step). Not from the worker.
    void Close();

    // Calls the completion callbacks of finished posts on the calling thread and frees the posts.
    void DeliverResults();

    // Worker: a post that ended with `status` joins the finished posts of this turn (ownership
    // passes here).
    void FinishPost(ReportPost* post, uint32_t status);

    void SetSilent(bool silent) { this->silent.store(silent, std::memory_order_relaxed); }
    bool IsSilent() const { return silent.load(std::memory_order_relaxed); }

    // The record format of this worker; its common parameters may be set from any thread.
    RecordFormatter& GetFormatter() { return formatter; }
    void SetCommonParams(const ReportRecord& params) { formatter.SetCommonParams(params); }

    // Hand session and account facts to the delivery engine when one is attached. Any thread.
    void SetSessionInfo(const std::string& sessionId, const std::string& pro);
    void SetAccountInfo(const std::string& passport, const std::string& tzuid,
                        const std::string& channel, const std::string& iver);
    void SetDeliveryMachineId(const std::string& id);

    // The delivery engine: its shared state and its dispatch table. Either is null when it could
    // not be made; then records only count as unreported. Owned here; the pointers stay valid
    // for the life of this object.
    CReportContext* GetReportContext() { return reportContext.get(); }
    CDispatchTable* GetDispatchTable() { return dispatchTable.get(); }

    // Worker: signs the record query and hands the request to the delivery layer.
    void PostRecord(const std::string& action, const std::string& query);

    // Receives every request PostRecord built, on the worker thread, before the delivery layer
    // does; an exception it throws counts as a failed step of the worker. Empty removes it.
    void SetRecordObserver(RecordObserver observer);
    // Copies of the posts waiting in the queue, and their number.
    std::vector<ReportPost> QueuedPosts();
    size_t QueueLength();
    // False once the worker thread has returned (or when it never existed).
    bool IsRunning() const { return thread.isRunning(); }
    // Turns the worker has made since it was resumed; an idle worker makes none.
    uint64_t TurnsForTesting() const { return turns.load(std::memory_order_relaxed); }
    // Posts that had to wake a waiting worker.
    uint64_t WakesForTesting() const { return wakes.load(std::memory_order_relaxed); }

  private:
    struct StartupCall {
        StartupFunction function;
        void* argument;
    };

    static unsigned ThreadMain(void* argument);
    void Main();
    bool IsAbandoned() const { return abandoned.load(std::memory_order_acquire); }
    void Push(ReportPost&& post);
    template <class Iterator>
    void EnqueueCopies(const std::wstring& url, Iterator first, Iterator last, bool flag,
                       ReportCallback callback, void* context);

    // Runs the start-up calls, then starts delivery and the strategy fetch, unless the worker is
    // abandoned first: once Stop has given up on the worker, nothing more may start.
    void StartUp();
    // Starts delivery and the strategy fetch under lifecycleLock, unless abandoned.
    void StartDelivery();
    // One turn: drains the queue (when `drain`) and moves finished posts on. What a failed turn
    // held is dropped; the worker goes on.
    void Step(bool drain);
    // Worker: waits on wakeEvent once nothing has been queued for kIdleTurnsBeforeWait turns and
    // no finished post waits for its report; otherwise pauses for the next turn.
    void WaitForWork();
    void DrainPosts();
    // Formats and posts each record of `post`; `handed` counts the records handed on so far.
    void SendPost(const ReportPost& post, size_t& handed);
    // Counts the records of a post that a failed step dropped.
    void CountDropped(size_t records);
    // Worker: keeps the sent single-record posts of `sent` for TakeSparePost, up to a bound.
    void KeepSparePosts(std::vector<ReportPost>& sent);
    void ReportFinishedPosts();

    CThread thread;
    // In arrival order; a vector so that the two buffers keep their capacity as they trade.
    std::vector<ReportPost> postQueue;
    std::deque<ReportResponed> resultQueue;  // owns the posts it points to
    CCriticalSection postQueueLock;
    CCriticalSection resultQueueLock;
    std::atomic<bool> quitRequested{false};
    std::atomic<int32_t> exitMode{1};
    std::vector<ReportResponed> finishedPosts;  // worker; owns its posts
    std::vector<ReportPost> drainBuffer;        // worker; swapped with postQueue
    std::vector<ReportPost> sparePosts;         // guarded by spareLock
    CCriticalSection spareLock;
    RecordFormatter formatter;
    std::vector<StartupCall> startupCalls;  // guarded by startupLock
    CCriticalSection startupLock;
    std::wstring userAgent;
    std::atomic<bool> silent{false};
    std::atomic<bool>* stopOldSdkFlag;
    // Made in the constructor, the table only when the context exists; the table goes first.
    std::unique_ptr<CReportContext> reportContext;
    std::unique_ptr<CDispatchTable> dispatchTable;

    // The worker stands still until `resumed`; `abandoned` makes it drop everything. The worker
    // starts delivery, and Stop abandons it, under lifecycleLock, so that neither happens in
    // the middle of the other. `wakeEvent` ends the worker's waits: before `resumed`, and while
    // it is idle with nothing queued (`workerIdle`, guarded by postQueueLock, tells a posting
    // thread that the worker waits for it).
    CEvent wakeEvent;
    bool workerIdle = false;
    uint32_t emptyTurns = 0;  // worker; turns in a row that found nothing queued
    std::atomic<uint64_t> turns{0};
    std::atomic<uint64_t> wakes{0};
    std::atomic<bool> resumed{false};
    std::atomic<bool> abandoned{false};
    CCriticalSection lifecycleLock;

    CCriticalSection observerLock;
    RecordObserver recordObserver;
};

}  // namespace qzdata_report_kelvo
