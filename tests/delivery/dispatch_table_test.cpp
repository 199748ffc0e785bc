#include "delivery/dispatch_table.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "delivery/delivery_test_util.h"
#include "deployment_config.h"
#include "port/clock.h"
#include "support/wait.h"

namespace qzdata_report_kelvo {
namespace {

using qz_test::AttemptsSeen;
using qz_test::Engine;
using qz_test::HttpTestServer;
using qz_test::kReplyError;
using qz_test::kReplyOk;
using qz_test::LoopbackRouting;
using qz_test::RequestLines;
using qz_test::ServerGroup;
using qz_test::WaitUntil;

const std::string kHost = "127.0.0.1";
const std::string kPath = "/c.gif?act=zhwebevent&smkdata=0";

void PostRecord(CDispatchTable& table, uint16_t port, int64_t time = -1,
                const std::string& body = "&key=k&time=1&pro=demo") {
    table.Post(kHost, kPath, 0, body, 0, port, "", "zhwebevent", time, false, false);
}

std::vector<int> Range(std::initializer_list<int> values) {
    return std::vector<int>(values);
}

// A record whose host answers 500 runs through five passes of two host attempts and (when the
// list has addresses) two fallback attempts, with its attempt count running across the passes.
TEST(DispatchTableTest, AFailingRecordRunsThroughFivePasses) {
    struct Case {
        const char* name;
        std::vector<std::string> fallback;
        std::vector<int> hostAttempts;
        std::vector<int> fallbackAttempts;
        uint64_t retry;
    };
    const std::vector<Case> cases = {
        {"two fallback addresses",
         {"127.0.0.2", "127.0.0.3"},
         Range({1, 2, 5, 6, 9, 10, 13, 14, 17, 18}),
         Range({3, 4, 7, 8, 11, 12, 15, 16, 19, 20}),
         19},
        {"empty fallback list", {}, Range({1, 2, 5, 6, 9, 10, 13, 14, 17, 18}), {}, 9},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ServerGroup servers;
        ASSERT_TRUE(
            servers.Start({kHost, "127.0.0.2", "127.0.0.3"}, HttpTestServer::Respond(kReplyError)));
        Engine engine(LoopbackRouting(kHost, servers.port(), c.fallback));

        PostRecord(engine.table, servers.port());
        ASSERT_TRUE(WaitUntil([&] { return engine.Counters().del == 1; }));
        const size_t total = c.hostAttempts.size() + c.fallbackAttempts.size();
        ASSERT_TRUE(WaitUntil([&] { return servers.ConnectionCount() == total; }));

        EXPECT_EQ(AttemptsSeen(servers.at(0)), c.hostAttempts);
        std::vector<int> fallbackSeen = AttemptsSeen(servers.at(1));
        const std::vector<int> third = AttemptsSeen(servers.at(2));
        fallbackSeen.insert(fallbackSeen.end(), third.begin(), third.end());
        std::sort(fallbackSeen.begin(), fallbackSeen.end());
        EXPECT_EQ(fallbackSeen, c.fallbackAttempts);

        const ReportCounters counters = engine.Counters();
        EXPECT_EQ(counters.cur, 1u);
        EXPECT_EQ(counters.del, 1u);
        EXPECT_EQ(counters.fail_report, 5u);
        EXPECT_EQ(counters.resume_report, 4u);
        EXPECT_EQ(counters.first_connect, 1u);
        EXPECT_EQ(counters.retry, c.retry);
        EXPECT_EQ(counters.fait, total);
        EXPECT_EQ(counters.suc, 0u);
        EXPECT_EQ(counters.succeed_report, 0u);
    }
}

TEST(DispatchTableTest, ARecordThatSucceedsIsSentOnceWithItsTarget) {
    ServerGroup servers;
    ASSERT_TRUE(servers.Start({kHost}, HttpTestServer::Respond(kReplyOk)));
    Engine engine(LoopbackRouting(kHost, servers.port(), {}));

    engine.table.Post(kHost, kPath, 0, "&key=k&time=1&pro=demo", 0, servers.port(),
                      "0123456789abcdef0123456789abcdef", "zhwebevent", -1, false, false);
    ASSERT_TRUE(WaitUntil([&] { return engine.Counters().succeed_report == 1; }));

    ASSERT_EQ(RequestLines(servers.at(0)).size(), 1u);
    EXPECT_EQ(RequestLines(servers.at(0))[0],
              "GET /c.gif?act=zhwebevent&smkdata=0&EC=1&action=0123456789abcdef0123456789abcdef"
              "&sdkver=vs-test-1&key=k&time=1&pro=demo HTTP/1.1");
    const ReportCounters counters = engine.Counters();
    EXPECT_EQ(counters.cur, 1u);
    EXPECT_EQ(counters.first_connect, 1u);
    EXPECT_EQ(counters.suc, 1u);
    EXPECT_EQ(counters.retry + counters.fait + counters.del + counters.resume_report, 0u);
}

TEST(DispatchTableTest, ARecordOlderThanSevenDaysIsGivenUpAtItsFirstRepost) {
    ServerGroup servers;
    ASSERT_TRUE(servers.Start({kHost}, HttpTestServer::Respond(kReplyError)));
    Engine engine(LoopbackRouting(kHost, servers.port(), {}));

    PostRecord(engine.table, servers.port(), port::Time64() - 8 * 86400);
    ASSERT_TRUE(WaitUntil([&] { return engine.Counters().del == 1; }));

    EXPECT_EQ(AttemptsSeen(servers.at(0)), Range({1, 2}));
    EXPECT_EQ(engine.Counters().resume_report, 0u);
    EXPECT_EQ(engine.Counters().fail_report, 1u);
}

TEST(DispatchTableTest, RepostRefusesSpentOrStaleRecordsAndDropsSilentlyWhenStopped) {
    Engine engine(LoopbackRouting(kHost, 9, {}));
    engine.table.Stop();
    struct Case {
        int32_t retry;
        int64_t age;
        bool expected;
    };
    // While not running, an acceptable record is dropped and still reported as taken.
    for (const Case& c :
         {Case{5, 0, false}, Case{4, 0, true}, Case{1, 604900, false}, Case{1, 604700, true}}) {
        CConnectData data;
        data.retry = c.retry;
        data.time = port::Time64() - c.age;
        EXPECT_EQ(engine.table.Repost("id", kHost, 9, data), c.expected)
            << "retry " << c.retry << " age " << c.age;
    }
    CConnectData timeless;
    timeless.retry = 1;
    EXPECT_TRUE(engine.table.Repost("id", kHost, 9, timeless));
    EXPECT_EQ(engine.Counters().resume_report, 0u);
    EXPECT_TRUE(engine.table.DispatchKeysForTesting().empty());
}

TEST(DispatchTableTest, PostBeforeStartOrAfterStopIsDroppedWithoutACount) {
    CReportContext context("v");
    CDispatchTable table(&context);
    table.Post(kHost, kPath, 0, "", 0, 9, "", "a", -1, false, false);
    table.Start();
    table.Stop();
    table.Post(kHost, kPath, 0, "", 0, 9, "", "a", -1, false, false);
    EXPECT_EQ(context.GetStats().Peek().cur, 0u);
    EXPECT_TRUE(table.DispatchKeysForTesting().empty());
    EXPECT_EQ(table.QueuedCount(), 0u);
}

TEST(DispatchTableTest, OneDispatcherPerHostAndPortKeyedByTheProfilePort) {
    CReportContext context("v");
    CDispatchTable table(&context);
    table.Start();
    const uint16_t other = deployment::kCollectorPort == 8080 ? 8081 : 8080;

    const auto onProfilePort = table.GetDispatch("alpha", deployment::kCollectorPort);
    const auto again = table.GetDispatch("alpha", deployment::kCollectorPort);
    const auto onOther = table.GetDispatch("alpha", other);
    ASSERT_TRUE(onProfilePort && onOther);
    EXPECT_EQ(onProfilePort, again);
    EXPECT_NE(onProfilePort, onOther);
    EXPECT_EQ(table.DispatchKeysForTesting(),
              (std::vector<std::string>{"alpha", "alpha" + std::to_string(other)}));
    // Each has its own sending thread.
    EXPECT_EQ(onProfilePort->GetActiveCount(), 1u);
    EXPECT_EQ(onOther->GetActiveCount(), 1u);
    EXPECT_NE(onProfilePort->GetConnections().begin()->first,
              onOther->GetConnections().begin()->first);

    table.Stop();
    EXPECT_TRUE(table.DispatchKeysForTesting().empty());
    EXPECT_TRUE(onOther->GetConnections().empty());
}

// The first record is held by the collector while 25 more are queued and Stop begins: the quick
// quit goes ahead of them, and the drain sends 20 and gives up 5.
TEST(DispatchTableTest, StopSendsAtMostTwentyUntriedRecords) {
    std::atomic<bool> release{false};
    std::atomic<int> accepted{0};
    ServerGroup servers;
    ASSERT_TRUE(servers.Start({kHost}, [&](qz_test::TestConnection& connection) {
        if (connection.ReadRequest().empty()) {
            return;
        }
        if (accepted++ == 0) {
            WaitUntil([&] { return release.load() || connection.Stopping(); }, 10000);
        }
        connection.Send(kReplyOk);
        connection.CloseSending();
        connection.WaitForPeerClose(5000);
    }));
    Engine engine(LoopbackRouting(kHost, servers.port(), {}), 5000);

    PostRecord(engine.table, servers.port());
    ASSERT_TRUE(WaitUntil([&] { return accepted.load() == 1; }));
    for (int i = 0; i < 25; ++i) {
        PostRecord(engine.table, servers.port());
    }
    const auto dispatch = engine.table.GetDispatch(kHost, servers.port());
    EXPECT_EQ(engine.table.QueuedCount(), 25u);

    std::thread stopper([&] { engine.table.Stop(); });
    // 25 record notifications and the quick quit.
    const bool quitPosted =
        WaitUntil([&] { return dispatch->GetQueue().PendingNotifications() == 26; });
    release = true;
    stopper.join();
    ASSERT_TRUE(quitPosted);

    const ReportCounters counters = engine.Counters();
    EXPECT_EQ(counters.cur, 26u);
    EXPECT_EQ(counters.succeed_report, 21u);
    EXPECT_EQ(counters.del, 5u);
    EXPECT_EQ(counters.fail_report, 0u);
    EXPECT_EQ(servers.ConnectionCount(), 21u);
    EXPECT_FALSE(engine.table.IsRunning());
    EXPECT_EQ(dispatch->GetQueue().Size(), 0u);
}

}  // namespace
}  // namespace qzdata_report_kelvo
