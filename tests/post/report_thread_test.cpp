#include "post/report_thread.h"

#include <gtest/gtest.h>

#include <chrono>
#include <mutex>
#include <string>
#include <vector>

#include "runtime/event.h"
#include "support/wait.h"

namespace qzdata_report_kelvo {
namespace {

std::string NoHardwareId() {
    return std::string();
}

// Collects the requests the worker builds, from the worker thread.
class Collector {
  public:
    void Attach(ReportThreadImpl& impl) {
        impl.SetRecordObserverForTesting([this](const BuiltRecord& record) {
            std::lock_guard<std::mutex> guard(mutex);
            queries.push_back(record.signedQuery);
        });
    }
    std::vector<std::string> Queries() {
        std::lock_guard<std::mutex> guard(mutex);
        return queries;
    }
    size_t Count() { return Queries().size(); }

  private:
    std::mutex mutex;
    std::vector<std::string> queries;
};

class ReportThreadTest : public ::testing::Test {
  protected:
    ReportThreadTest() : impl(&stopOldSdk) {
        impl.SetHardwareIdSourceForTesting(&NoHardwareId);
        collector.Attach(impl);
    }

    void Enqueue(const std::string& eid) {
        const std::vector<ReportRecord> records{{{"eid", eid}}};
        impl.EnqueuePost(L"http://collector/", records.begin(), records.end(), true, nullptr,
                         nullptr);
    }

