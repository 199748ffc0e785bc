#include "delivery/dispatch_table.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "delivery/delivery_test_util.h"
#include "port/env.h"
#include "support/wait.h"

namespace qzdata_report_kelvo {
namespace {

using qz_test::HttpTestServer;
using qz_test::WaitUntil;

const std::string kHost = "127.0.0.1";

void PostRecord(CDispatchTable& table, uint16_t port, int64_t time = -1) {
    table.Post(kHost, "/c.gif?act=zhwebevent&smkdata=0", 0, "&key=k&time=1", 0, port, "",
               "zhwebevent", time, false, false);
}

// A record whose host answers 500 runs through five passes: two attempts on the host name and
// (when the list has addresses) two on fallback addresses, its count running across the passes.
TEST(DispatchTableTest, AFailingRecordRunsThroughFivePasses) {
    struct Case {
        std::vector<std::string> fallback;
        std::vector<int> fallbackAttempts;
        uint64_t retry;
    };
    const std::vector<int> kHostAttempts = {1, 2, 5, 6, 9, 10, 13, 14, 17, 18};
    for (const Case& c :
         {Case{{"127.0.0.2", "127.0.0.3"}, {3, 4, 7, 8, 11, 12, 15, 16, 19, 20}, 19},
          Case{{}, {}, 9}}) {
        SCOPED_TRACE(c.fallback.size());
        qz_test::ServerGroup servers;
        ASSERT_TRUE(servers.Start({kHost, "127.0.0.2", "127.0.0.3"},
                                  {HttpTestServer::Respond(qz_test::kReplyError)}));
        qz_test::Engine engine(qz_test::LoopbackRouting(kHost, servers.port(), c.fallback));

        PostRecord(engine.table, servers.port());
        ASSERT_TRUE(WaitUntil([&] { return engine.Counters().del == 1; }));
        const size_t total = kHostAttempts.size() + c.fallbackAttempts.size();
        ASSERT_TRUE(WaitUntil([&] { return servers.ConnectionCount() == total; }));
        EXPECT_EQ(qz_test::AttemptsSeen({&servers.at(0)}), kHostAttempts);
        EXPECT_EQ(qz_test::AttemptsSeen({&servers.at(1), &servers.at(2)}), c.fallbackAttempts);

        const ReportCounters counters = engine.Counters();
        EXPECT_EQ(counters.cur, 1u);
        EXPECT_EQ(counters.fail_report, 5u);
        EXPECT_EQ(counters.resume_report, 4u);
        EXPECT_EQ(counters.first_connect, 1u);
        EXPECT_EQ(counters.retry, c.retry);
        EXPECT_EQ(counters.fait, total);
        EXPECT_EQ(counters.suc + counters.succeed_report, 0u);
    }
}

TEST(DispatchTableTest, ARecordOlderThanSevenDaysIsGivenUpAtItsFirstRepost) {
    qz_test::ServerGroup servers;
    ASSERT_TRUE(servers.Start({kHost}, {HttpTestServer::Respond(qz_test::kReplyError)}));
    qz_test::Engine engine(qz_test::LoopbackRouting(kHost, servers.port(), {}));

    PostRecord(engine.table, servers.port(), port::Time64() - 8 * 86400);
    ASSERT_TRUE(WaitUntil([&] { return engine.Counters().del == 1; }));
    EXPECT_EQ(qz_test::AttemptsSeen({&servers.at(0)}), (std::vector<int>{1, 2}));
    EXPECT_EQ(engine.Counters().resume_report, 0u);
}

TEST(DispatchTableTest, OneDispatcherPerKeyAndTheProfilePortGivesThePlainHostKey) {
    CReportContext context("v");
    CDispatchTable table(&context);
    PostRecord(table, 9);  // not running yet: dropped without a count
    table.Start();
    const uint16_t other = deployment::kCollectorPort == 8080 ? 8081 : 8080;

    const auto plain = table.GetDispatch("alpha", deployment::kCollectorPort);
    const auto withPort = table.GetDispatch("alpha", other);
    ASSERT_TRUE(plain && withPort);
    EXPECT_EQ(plain, table.GetDispatch("alpha", deployment::kCollectorPort));
    EXPECT_EQ(table.DispatchKeysForTesting(),
              (std::vector<std::string>{"alpha", "alpha" + std::to_string(other)}));
    // Each has a sending thread of its own.
    ASSERT_EQ(plain->GetConnections().size(), 1u);
    ASSERT_EQ(withPort->GetConnections().size(), 1u);
    EXPECT_NE(plain->GetConnections().begin()->first, withPort->GetConnections().begin()->first);
    EXPECT_EQ(context.GetStats().Peek().cur, 0u);

    table.Stop();
    EXPECT_TRUE(table.DispatchKeysForTesting().empty());
    EXPECT_TRUE(withPort->GetConnections().empty());
}

// The collector holds the first record while 25 more are queued and Stop begins: the quick quit
// goes ahead of them, and the drain sends 20 and gives up 5.
TEST(DispatchTableTest, StopSendsAtMostTwentyUntriedRecords) {
    std::atomic<bool> release{false};
    std::atomic<int> accepted{0};
    qz_test::ServerGroup servers;
    ASSERT_TRUE(servers.Start({kHost}, {[&](qz_test::TestConnection& connection) {
                                  if (connection.ReadRequest().empty()) {
                                      return;
                                  }
                                  if (accepted++ == 0) {
                                      WaitUntil([&] { return release || connection.Stopping(); });
                                  }
                                  connection.Send(qz_test::kReplyOk);
                                  connection.CloseSending();
                                  connection.WaitForPeerClose();
                              }}));
    qz_test::Engine engine(qz_test::LoopbackRouting(kHost, servers.port(), {}), 5000);

    PostRecord(engine.table, servers.port());
    ASSERT_TRUE(WaitUntil([&] { return accepted == 1; }));
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
    EXPECT_EQ(counters.succeed_report, 21u);
    EXPECT_EQ(counters.del, 5u);
    EXPECT_EQ(servers.ConnectionCount(), 21u);
    EXPECT_EQ(dispatch->GetQueue().Size(), 0u);
    EXPECT_FALSE(engine.table.IsRunning());
}

}  // namespace
}  // namespace qzdata_report_kelvo
