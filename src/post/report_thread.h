// The report worker: one thread, the queue that feeds it, and the record format that turns each
// queued record into a signed request for the delivery layer.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

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
    using HardwareIdSource = std::string (*)();

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

    // Replaces the values merged into every record; keeps a known "mid" when `params` has none,
    // and never stores "act" or "ati". Any thread.
    void SetCommonParams(const ReportRecord& params);

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

    // --- Record format -----------------------------------------------------------------------

    // Fills paramNames from the long-to-short table; the constructor calls it.
    void InitParamNames();
    // Rewrites long keys of `record` to their short names; when both forms of a name stand in
    // the record, the one later in key order wins. Untouched when no key is long.
    void TranslateParamNames(ReportRecord& record) const;
    // Worker: `query` becomes the record query of `params` merged with the common parameters,
    // `action` its action. Returns 0, or 10 when an escape yields nothing (the record must then
    // be dropped).
    int BuildRecordQuery(const ReportRecord& params, std::string& query, std::string& action);
    // Worker: signs the record query and hands the request to the delivery layer.
    void PostRecord(const std::string& action, const std::string& query);

    // --- Test seams (not exported) -------------------------------------------------------------

    // Receives every request PostRecord built, on the worker thread. Empty removes it.
    void SetRecordObserverForTesting(RecordObserver observer);
    // Replaces the hardware id source of BuildRecordQuery. Set before the worker runs.
    void SetHardwareIdSourceForTesting(HardwareIdSource source) { hardwareIdSource = source; }
    // Copies of the posts waiting in the queue, and their number.
    std::vector<ReportPost> QueuedPostsForTesting();
    size_t QueueLengthForTesting();
    ReportRecord CommonParamsForTesting();
    // True once the worker thread has returned (or never existed).
    bool HasEndedForTesting() const { return !thread.isRunning(); }

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

    void DrainPosts();
    void SendPost(const ReportPost& post);
    // Worker: keeps the sent single-record posts of `sent` for TakeSparePost, up to a bound.
    void KeepSparePosts(std::vector<ReportPost>& sent);
    void ReportFinishedPosts();
    // Escapes `value` as a record value into the escape buffer; false when nothing came out.
    bool EscapeValue(const std::string& value, std::string& out);

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
    std::unique_ptr<char[]> escapeBuffer;  // worker
    uint32_t escapeCapacity;
    uint32_t escapeBufferSize;
    std::vector<StartupCall> startupCalls;  // guarded by startupLock
    CCriticalSection startupLock;
    std::wstring userAgent;
    std::atomic<bool> silent{false};
    CCriticalSection commonParamsLock;
    ReportRecord commonParams;
    std::map<std::string, std::string> paramNames;
    std::atomic<bool>* stopOldSdkFlag;
    // Made in the constructor, the table only when the context exists; the table goes first.
    std::unique_ptr<CReportContext> reportContext;
    std::unique_ptr<CDispatchTable> dispatchTable;

    // The worker stands still until `resumed`; `abandoned` makes it drop everything.
    CEvent resumeEvent;
    std::atomic<bool> resumed{false};
    std::atomic<bool> abandoned{false};

    HardwareIdSource hardwareIdSource = nullptr;
    CCriticalSection observerLock;
    RecordObserver recordObserver;
};

}  // namespace qzdata_report_kelvo
