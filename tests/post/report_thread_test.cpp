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

class ReportThreadTest : public ::testing::Test {
  protected:
    ReportThreadTest() : impl(&stopOldSdk) {
        impl.SetHardwareIdSourceForTesting(+[] { return std::string(); });
        impl.SetRecordObserverForTesting([this](const BuiltRecord& record) {
            std::lock_guard<std::mutex> guard(mutex);
            queries.push_back(record.signedQuery);
        });
    }
    std::vector<std::string> Queries() {
        std::lock_guard<std::mutex> guard(mutex);
        return queries;
    }
    void Enqueue(const std::vector<ReportRecord>& records, const std::wstring& url = L"u") {
        impl.EnqueuePost(url, records.begin(), records.end(), true, nullptr, nullptr);
    }
    void Enqueue(const std::string& eid) { Enqueue({{{"eid", eid}}}); }

    std::atomic<bool> stopOldSdk{false};
    ReportThreadImpl impl;
    std::mutex mutex;
    std::vector<std::string> queries;
};

std::string Tail(const std::string& query) {
    return query.substr(query.find("extra="));
}

TEST_F(ReportThreadTest, PostsWaitUntilResumeAndStopDrainsInOrder) {
    ASSERT_TRUE(impl.Create(L""));
    Enqueue("one");
    Enqueue("two");
    // The worker stands still until resumed: the queue keeps both posts.
    EXPECT_EQ(2u, impl.QueuedPostsForTesting().size());
    EXPECT_TRUE(Queries().empty());

    impl.Resume();
    Enqueue("three");
    // A running worker delivers without waiting for Stop.
    EXPECT_TRUE(qz_test::WaitUntil([&] { return Queries().size() == 3; }));
    impl.Stop(5000);
    EXPECT_TRUE(impl.HasEndedForTesting());
    const std::vector<std::string> sent = Queries();
    ASSERT_EQ(3u, sent.size());
    const std::string sdk = "%26sdk_ver%3Dvs-nat-2.2.5";
    EXPECT_EQ("extra=eid%3Done" + sdk, Tail(sent[0]));
    EXPECT_EQ("extra=eid%3Dtwo" + sdk, Tail(sent[1]));
    EXPECT_EQ("extra=eid%3Dthree" + sdk, Tail(sent[2]));
}

struct Gate {
    CEvent entered;
    CEvent release;
};

TEST_F(ReportThreadTest, StopWithZeroTimeoutAbandonsABusyWorkerAndLosesTheQueue) {
    Gate gate;
    impl.AddStartupCall(
        [](void* argument) {
            auto* gate = static_cast<Gate*>(argument);
            gate->entered.Set();
            gate->release.Wait(kInfinite);
        },
        &gate);
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
    EXPECT_TRUE(Queries().empty());
}

TEST_F(ReportThreadTest, StartupCallsRunInOrderBeforeAnyDrain) {
    std::vector<std::string> order;
    impl.SetRecordObserverForTesting([&order](const BuiltRecord&) { order.push_back("record"); });
    const auto startup = [](void* argument) {
        static_cast<std::vector<std::string>*>(argument)->push_back("startup");
    };
    impl.AddStartupCall(startup, &order);
    impl.AddStartupCall(nullptr, nullptr);
    impl.AddStartupCall(startup, &order);
    ASSERT_TRUE(impl.Create(L""));
    Enqueue("queued-before-start");
    impl.Resume();
    impl.Stop(5000);
    EXPECT_EQ((std::vector<std::string>{"startup", "startup", "record"}), order);
}

TEST_F(ReportThreadTest, SilentDropsEveryHandOver) {
    impl.SetSilent(true);
    Enqueue("dropped");
    ReportPost moved;
    moved.records = {{{"eid", "moved"}}};
    impl.EnqueuePost(std::move(moved));
    EXPECT_TRUE(impl.QueuedPostsForTesting().empty());
    impl.SetSilent(false);
    Enqueue("kept");
    EXPECT_EQ(1u, impl.QueuedPostsForTesting().size());
}

// A record that fails is skipped and the rest of its post goes on; sent single-record posts are
// kept for reuse with their old content.
TEST_F(ReportThreadTest, FailedRecordsAreSkippedAndSinglePostsKeptForReuse) {
    EXPECT_TRUE(impl.TakeSparePost().records.empty());
    Enqueue("one");
    Enqueue({{{"eid", "a"}}, {{"eid", "b"}, {"eid_desc", ""}}, {{"eid", "c"}}});
    ASSERT_TRUE(impl.Create(L""));
    impl.Resume();
    impl.Stop(5000);
    const std::vector<std::string> sent = Queries();
    ASSERT_EQ(3u, sent.size());
    EXPECT_NE(std::string::npos, sent[1].find("eid%3Da"));
    EXPECT_NE(std::string::npos, sent[2].find("eid%3Dc"));
    const ReportPost spare = impl.TakeSparePost();
    ASSERT_EQ(1u, spare.records.size());
    EXPECT_EQ("one", spare.records[0].at("eid"));
    EXPECT_TRUE(impl.TakeSparePost().records.empty());
}

struct Finished {
    ReportThreadImpl* impl;
    int context = 7;
    std::vector<std::pair<uint32_t, void*>> results;
};
Finished* finishedState = nullptr;

TEST_F(ReportThreadTest, FinishedPostsReachTheirCallbacksOnTheDeliveringThread) {
    Finished state{&impl};
    finishedState = &state;
    impl.AddStartupCall(
        [](void* argument) {
            auto* state = static_cast<Finished*>(argument);
            auto* withCallback = new ReportPost;
            withCallback->callback = [](ReportResponed& response) {
                finishedState->results.emplace_back(response.status, response.post->context);
            };
            withCallback->context = &state->context;
            state->impl->FinishPost(withCallback, 15);
            state->impl->FinishPost(new ReportPost, 0);
        },
        &state);
    ASSERT_TRUE(impl.Create(L""));
    impl.Resume();
    // Results wait for the host's thread; the worker never calls back itself.
    EXPECT_TRUE(qz_test::WaitUntil([&] {
        impl.DeliverResults();
        return !state.results.empty();
    }));
    impl.Stop(5000);
    impl.DeliverResults();
    EXPECT_EQ((std::vector<std::pair<uint32_t, void*>>{{15, &state.context}}), state.results);
    finishedState = nullptr;
}

}  // namespace
}  // namespace qzdata_report_kelvo
