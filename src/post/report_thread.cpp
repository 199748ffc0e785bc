#include "post/report_thread.h"

#include <algorithm>
#include <utility>

#include "codec/utils.h"
#include "delivery/dispatch_table.h"
#include "delivery/report_context.h"
#include "library_version.h"
#include "port/env.h"
#include "post/constants.h"

namespace qzdata_report_kelvo {

ReportThreadImpl::ReportThreadImpl(std::atomic<bool>* stopOldSdkFlag)
    : stopOldSdkFlag(stopOldSdkFlag) {
    // Without a delivery engine the worker still runs; its records only count as unreported.
    try {
        reportContext = std::make_unique<CReportContext>(version::kSdkVersion);
        dispatchTable = std::make_unique<CDispatchTable>(reportContext.get());
    } catch (const std::bad_alloc&) {
        dispatchTable.reset();
    }
}

ReportThreadImpl::~ReportThreadImpl() {
    Close();
    // A statistics file still open here took lines after the worker closed the logs; it gets the
    // last counters too, written straight to it, since no request can wait at this point.
    if (reportContext && reportContext->IsReportLogOpen()) {
        reportContext->ReportTotals(false, true);
    }
    for (ReportResponed& entry : finishedPosts) {
        delete entry.post;
    }
    for (ReportResponed& entry : resultQueue) {
        delete entry.post;
    }
}

void ReportThreadImpl::Close() {
    quitRequested.store(true, std::memory_order_release);
    abandoned.store(true, std::memory_order_release);
    wakeEvent.Set();
    thread.join();
}

bool ReportThreadImpl::Create(const std::wstring& agent) {
    userAgent = agent.empty() ? std::wstring(post::kDefaultUserAgent) : agent;
    thread.start(&ReportThreadImpl::ThreadMain, this);
    return thread.hasHandle();
}

void ReportThreadImpl::Resume() {
    resumed.store(true, std::memory_order_release);
    wakeEvent.Set();
}

void ReportThreadImpl::AddStartupCall(StartupFunction function, void* argument) {
    CScopedLock lock(startupLock);
    startupCalls.push_back(StartupCall{function, argument});
}

unsigned ReportThreadImpl::ThreadMain(void* argument) {
    static_cast<ReportThreadImpl*>(argument)->Main();
    return 0;
}

void ReportThreadImpl::Main() {
    while (!resumed.load(std::memory_order_acquire)) {
        wakeEvent.Wait(kInfinite);
        if (IsAbandoned()) {
            return;
        }
    }

    StartUp();
    if (IsAbandoned()) {
        return;
    }

    while (!quitRequested.load(std::memory_order_acquire)) {
        Step(true);
        turns.fetch_add(1, std::memory_order_relaxed);
        WaitForWork();
    }
    if (IsAbandoned()) {
        return;
    }
    Step(exitMode.load(std::memory_order_relaxed) == 1);
    // An abandoned worker returned above: its sending threads go on with what they hold, as
    // they would beside a worker ended by force, and the table stops them when it is destroyed.
    if (dispatchTable) {
        dispatchTable->Stop();
        reportContext->GetStrategy().Join();
        reportContext->GetUploadLog().Stop();
    }
}

void ReportThreadImpl::Step(bool drain) {
    try {
        if (drain) {
            DrainPosts();
        }
        ReportFinishedPosts();
    } catch (...) {
        // A failed step (memory ran out) costs what it held, never the worker: a worker that
        // ended here would leave every later report piling up unsent.
        drainBuffer.clear();
    }
}

void ReportThreadImpl::StartUp() {
    std::vector<StartupCall> calls;
    {
        CScopedLock lock(startupLock);
        calls.swap(startupCalls);
    }
    for (const StartupCall& call : calls) {
        if (IsAbandoned()) {
            return;
        }
        try {
            if (call.function != nullptr) {
                call.function(call.argument);
            }
        } catch (...) {
            // A start-up task that failed leaves its fact unknown; delivery starts all the same.
        }
    }
    StartDelivery();
}

void ReportThreadImpl::StartDelivery() {
    CScopedLock lock(lifecycleLock);
    if (IsAbandoned()) {
        return;
    }
    if (dispatchTable) {
        dispatchTable->Start();
        reportContext->GetStrategy().StartFetch(stopOldSdkFlag);
    }
}

template <class Iterator>
void ReportThreadImpl::EnqueueCopies(const std::wstring& url, Iterator first, Iterator last,
                                     bool flag, ReportCallback callback, void* context) {
    if (IsSilent()) {
        return;
    }
    ReportPost post;
    post.url = url;
    post.records.assign(first, last);
    post.flag = flag;
    post.callback = callback;
    post.context = context;
    Push(std::move(post));
}

void ReportThreadImpl::EnqueuePost(const std::wstring& url,
                                   std::list<ReportRecord>::const_iterator first,
                                   std::list<ReportRecord>::const_iterator last, bool flag,
                                   ReportCallback callback, void* context) {
    EnqueueCopies(url, first, last, flag, callback, context);
}

void ReportThreadImpl::EnqueuePost(const std::wstring& url,
                                   std::vector<ReportRecord>::const_iterator first,
                                   std::vector<ReportRecord>::const_iterator last, bool flag,
                                   ReportCallback callback, void* context) {
    EnqueueCopies(url, first, last, flag, callback, context);
}

void ReportThreadImpl::EnqueuePost(ReportPost&& post) {
    if (IsSilent()) {
        return;
    }
    Push(std::move(post));
}

ReportPost ReportThreadImpl::TakeSparePost() {
    CScopedLock lock(spareLock);
    if (sparePosts.empty()) {
        return ReportPost();
    }
    ReportPost post = std::move(sparePosts.back());
    sparePosts.pop_back();
    return post;
}

void ReportThreadImpl::KeepSparePosts(std::vector<ReportPost>& sent) {
    // One lock for the whole drain: the posting threads take this lock for every report.
    CScopedLock lock(spareLock);
    for (ReportPost& post : sent) {
        if (sparePosts.size() >= post::kMaxSparePosts) {
            break;
        }
        if (post.records.size() == 1) {
            sparePosts.push_back(std::move(post));
        }
    }
}

void ReportThreadImpl::Push(ReportPost&& post) {
    bool wake = false;
    {
        CScopedLock lock(postQueueLock);
        postQueue.push_back(std::move(post));
        wake = workerIdle;
        workerIdle = false;
    }
    // Only the post that ends an idle wait pays for the signal.
    if (wake) {
        wakes.fetch_add(1, std::memory_order_relaxed);
        wakeEvent.Set();
    }
}

void ReportThreadImpl::WaitForWork() {
    bool idle = false;
    {
        CScopedLock lock(postQueueLock);
        const bool empty = postQueue.empty() && finishedPosts.empty();
        emptyTurns = empty ? emptyTurns + 1 : 0;
        idle = emptyTurns > post::kIdleTurnsBeforeWait;
        workerIdle = idle;
    }
    if (!idle) {
        // A turn pauses before the next one, as the sending pace expects.
        port::Sleep(1);
        return;
    }
    wakeEvent.Wait(kInfinite);
    CScopedLock lock(postQueueLock);
    workerIdle = false;
    emptyTurns = 0;  // woken by a post: the turns after it count afresh
}

void ReportThreadImpl::Stop(unsigned long timeoutMs) {
    exitMode.store(1, std::memory_order_relaxed);
    quitRequested.store(true, std::memory_order_release);
    wakeEvent.Set();
    const uint32_t wait = timeoutMs >= kInfinite ? kInfinite : static_cast<uint32_t>(timeoutMs);
    if (!thread.wait(wait)) {
        // No thread can be ended by force safely here: the worker is left to notice at its next
        // step and to drop what it still holds.
        CScopedLock lock(lifecycleLock);
        abandoned.store(true, std::memory_order_release);
        wakeEvent.Set();
    }
    DeliverResults();
}

void ReportThreadImpl::DrainPosts() {
    {
        // Only the two queues change places under the lock; posting threads never wait for the
        // copying of posts.
        CScopedLock lock(postQueueLock);
        drainBuffer.swap(postQueue);
    }
    for (ReportPost& post : drainBuffer) {
        if (IsAbandoned()) {
            break;
        }
        size_t handed = 0;
        try {
            SendPost(post, handed);
        } catch (...) {
            // The post in hand is dropped; the worker goes on with the next one.
            CountDropped(post.records.size() - handed);
        }
    }
    KeepSparePosts(drainBuffer);
    drainBuffer.clear();
    // The buffer changes places with the queue at the next drain, so both shrink within two.
    if (drainBuffer.capacity() > post::kKeptQueueCapacity) {
        std::vector<ReportPost>().swap(drainBuffer);
    }
}

void ReportThreadImpl::SendPost(const ReportPost& post, size_t& handed) {
    std::string query;
    std::string action;
    for (const ReportRecord& record : post.records) {
        query.reserve(post::kQueryReserve);
        if (formatter.BuildRecordQuery(record, query, action) == RecordQueryResult::kOk) {
            PostRecord(action, query);
        }
        ++handed;
    }
}

void ReportThreadImpl::CountDropped(size_t records) {
    if (!reportContext) {
        return;
    }
    for (size_t i = 0; i < records; ++i) {
        reportContext->GetStats().AddUnreported();
    }
}

void ReportThreadImpl::PostRecord(const std::string& action, const std::string& query) {
    if (IsAbandoned()) {
        return;
    }
    BuiltRecord built;
    built.action = action;
    BuildGifUrl(query, action, built.path, built.signedQuery, built.recordId, built.recordTime);
    {
        CScopedLock lock(observerLock);
        if (recordObserver) {
            recordObserver(built);
        }
    }
    if (dispatchTable && reportContext) {
        // From here the delivery engine owns the record.
        CConnectData record;
        record.path = std::move(built.path);
        record.body = std::move(built.signedQuery);
        record.recordId = std::move(built.recordId);
        record.item = std::move(built.action);
        record.time = built.recordTime;
        const CStrategy& strategy = reportContext->GetStrategy();
        dispatchTable->Post(strategy.GetCollectorHost(), strategy.GetCollectorPort(),
                            std::move(record));
    } else if (reportContext) {
        reportContext->GetStats().AddUnreported();
    }
}

void ReportThreadImpl::FinishPost(ReportPost* post, uint32_t status) {
    finishedPosts.push_back(ReportResponed{post, status});
}

void ReportThreadImpl::ReportFinishedPosts() {
    if (finishedPosts.empty()) {
        return;
    }
    CScopedLock lock(resultQueueLock);
    for (ReportResponed& entry : finishedPosts) {
        if (entry.post->callback == nullptr) {
            delete entry.post;
        } else {
            resultQueue.push_back(entry);
        }
    }
    finishedPosts.clear();
}

void ReportThreadImpl::DeliverResults() {
    std::vector<ReportResponed> ready;
    {
        CScopedLock lock(resultQueueLock);
        ready.assign(resultQueue.begin(), resultQueue.end());
        resultQueue.clear();
    }
    for (ReportResponed& entry : ready) {
        std::unique_ptr<ReportPost> owned(entry.post);
        if (owned->callback != nullptr) {
            try {
                owned->callback(entry);
            } catch (...) {
                // A host callback that throws must not take the timer thread down.
            }
        }
    }
}

void ReportThreadImpl::SetSessionInfo(const std::string& sessionId, const std::string& pro) {
    if (reportContext && dispatchTable) {
        reportContext->SetSessionInfo(sessionId, pro);
    }
}

void ReportThreadImpl::SetAccountInfo(const std::string& passport, const std::string& tzuid,
                                      const std::string& channel, const std::string& iver) {
    if (reportContext && dispatchTable) {
        reportContext->SetAccountInfo(passport, tzuid, channel, iver);
    }
}

void ReportThreadImpl::SetDeliveryMachineId(const std::string& id) {
    if (reportContext && dispatchTable) {
        reportContext->SetDeliveryMachineId(id);
    }
}

void ReportThreadImpl::SetRecordObserver(RecordObserver observer) {
    CScopedLock lock(observerLock);
    recordObserver = std::move(observer);
}

std::vector<ReportPost> ReportThreadImpl::QueuedPosts() {
    CScopedLock lock(postQueueLock);
    return postQueue;
}

size_t ReportThreadImpl::QueueLength() {
    CScopedLock lock(postQueueLock);
    return postQueue.size();
}

}  // namespace qzdata_report_kelvo