    std::atomic<bool> stopOldSdk{false};
    ReportThreadImpl impl;
    Collector collector;
};

bool EndsWith(const std::string& text, const std::string& tail) {
    return text.size() >= tail.size() &&
           text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

TEST_F(ReportThreadTest, PostsWaitUntilResumeAndStopDrainsInOrder) {
    ASSERT_TRUE(impl.Create(L""));
    Enqueue("one");
    Enqueue("two");
    // The worker stands still until resumed: the queue keeps both posts.
    EXPECT_EQ(2u, impl.QueuedPostsForTesting().size());
    EXPECT_EQ(0u, collector.Count());

    impl.Resume();
    Enqueue("three");
    impl.Stop(5000);
    EXPECT_TRUE(impl.HasEndedForTesting());
    const std::vector<std::string> queries = collector.Queries();
    ASSERT_EQ(3u, queries.size());
    EXPECT_TRUE(EndsWith(queries[0], "extra=eid%3Done%26sdk_ver%3Dvs-nat-2.2.5"));
    EXPECT_TRUE(EndsWith(queries[1], "extra=eid%3Dtwo%26sdk_ver%3Dvs-nat-2.2.5"));
    EXPECT_TRUE(EndsWith(queries[2], "extra=eid%3Dthree%26sdk_ver%3Dvs-nat-2.2.5"));
}

TEST_F(ReportThreadTest, PostsReachTheRecordFormatWhileRunning) {
    ASSERT_TRUE(impl.Create(L""));
    impl.Resume();
    Enqueue("live");
    EXPECT_TRUE(qz_test::WaitUntil([&] { return collector.Count() == 1; }));
    impl.Stop(5000);
}

struct Gate {
    CEvent entered;
    CEvent release;
};

void BlockingStartupCall(void* argument) {
    auto* gate = static_cast<Gate*>(argument);
    gate->entered.Set();
    gate->release.Wait(kInfinite);
}

TEST_F(ReportThreadTest, StopWithZeroTimeoutAbandonsABusyWorkerAndLosesTheQueue) {
    Gate gate;
    impl.AddStartupCall(&BlockingStartupCall, &gate);
    ASSERT_TRUE(impl.Create(L""));
    impl.Resume();
    ASSERT_TRUE(gate.entered.Wait(5000));
    Enqueue("lost1");
    Enqueue("lost2");

    const auto start = std::chrono::steady_clock::now();
    impl.Stop(0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1000));
    EXPECT_FALSE(impl.HasEndedForTesting());

    gate.release.Set();
    EXPECT_TRUE(qz_test::WaitUntil([&] { return impl.HasEndedForTesting(); }));
    EXPECT_EQ(0u, collector.Count());
}

void RecordStartupOrder(void* argument) {
    static_cast<std::vector<std::string>*>(argument)->push_back("startup");
}

TEST_F(ReportThreadTest, StartupCallsRunInOrderBeforeAnyDrain) {
    std::vector<std::string> order;
    impl.SetRecordObserverForTesting([&order](const BuiltRecord&) { order.push_back("record"); });
    impl.AddStartupCall(&RecordStartupOrder, &order);
    impl.AddStartupCall(nullptr, nullptr);
    impl.AddStartupCall(&RecordStartupOrder, &order);
    ASSERT_TRUE(impl.Create(L""));
    Enqueue("queued-before-start");
    impl.Resume();
    impl.Stop(5000);
    EXPECT_EQ((std::vector<std::string>{"startup", "startup", "record"}), order);
}

TEST_F(ReportThreadTest, SilentDropsEveryHandOver) {
    impl.SetSilent(true);
    EXPECT_TRUE(impl.IsSilent());
    Enqueue("dropped");
    ReportPost moved;
    moved.records = {{{"eid", "moved"}}};
    impl.EnqueuePost(std::move(moved));
    EXPECT_TRUE(impl.QueuedPostsForTesting().empty());
    impl.SetSilent(false);
    Enqueue("kept");
    EXPECT_EQ(1u, impl.QueuedPostsForTesting().size());
}

TEST_F(ReportThreadTest, ARecordThatFailsIsSkippedAndTheRestOfThePostGoesOn) {
    const std::vector<ReportRecord> records{
        {{"eid", "a"}}, {{"eid", "b"}, {"eid_desc", ""}}, {{"eid", "c"}}};
    impl.EnqueuePost(L"u", records.begin(), records.end(), true, nullptr, nullptr);
    ASSERT_TRUE(impl.Create(L""));
    impl.Resume();
    impl.Stop(5000);
    const std::vector<std::string> queries = collector.Queries();
    ASSERT_EQ(2u, queries.size());
    EXPECT_NE(std::string::npos, queries[0].find("eid%3Da"));
    EXPECT_NE(std::string::npos, queries[1].find("eid%3Dc"));
}

TEST_F(ReportThreadTest, SentSingleRecordPostsAreKeptForReuse) {
    EXPECT_TRUE(impl.TakeSparePost().records.empty());
    Enqueue("one");
    const std::vector<ReportRecord> two{{{"eid", "a"}}, {{"eid", "b"}}};
    impl.EnqueuePost(L"u", two.begin(), two.end(), true, nullptr, nullptr);
    ASSERT_TRUE(impl.Create(L""));
    impl.Resume();
    impl.Stop(5000);
    ASSERT_EQ(3u, collector.Count());
    // Only the single-record post comes back, with its memory and old content.
    const ReportPost spare = impl.TakeSparePost();
    ASSERT_EQ(1u, spare.records.size());
    EXPECT_EQ("one", spare.records[0].at("eid"));
    EXPECT_TRUE(impl.TakeSparePost().records.empty());
}

struct Finished {
    ReportThreadImpl* impl;
    int context = 7;
    std::vector<uint32_t> statuses;
    std::vector<void*> contexts;
};

Finished* finishedState = nullptr;

void OnFinished(ReportResponed& response) {
    finishedState->statuses.push_back(response.status);
    finishedState->contexts.push_back(response.post->context);
}

void FinishTwoPosts(void* argument) {
    auto* state = static_cast<Finished*>(argument);
    auto* withCallback = new ReportPost;
    withCallback->callback = &OnFinished;
    withCallback->context = &state->context;
    state->impl->FinishPost(withCallback, 15);
    state->impl->FinishPost(new ReportPost, 0);
}

TEST_F(ReportThreadTest, FinishedPostsReachTheirCallbacksOnTheDeliveringThread) {
    Finished state;
    state.impl = &impl;
    finishedState = &state;
    impl.AddStartupCall(&FinishTwoPosts, &state);
    ASSERT_TRUE(impl.Create(L""));
    impl.Resume();
    // Results wait for the host's thread; the worker never calls back itself.
    EXPECT_TRUE(qz_test::WaitUntil([&] {
        impl.DeliverResults();
        return !state.statuses.empty();
    }));
    impl.Stop(5000);
    impl.DeliverResults();
    EXPECT_EQ(std::vector<uint32_t>{15}, state.statuses);
    EXPECT_EQ(std::vector<void*>{&state.context}, state.contexts);
    finishedState = nullptr;
}

}  // namespace
}  // namespace qzdata_report_kelvo
