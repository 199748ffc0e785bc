#include "delivery/report_context.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "delivery/delivery_test_util.h"
#include "delivery/report_connect.h"
#include "delivery/report_stats.h"

namespace qzdata_report_kelvo {
namespace {

TEST(ReportStatsTest, EachIncrementCountsItsOwnCounter) {
    CReportStats stats;
    stats.AddCur();
    stats.AddResumeReport();
    stats.AddResumeReport();
    stats.AddSucceedReport();
    stats.AddFailReport();
    stats.AddFirstConnect();
    stats.AddRetry();
    stats.AddSuc();
    stats.AddFait();
    stats.AddDel();
    stats.AddUnreported();
    const ReportCounters c = stats.Peek();
    EXPECT_EQ(std::vector<uint64_t>({c.cur, c.resume_report, c.succeed_report, c.fail_report,
                                     c.first_connect, c.retry, c.suc, c.fait, c.del, c.reserved,
                                     c.unreported}),
              std::vector<uint64_t>({1, 2, 1, 1, 1, 1, 1, 1, 1, 0, 1}));
    stats.Reset();
    EXPECT_EQ(stats.Peek().resume_report, 0u);
}

// The counters are per local day: the first snapshot of a new day still reports the old day's
// counts and starts the new day from 0.
TEST(ReportStatsTest, TheFirstSnapshotOfANewDayReportsTheOldDayAndResets) {
    CReportStats stats;
    int32_t day = 20261122;
    stats.SetDateSourceForTesting([&day] { return day; });
    stats.AddCur();
    stats.AddDel();

    ReportCounters snapshot;
    stats.SnapshotStats(snapshot);
    EXPECT_EQ(snapshot.cur, 1u);
    EXPECT_EQ(stats.Peek().cur, 1u);

    day = 20261123;
    stats.AddCur();
    stats.SnapshotStats(snapshot);
    EXPECT_EQ(snapshot.cur, 2u);
    EXPECT_EQ(snapshot.del, 1u);
    EXPECT_EQ(stats.Peek().cur, 0u);

    stats.AddCur();
    stats.SnapshotStats(snapshot);
    EXPECT_EQ(snapshot.cur, 1u);
    EXPECT_EQ(stats.Peek().cur, 1u);
}

TEST(ReportContextTest, AccountInfoKeepsOnlyTheTextsThatAreGiven) {
    CReportContext context("vs");
    context.SetSessionInfo("S1", "demo");
    context.SetAccountInfo("passport", "U1", "C1", "I1");
    context.SetAccountInfo("", "", "C2", "");
    const ReportIdentity identity = context.GetIdentity();
    EXPECT_EQ(identity.sessionId, "S1");
    EXPECT_EQ(identity.appKey, "demo");
    EXPECT_EQ(identity.uid, "U1");
    EXPECT_EQ(identity.from, "C2");
    EXPECT_EQ(identity.ver, "I1");
    EXPECT_EQ(context.GetSdkVersion(), "vs");
}

// Restores an environment variable at the end of a test.
class ScopedEnv {
  public:
    ScopedEnv(const char* name, const char* value) : name(name) {
        const char* old = std::getenv(name);
        had = old != nullptr;
        if (had) {
            previous = old;
        }
        if (value != nullptr) {
            setenv(name, value, 1);
        } else {
            unsetenv(name);
        }
    }
    ~ScopedEnv() {
        if (had) {
            setenv(name, previous.c_str(), 1);
        } else {
            unsetenv(name);
        }
    }

  private:
    const char* name;
    bool had = false;
    std::string previous;
};

TEST(ReportContextTest, LogDirectoryLiesBelowTheApplicationDataFolder) {
    struct Case {
        const char* dataHome;
        const char* home;
        std::string expected;
    };
    for (const Case& c :
         {Case{"/data", "/home/u", "/data/norvik/tzgame/log/reportsdk/"},
          Case{nullptr, "/home/u", "/home/u/.local/share/norvik/tzgame/log/reportsdk/"},
          Case{"", "", "log/"}}) {
        ScopedEnv dataHome("XDG_DATA_HOME", c.dataHome);
        ScopedEnv home("HOME", c.home);
        CReportContext context("vs");
        EXPECT_EQ(context.GetLogDirectory(), c.expected);
    }
}

// The socket layer is process-wide; a context that ends must not stop it under another one.
TEST(ReportContextTest, AContextThatEndsLeavesTheNetworkToTheOthers) {
    qz_test::ServerGroup servers;
    ASSERT_TRUE(servers.Start({"127.0.0.1"},
                              qz_test::HttpTestServer::Respond(qz_test::ReplyWithBody("x"))));
    CReportContext survivor("vs");
    std::make_unique<CReportContext>("vs").reset();

    CAddressList none;
    CReportConnect connect("127.0.0.1", servers.port(), &survivor, &none, &none);
    std::string reply;
    EXPECT_TRUE(connect.FetchPlain("/f", 0, "", reply));
    EXPECT_EQ(reply, "x");
}

}  // namespace
}  // namespace qzdata_report_kelvo
