#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "delivery/connect_queue.h"
#include "delivery/report_connect.h"
#include "delivery/report_stats.h"

namespace qzdata_report_kelvo {
namespace {

const std::string kId = "0123456789abcdef0123456789abcdef";

CConnectData Request(const std::string& path, const std::string& body, int32_t retry,
                     int32_t type = 0, bool base64 = false, const std::string& item = "act") {
    CConnectData data;
    data.path = path;
    data.body = body;
    data.recordId = retry > 0 ? kId : "";
    data.retry = retry;
    data.type = type;
    data.base64Body = base64;
    data.item = item;
    return data;
}

TEST(BuildTargetTest, Rules) {
    const std::string a = "&action=" + kId;
    struct Case {
        CConnectData data;
        int32_t attempt;
        std::string version, target;
    };
    const std::vector<Case> cases = {
        // Direct requests (pass 0): the attempt alone, no action, no body.
        {Request("/zhsdkinfo.php?ver=1", "&x=1", 0), 2, "v", "/zhsdkinfo.php?ver=1&EC=2"},
        {Request("/x", "", 0), 1, "v", "/x?EC=1"},
        {Request("/x?", "", 0), 1, "v", "/x?EC=1"},
        {Request("c.gif?a=1", "", 0), 3, "v", "/c.gif?a=1&EC=3"},
        // Records: the count runs across passes; the body follows the version.
        {Request("/c?a=1", "&key=k&q=1", 1), 1, "v1", "/c?a=1&EC=1" + a + "&sdkver=v1&key=k&q=1"},
        {Request("/c?a=1", "&q=1", 3), 4, "v", "/c?a=1&EC=12" + a + "&sdkver=v&q=1"},
        {Request("/c?a=1", "q=1", 1), 1, "v", "/c?a=1&EC=1" + a + "&sdkver=v&q=1"},
        {Request("/c?a=1", "&q=1&sdkver=m", 1), 1, "v", "/c?a=1&EC=1" + a + "&q=1&sdkver=m"},
        {Request("/c?a=1", "sdkver=m&q=1", 1), 1, "v", "/c?a=1&EC=1" + a + "&sdkver=m&q=1"},
        {Request("/c?a=1", "&q=1", 1), 1, "", "/c?a=1&EC=1" + a + "&q=1"},
        {Request("/c?a=1", "&q=1", 1, 0, true), 1, "", "/c?a=1&EC=1&enc=b64" + a + "&q=1"},
        {Request("/c?a=1", "", 1, 0, true), 1, "", "/c?a=1&EC=1" + a},
        // POST: the body is the content; the target names the item.
        {Request("/c?a=1", "&q=1", 1, 1), 1, "v", "/c?a=1&EC=1" + a + "&sdkver=v&item=act"},
        {Request("/c?a=1", "&q=1", 2, 1, false, ""), 2, "v", "/c?a=1&EC=6" + a + "&sdkver=v"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(CReportConnect::BuildTarget(c.data, c.attempt, c.version), c.target)
            << c.data.path << " " << c.data.body;
    }
}

TEST(ConnectQueueTest, PriorityOrderAndAQuickQuitThatOvertakesQueuedRecords) {
    CConnectQueue queue;
    for (const auto& [id, priority] : std::vector<std::pair<std::string, int32_t>>{
             {"a", 5}, {"b", 0}, {"c", 5}, {"d", -1}, {"e", 0}}) {
        queue.Push("/p", priority, 0, "", id, "item", 1, -1, false, false);
    }
    queue.PostQuickQuit();
    CConnectDataPtr data;
    EXPECT_TRUE(IsNotification<CQuickQuitNotification>(queue.Wait(data)));
    EXPECT_FALSE(data);
    std::string order;
    while (queue.PendingNotifications() > 0) {
        EXPECT_TRUE(IsNotification<CConnectNotification>(queue.Wait(data)));
        order += data ? data->recordId : "?";
    }
    EXPECT_EQ(order, "dbeac");
}

// The counters are per local day: the first snapshot of a new day still reports the old day's
// counts and starts the new day from 0.
TEST(ReportStatsTest, TheFirstSnapshotOfANewDayReportsTheOldDayAndResets) {
    CReportStats stats;
    int32_t day = 20261122;
    stats.SetDateSourceForTesting([&day] { return day; });
    ReportCounters snapshot;
    for (const auto& [today, added, reported, left] : std::vector<std::tuple<int, int, int, int>>{
             {20261122, 1, 1, 1}, {20261123, 1, 2, 0}, {20261123, 1, 1, 1}}) {
        day = today;
        for (int i = 0; i < added; ++i) {
            stats.AddCur();
        }
        stats.SnapshotStats(snapshot);
        EXPECT_EQ(snapshot.cur, static_cast<uint64_t>(reported)) << today;
        EXPECT_EQ(stats.Peek().cur, static_cast<uint64_t>(left)) << today;
    }
}

}  // namespace
}  // namespace qzdata_report_kelvo
