#include "report/basic_data_report_base.h"

#include <algorithm>
#include <iterator>

#include "port/file_stream.h"
#include "post/constants.h"
#include "post/not_sent_pack.h"
#include "post/report_thread.h"

namespace qzdata_report_kelvo {

template <class Worker>
BasicDataReportBase<Worker>::BasicDataReportBase() : reportThread(&stopOldSdk) {}

template <class Worker>
BasicDataReportBase<Worker>::~BasicDataReportBase() {
    ReleaseThreads();
}

template <class Worker>
void BasicDataReportBase<Worker>::ReleaseThreads() {
    timers.Shutdown();
    reportThread.Close();
}

template <class Worker>
bool BasicDataReportBase<Worker>::InitWorker(WindowHandle window, const std::wstring& path) {
    if (!reportThread.Create(std::wstring())) {
        return false;
    }
    this->window = window;
    if (!path.empty()) {
        notSentPath = path;
        reportThread.AddStartupCall(&BasicDataReportBase::LoadNotSentTask, this);
    }
    objectState.store(kInitialised, std::memory_order_release);
    return true;
}

template <class Worker>
void BasicDataReportBase<Worker>::LoadNotSentTask(void* object) {
    static_cast<BasicDataReportBase*>(object)->LoadNotSent();
}

template <class Worker>
void BasicDataReportBase<Worker>::Run() {
    if (GetObjectState() < kInitialised) {
        return;
    }
    reportThread.Resume();
    objectState.store(kRunning, std::memory_order_release);
}

template <class Worker>
void BasicDataReportBase<Worker>::Exit(bool flush, uint32_t timeoutMs) {
    if (GetObjectState() == kNotInitialised) {
        return;
    }
    if (GetObjectState() == kInitialised) {
        Run();
    }
    {
        CScopedLock lock(queueLock);
        for (uintptr_t& id : priorityTimers) {
            if (id != 0) {
                timers.KillTimer(window, id);
                id = 0;
            }
        }
        if (flush) {
            for (int32_t priority = 0; priority <= report::kMaxPriority; ++priority) {
                FlushBucket(static_cast<DataReportPriority>(priority));
            }
        }
    }
    reportThread.Stop(timeoutMs);
}

template <class Worker>
void BasicDataReportBase<Worker>::OnPumpTimer() {
    if (GetObjectState() <= kNotInitialised) {
        return;
    }
    if (loadedPostsReady.load(std::memory_order_acquire) && !loadedPosts.empty()) {
        for (const ReportPost& post : loadedPosts) {
            PostWithPriority(post.url, kPriorityImmediate, post.records, nullptr, nullptr);
        }
        loadedPosts.clear();
    }
    reportThread.DeliverResults();
}

template <class Worker>
void BasicDataReportBase<Worker>::SetSilent(bool silent) {
    reportThread.SetSilent(silent);
}

template <class Worker>
bool BasicDataReportBase<Worker>::IsSilent() {
    return reportThread.IsSilent();
}

template <class Worker>
bool BasicDataReportBase<Worker>::SetMaxPriority(DataReportPriority priority) {
    if (static_cast<uint32_t>(priority) > static_cast<uint32_t>(report::kMaxPriority)) {
        return false;
    }
    maxPriority = priority;
    return true;
}

template <class Worker>
DataReportPriority BasicDataReportBase<Worker>::GetMaxPriority() {
    return static_cast<DataReportPriority>(maxPriority);
}

template <class Worker>
bool BasicDataReportBase<Worker>::PostWithPriority(const std::wstring& url,
                                                   DataReportPriority priority,
                                                   const std::vector<ReportRecord>& records,
                                                   ReportCallback callback, void* context) {
    // Every report is queued at once, whatever its priority.
    (void)priority;
    return PostImmediately(url, records, callback, context);
}

namespace {

bool AllEmpty(const std::vector<ReportRecord>& records) {
    for (const ReportRecord& record : records) {
        if (!record.empty()) {
            return false;
        }
    }
    return true;
}

}  // namespace

template <class Worker>
bool BasicDataReportBase<Worker>::PostImmediately(const std::wstring& url,
                                                  const std::vector<ReportRecord>& records,
                                                  ReportCallback callback, void* context) {
    if (GetObjectState() < kInitialised || url.empty() || AllEmpty(records)) {
        return false;
    }
    auto first = records.begin();
    while (first != records.end()) {
        const size_t left = static_cast<size_t>(std::distance(first, records.end()));
        auto last = first + static_cast<std::ptrdiff_t>(std::min(left, post::kRecordsPerPost));
        reportThread.EnqueuePost(url, first, last, true, callback, context);
        first = last;
    }
    return true;
}

template <class Worker>
bool BasicDataReportBase<Worker>::HandOver(const std::wstring& url, ReportPost&& post) {
    if (GetObjectState() < kInitialised || url.empty() || AllEmpty(post.records)) {
        return false;
    }
    if (post.url != url) {
        post.url.assign(url);
    }
    post.flag = true;
    post.callback = nullptr;
    post.context = nullptr;
    reportThread.EnqueuePost(std::move(post));
    return true;
}

template <class Worker>
bool BasicDataReportBase<Worker>::FlushWithPriority(DataReportPriority priority) {
    if (static_cast<uint32_t>(priority) >= report::kPriorityCount) {
        return false;
    }
    CScopedLock lock(queueLock);
    FlushBucket(priority);
    return true;
}

template <class Worker>
void BasicDataReportBase<Worker>::Flush() {
    CScopedLock lock(queueLock);
    for (size_t priority = 0; priority < report::kPriorityCount; ++priority) {
        FlushBucket(static_cast<DataReportPriority>(priority));
    }
}

template <class Worker>
void BasicDataReportBase<Worker>::FlushBucket(DataReportPriority priority) {
    if (GetObjectState() <= kNotInitialised) {
        return;
    }
    std::list<BucketPost>& bucket = priorityQueues[static_cast<size_t>(priority)];
    for (const BucketPost& post : bucket) {
        auto first = post.records.begin();
        while (first != post.records.end()) {
            auto last = first;
            for (size_t n = 0; n < post::kRecordsPerPost && last != post.records.end(); ++n) {
                ++last;
            }
            reportThread.EnqueuePost(post.url, first, last, post.flag, post.callback, post.context);
            first = last;
        }
    }
    bucket.clear();
}

namespace {

// Writes the posts from the front of `posts` until one fails, and lets go of those written.
template <class Posts>
bool PackPosts(post::NotSentPackWriter& writer, Posts& posts) {
    auto next = posts.begin();
    while (next != posts.end() && writer.Write(next->url, next->flag, next->records)) {
        ++next;
    }
    const bool all = next == posts.end();
    posts.erase(posts.begin(), next);
    return all;
}

}  // namespace

template <class Worker>
bool BasicDataReportBase<Worker>::PackNotSent(const std::wstring& path) {
    if (GetObjectState() < kInitialised || path.empty()) {
        return false;
    }
    CScopedLock lock(queueLock);
    const auto buckets = priorityQueues.begin();
    const auto bucketsEnd = buckets + maxPriority + 1;
    // Posts whose load is not complete count here, so that such a call still leaves a file.
    if (std::all_of(buckets, bucketsEnd, [](const auto& bucket) { return bucket.empty(); }) &&
        notSentPosts.empty() && loadedPosts.empty()) {
        return true;
    }
    post::NotSentPackWriter writer;
    if (!writer.Open(path)) {
        return false;
    }
    bool written = true;
    for (auto bucket = buckets; written && bucket != bucketsEnd; ++bucket) {
        written = PackPosts(writer, *bucket);
    }
    written = written && PackPosts(writer, notSentPosts) &&
              (!loadedPostsReady.load(std::memory_order_acquire) || PackPosts(writer, loadedPosts));
    return writer.Close() && written;
}

template <class Worker>
void BasicDataReportBase<Worker>::LoadNotSent() {
    if (post::ReadNotSentPack(notSentPath, loadedPosts)) {
        port::RemoveFile(notSentPath);
    }
    loadedPostsReady.store(true, std::memory_order_release);
}

template <class Worker>
bool BasicDataReportBase<Worker>::IsStopOldSdk() {
    return stopOldSdk.load(std::memory_order_relaxed);
}

template <class Worker>
void BasicDataReportBase<Worker>::AddBucketPostForTesting(size_t priority, BucketPost post) {
    CScopedLock lock(queueLock);
    priorityQueues.at(priority).push_back(std::move(post));
}

template <class Worker>
size_t BasicDataReportBase<Worker>::BucketSizeForTesting(size_t priority) {
    CScopedLock lock(queueLock);
    return priorityQueues.at(priority).size();
}

template class BasicDataReportBase<ReportThreadImpl>;

}  // namespace qzdata_report_kelvo
