#include "post/report_thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "delivery/dispatch_table.h"
#include "delivery/report_context.h"
#include "runtime/event.h"
#include "strategy/strategy.h"
#include "support/http_test_server.h"
#include "support/wait.h"

namespace qzdata_report_kelvo {
namespace {

struct ReportThreadTest : ::testing::Test {
    ReportThreadTest() : impl(&stopOldSdk) {
        impl.SetRecordObserver([this](const BuiltRecord& record) { Keep(record); });
    }
    void Keep(const BuiltRecord& record) {
        const size_t eid = record.signedQuery.find("eid%3D") + 6;
        Note(record.signedQuery.substr(eid, record.signedQuery.find('%', eid) - eid));
    }
    void Note(const std::string& eid) {
        std::lock_guard<std::mutex> guard(mutex);
        eids.push_back(eid);
    }
    std::vector<std::string> Eids() { return std::lock_guard<std::mutex>(mutex), eids; }
    void Enqueue(const std::vector<ReportRecord>& records) {
        impl.EnqueuePost(L"u", records.begin(), records.end(), true, nullptr, nullptr);
    }
    void Enqueue(const std::string& eid) { Enqueue({{{"eid", eid}}}); }
    void Run() {
        ASSERT_TRUE(impl.Create(L""));
        impl.Resume();
    }

    std::atomic<bool> stopOldSdk{false};
    ReportThreadImpl impl;
    std::mutex mutex;
    std::vector<std::string> eids;  // of the built records, in order
};

// With nothing queued the worker waits instead of turning; the next post wakes it at once.
TEST_F(ReportThreadTest, AnIdleWorkerStandsStillUntilTheNextPost) {
    Run();
    Enqueue("first");
    ASSERT_TRUE(qz_test::WaitUntil([&] { return Eids().size() == 1; }));
    uint64_t turns = impl.TurnsForTesting();
    ASSERT_TRUE(qz_test::WaitUntil([&] {
        const uint64_t before = std::exchange(turns, impl.TurnsForTesting());
        return !qz_test::WaitUntil([&] { return impl.TurnsForTesting() != before; }, 50);
    }));
    EXPECT_FALSE(qz_test::WaitUntil([&] { return impl.TurnsForTesting() != turns; }, 200));

    const auto start = std::chrono::steady_clock::now();
    Enqueue("second");
    ASSERT_TRUE(qz_test::WaitUntil([&] { return Eids().size() == 2; }));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100));
    // A host that reports every few milliseconds finds the worker turning, not waiting.
    const uint64_t wakes = impl.WakesForTesting();
    for (int i = 0; i < 20; ++i) {
        Enqueue("steady");
        std::this_thread::sleep_for(std::chrono::milliseconds(3));
    }
    EXPECT_LE(impl.WakesForTesting() - wakes, 3u);
    impl.Stop(5000);  // an idle worker must be woken to see the stop
    EXPECT_FALSE(impl.IsRunning());
}

// Once Stop has given up on the worker, nothing more starts: no delivery, no strategy fetch.
TEST_F(ReportThreadTest, StopWithZeroTimeoutAbandonsABusyWorkerAndLosesTheQueue) {
    qz_test::HttpTestServer server;
    ASSERT_TRUE(server.Start(qz_test::HttpTestServer::Silent()));
    StrategyRouting routing = DefaultRouting();
    routing.hosts.collectorHost = routing.hosts.strategyHost = "127.0.0.1";
    routing.hosts.collectorPort = routing.hosts.strategyPort = server.port();
    impl.GetReportContext()->GetStrategy().SetRoutingForTesting(routing);
    std::pair<CEvent, CEvent> gate;  // entered, released
    impl.AddStartupCall(
        [](void* events) {
            static_cast<std::pair<CEvent, CEvent>*>(events)->first.Set();
            static_cast<std::pair<CEvent, CEvent>*>(events)->second.Wait(kInfinite);
        },
        &gate);
    Run();
    ASSERT_TRUE(gate.first.Wait(5000));
    Enqueue("lost");

    const auto start = std::chrono::steady_clock::now();
    impl.Stop(0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1000));
    EXPECT_TRUE(impl.IsRunning());

    gate.second.Set();
    EXPECT_TRUE(qz_test::WaitUntil([&] { return !impl.IsRunning(); }) && Eids().empty() &&
                !impl.GetDispatchTable()->IsRunning());
    // A fetch started by mistake would connect at once.
    EXPECT_FALSE(qz_test::WaitUntil([&] { return server.ConnectionCount() != 0; }, 300));
}

// Start-up calls run in order before any drain; a silent worker drops every hand-over; a failed
// record is skipped, the rest of its post goes on; sent single-record posts are kept as they were.
// A step that throws (memory ran out) drops the post in hand, counts it, and the worker goes on.
TEST_F(ReportThreadTest, StartupSilenceSkippedRecordsFailedStepsAndSparePosts) {
    // Start-up calls write into the built records' list: they run on the worker before it.
    const auto startup = [](void* test) { static_cast<ReportThreadTest*>(test)->Note("startup"); };
    impl.AddStartupCall(startup, this);
    impl.AddStartupCall(nullptr, nullptr);
    impl.AddStartupCall(startup, this);
    impl.SetSilent(true);
    Enqueue("dropped");
    impl.EnqueuePost({L"u", {{{"eid", "moved"}}}});
    EXPECT_TRUE(impl.QueuedPosts().empty());
    impl.SetSilent(false);
    EXPECT_TRUE(impl.TakeSparePost().records.empty());
    Enqueue("one");
    Enqueue({{{"eid", "throw"}}, {{"eid", "lost"}}});
    Enqueue({{{"eid", "a"}}, {{"eid", "b"}, {"eid_desc", ""}}, {{"eid", "c"}}});
    impl.SetRecordObserver([&](const BuiltRecord& record) {
        if (record.signedQuery.find("eid%3Dthrow") != std::string::npos)
            throw std::bad_alloc();
        Keep(record);
    });
    Run();
    ASSERT_TRUE(qz_test::WaitUntil([&] { return Eids().size() == 5; }));
    EXPECT_TRUE(impl.IsRunning());
    impl.Stop(5000);
    EXPECT_EQ((std::vector<std::string>{"startup", "startup", "one", "a", "c"}), Eids());
    EXPECT_EQ(2u, impl.GetReportContext()->GetStats().Peek().unreported);
    EXPECT_EQ((std::vector<ReportRecord>{{{"eid", "one"}}}), impl.TakeSparePost().records);
    EXPECT_TRUE(impl.TakeSparePost().records.empty());
}

}  // namespace
}  // namespace qzdata_report_kelvo
