// The delivery engine: request targets, per-day counters, the dispatch table with its sending
// threads against loopback peers, and the whole road of an event from the exports.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "api/legacy_bridge.h"
#include "delivery/dispatch_table.h"
#include "delivery/report_connect.h"
#include "delivery/report_context.h"
#include "library_version.h"
#include "port/env.h"
#include "qzdata_report.h"
#include "report/report_object.h"
#include "support/http_test_server.h"
#include "support/strategy_blobs.h"
#include "support/wait.h"
#include "tests/api/fake_legacy_library.h"

namespace qzdata_report_kelvo {
namespace {

using qz_test::HttpTestServer;
using qz_test::WaitUntil;
using Counts = std::vector<uint64_t>;
using Servers = std::vector<std::unique_ptr<HttpTestServer>>;
using StrategyBlobTest = qz_test::StrategyBlobTest;

const std::string kHost = "127.0.0.1";
const std::string kId = "0123456789abcdef0123456789abcdef";

CConnectData Request(const std::string& path, const std::string& body, int32_t retry,
                     int32_t type = 0, bool base64 = false, const std::string& item = "act") {
    return {path, 0, type, body, retry > 0 ? kId : "", item, retry, -1, base64, false};
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
        {Request("/c?a=1", "&key=k&q=1", 3), 4, "v", "/c?a=1&EC=12" + a + "&sdkver=v&key=k&q=1"},
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
        EXPECT_EQ(CReportConnect::BuildTarget(c.data, c.attempt, c.version), c.target);
    }
}

// The counters are per local day: the first snapshot of a new day still reports the old day's
// counts and starts the new day from 0.
TEST(ReportStatsTest, TheFirstSnapshotOfANewDayReportsTheOldDayAndResets) {
    struct DayEnv : port::EnvWrapper {
        void GetLocalTime(port::LocalTime* out) override { *out = {2026, 11, day, 9, 0, 0, 0}; }
        int day = 22;
    } env;
    port::Env::Install(&env);
    CReportStats stats;
    for (const auto& [day, reported, left] :
         std::vector<std::tuple<int, int, int>>{{22, 1, 1}, {23, 2, 0}, {23, 1, 1}}) {
        env.day = day;
        stats.AddCur();
        ReportCounters snapshot;
        stats.SnapshotStats(snapshot);
        EXPECT_EQ(snapshot.cur, static_cast<uint64_t>(reported)) << day;
        EXPECT_EQ(stats.Peek().cur, static_cast<uint64_t>(left)) << day;
    }
    port::Env::Install(nullptr);
}

std::string Reply(const std::string& status, const std::string& body = "") {
    return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\n\r\n" + body;
}

// The request line of each connection, in order of acceptance.
std::vector<std::string> RequestLines(const HttpTestServer& server) {
    std::vector<std::string> lines;
    for (const std::string& bytes : server.Received()) {
        lines.push_back(bytes.substr(0, bytes.find("\r\n")));
    }
    return lines;
}

// The profile's routing with every host at `host`:`port` and the given GET fallback list.
StrategyRouting LoopbackRouting(const std::string& host, uint16_t port,
                                const std::vector<std::string>& fallback) {
    StrategyRouting routing = DefaultRouting();
    routing.hosts.collectorHost = routing.hosts.strategyHost = routing.hosts.configHost = host;
    routing.hosts.collectorPort = routing.hosts.strategyPort = routing.hosts.configPort = port;
    routing.fallbackAddresses = fallback;
    return routing;
}

// One server per address, all on one port (a fallback attempt keeps the connection's port);
// empty when no port was free on every address in ten tries.
Servers StartOnOnePort(const std::vector<std::string>& addresses, HttpTestServer::Handler handler) {
    for (int round = 0; round < 10; ++round) {
        Servers servers;
        bool all = true;
        for (const std::string& address : addresses) {
            servers.push_back(std::make_unique<HttpTestServer>());
            all = all && servers.back()->Start(handler, address,
                                               servers.size() == 1 ? 0 : servers[0]->port());
        }
        if (all) {
            return servers;
        }
    }
    return {};
}

// The "EC=" counts of the requests that servers [first, first + count) saw, sorted.
std::vector<int> AttemptsSeen(const Servers& servers, size_t first, size_t count) {
    std::vector<int> attempts;
    for (size_t i = first; i < first + count; ++i) {
        for (const std::string& line : RequestLines(*servers[i])) {
            attempts.push_back(std::atoi(line.c_str() + line.find("EC=") + 3));
        }
    }
    std::sort(attempts.begin(), attempts.end());
    return attempts;
}

// A context and a started table with every host at kHost:`port`.
struct Engine {
    Engine(uint16_t port, const std::vector<std::string>& fallback, uint32_t timeoutMs = 1000)
        : context("vs-test-1"), table(&context) {
        context.GetStrategy().SetRoutingForTesting(LoopbackRouting(kHost, port, fallback));
        context.SetRequestTimeoutForTesting(timeoutMs);
        table.Start();
    }
    // cur, resume_report, succeed_report, fail_report, first_connect, retry, suc, fait, del.
    Counts Counters() {
        const ReportCounters c = context.GetStats().Peek();
        return {c.cur,   c.resume_report, c.succeed_report, c.fail_report, c.first_connect,
                c.retry, c.suc,           c.fait,           c.del};
    }
    void Post(uint16_t port, int64_t time = -1, int32_t priority = 0,
              const std::string& body = "&key=k&time=1") {
        table.Post(kHost, port,
                   {"/c.gif?act=zhwebevent&smkdata=0", priority, 0, body, "", "zhwebevent", 0, time,
                    false, false});
    }

    CReportContext context;
    CDispatchTable table;
};

// A record whose host answers 500 runs through five passes: two attempts on the host name and
// (when the list has addresses) two on fallback addresses, its count running across the passes.
// A record made more than seven days ago is given up when its first pass failed.
TEST(DispatchTableTest, AFailingRecordRunsThroughFivePassesUnlessItIsOlderThanSevenDays) {
    const std::vector<int> host = {1, 2, 5, 6, 9, 10, 13, 14, 17, 18};
    const std::vector<int> fallback = {3, 4, 7, 8, 11, 12, 15, 16, 19, 20};
    // Fallback list, age of the record, attempts on the host and on fallbacks, counters.
    for (const auto& [fallbacks, age, hostAttempts, fallbackAttempts, counts] :
         std::vector<std::tuple<std::vector<std::string>, int64_t, std::vector<int>,
                                std::vector<int>, Counts>>{
             {{"127.0.0.2", "127.0.0.3"}, 0, host, fallback, {1, 4, 0, 5, 1, 19, 0, 20, 1}},
             {{}, 0, host, {}, {1, 4, 0, 5, 1, 9, 0, 10, 1}},
             {{}, 8 * 86400, {1, 2}, {}, {1, 0, 0, 1, 1, 1, 0, 2, 1}}}) {
        SCOPED_TRACE(testing::Message() << fallbacks.size() << " fallbacks, age " << age);
        const Servers servers = StartOnOnePort({kHost, "127.0.0.2", "127.0.0.3"},
                                               HttpTestServer::Respond(Reply("500 Error")));
        ASSERT_FALSE(servers.empty());
        Engine engine(servers[0]->port(), fallbacks);

        engine.Post(servers[0]->port(), age == 0 ? -1 : port::Time64() - age);
        // Given up after its last attempt, whose request the server had read before replying.
        ASSERT_TRUE(WaitUntil([&] { return engine.context.GetStats().Peek().del == 1; }));
        EXPECT_EQ(AttemptsSeen(servers, 0, 1), hostAttempts);
        EXPECT_EQ(AttemptsSeen(servers, 1, 2), fallbackAttempts);
        EXPECT_EQ(engine.Counters(), counts);
        // The table gave the record an id; the context's version goes before the body.
        const std::string line = RequestLines(*servers[0]).front();
        const size_t idAt = std::string("GET /c.gif?act=zhwebevent&smkdata=0&EC=1&action=").size();
        EXPECT_EQ(line.find_first_not_of("0123456789abcdef", idAt), idAt + 32) << line;
        EXPECT_EQ(line.substr(0, idAt) + line.substr(idAt + 32),
                  "GET /c.gif?act=zhwebevent&smkdata=0&EC=1&action=&sdkver=vs-test-1&key=k&time=1 "
                  "HTTP/1.1");
    }
}

// A first record goes through. The collector holds the second while 25 more are queued and Stop
// begins: the quick quit goes ahead of them. The second record then fails its pass and goes back
// in pass 2 ahead of the rest (lower priority values first); the drain gives it up (it had its
// try), sends the 20 untried records of priority 1 and gives up the 5 of priority 2.
TEST(DispatchTableTest, StopSendsAtMostTwentyUntriedRecords) {
    std::atomic<bool> release{false};
    std::atomic<int> accepted{0};
    const Servers servers = StartOnOnePort({kHost}, [&](qz_test::TestConnection& connection) {
        connection.ReadRequest();
        const int index = accepted++;
        WaitUntil([&] { return index != 1 || release || connection.Stopping(); });
        connection.Send(Reply(index == 1 || index == 2 ? "500 Error" : "200 OK"));
        connection.CloseSending();
        connection.WaitForPeerClose();
    });
    ASSERT_FALSE(servers.empty());
    const uint16_t port = servers[0]->port();
    Engine engine(port, {}, 5000);

    engine.Post(port);
    engine.Post(port);
    ASSERT_TRUE(WaitUntil([&] { return accepted == 2; }));
    for (int i = 0; i < 25; ++i) {
        engine.Post(port, -1, i % 5 == 0 ? 2 : 1, i % 5 == 0 ? "&late" : "&key=k&time=1");
    }
    const auto dispatch = engine.table.GetDispatch(kHost, port);
    EXPECT_EQ(engine.table.QueuedCount(), 25u);
    std::thread stopper([&] { engine.table.Stop(); });
    // 25 record notifications and the quick quit.
    const bool quitPosted =
        WaitUntil([&] { return dispatch->GetQueue().PendingNotifications() == 26; });
    release = true;
    stopper.join();
    ASSERT_TRUE(quitPosted);

    std::vector<int> attempts(22, 1);
    attempts.push_back(2);
    EXPECT_EQ(AttemptsSeen(servers, 0, 1), attempts);
    for (const std::string& line : RequestLines(*servers[0])) {
        EXPECT_EQ(line.find("&late"), std::string::npos);
    }
    EXPECT_EQ(dispatch->GetQueue().Size(), 0u);
    EXPECT_TRUE(engine.table.DispatchKeysForTesting().empty());
    engine.Post(port);  // no longer running: dropped without a count
    EXPECT_EQ(engine.Counters(), (Counts{27, 1, 21, 1, 22, 1, 21, 2, 6}));
}

// The strategy comes the direct way: quiet, uncounted, without fallback. A served blob applies,
// and its keep-alive limit reaches the connections made before and after; a 404 changes nothing.
TEST_F(StrategyBlobTest, TheEngineFetchesTheStrategyAndPassesItsLimitToEveryConnection) {
    for (const bool served : {true, false}) {
        SCOPED_TRACE(served ? "served" : "404");
        const Servers servers = StartOnOnePort(
            {kHost, "127.0.0.2"},
            HttpTestServer::Respond(served ? Reply("200 OK", qz_test::ReadStrategyData("good.blob"))
                                           : Reply("404 Not Found")));
        ASSERT_FALSE(servers.empty());
        Engine engine(servers[0]->port(), {"127.0.0.2"});
        std::vector<std::shared_ptr<CReportDispatch>> dispatchers = {
            engine.table.GetDispatch("idle", 1), engine.table.GetDispatch("idle", 2)};
        std::atomic<bool> stopOldSdk{false};
        engine.context.GetStrategy().StartFetch(&stopOldSdk);
        engine.context.GetStrategy().Join();
        dispatchers.push_back(engine.table.GetDispatch("idle", deployment::kCollectorPort));

        EXPECT_EQ(AttemptsSeen(servers, 0, 2),
                  (served ? std::vector<int>{1} : std::vector<int>{1, 2}));
        EXPECT_EQ(engine.context.GetStrategy().GetFallbackList().Copy(),
                  (served ? qz_test::kGoodFallback : std::vector<std::string>{"127.0.0.2"}));
        EXPECT_EQ(stopOldSdk.load(), served);
        EXPECT_EQ(engine.Counters(), Counts(9, 0));
        // One dispatcher per key, the host alone on the profile's collector port, else host and
        // port; each with one sending thread of its own.
        EXPECT_EQ(engine.table.GetDispatch("idle", 1), dispatchers[0]);
        EXPECT_EQ(engine.table.DispatchKeysForTesting(),
                  (std::vector<std::string>{"idle", "idle1", "idle2"}));
        for (const auto& dispatch : dispatchers) {
            ASSERT_EQ(dispatch->GetConnections().size(), 1u);
            const auto& connection = dispatch->GetConnections().begin()->second;
            EXPECT_TRUE(WaitUntil(
                [&] { return connection->GetKeepAliveLimit() == (served ? 30000u : 60000u); }));
        }
    }
}

bool CalledLegacy(const std::string& name) {
    const std::vector<std::string> calls = qz_fake_legacy::Calls();
    return std::any_of(calls.begin(), calls.end(),
                       [&](const std::string& call) { return call.rfind(name + "(", 0) == 0; });
}

// The whole road of an event through the exports, the report object, the worker and the
// delivery engine to a loopback peer that serves the strategy and collects the records (a
// collector's reply body plays no part).
TEST(EndToEndTest, AnEventReachesTheCollectorSignedAndTheStrategyEndsTheLegacyCalls) {
    const bool blobsFit = qz_test::StrategyBlobsFit();
    HttpTestServer peer;
    ASSERT_TRUE(peer.Start(HttpTestServer::Respond(
        Reply("200 OK", blobsFit ? qz_test::ReadStrategyData("good.blob") : ""))));
    LegacyFunctions legacy = MakeLinkedLegacyFunctions();
    SetLegacyFunctionsForTesting(&legacy);
    qz_fake_legacy::Clear();
    ReportThreadImpl& worker = GetReportObject()->GetReportThread();
    worker.GetReportContext()->GetStrategy().SetRoutingForTesting(
        LoopbackRouting(kHost, peer.port(), {}));
    worker.SetCommonParams({{"mid", "ABC"}, {"pro", "demo"}});

    ASSERT_TRUE(Init(L"http://collector.test/", "D", "demo", 60000, nullptr, L"", 7, false));
    qzdata_report_kelvo::Run();
    EXPECT_TRUE(CalledLegacy("Run"));
    if (blobsFit) {
        // The good blob turns the switch on: the next export leaves the legacy library alone.
        ASSERT_TRUE(WaitUntil([] { return IsStopOldSdk(); }));
        qz_fake_legacy::Clear();
    }
    EXPECT_TRUE(SendCustomEvent("click", "a b", "", -1, false));
    EXPECT_EQ(CalledLegacy("SendCustomEvent"), !blobsFit);
    Exit(true, 5000);  // the worker stops the engine, whose drain sends what it holds
    SetLegacyFunctionsForTesting(nullptr);

    // GET <path>&EC=1&action=<id>&sdkver=<version>&key=<key>&time=<time>&<query> HTTP/1.1,
    // with key = MD5(action + time + salt). The hardware id is empty until the probes exist.
    const std::vector<std::string> lines = RequestLines(peer);
    const auto line = std::find_if(lines.begin(), lines.end(), [](const std::string& sent) {
        return sent.find("eid%3Dclick") != std::string::npos;
    });
    ASSERT_NE(line, lines.end());
    const size_t idAt = line->find("&action=") + 8, timeAt = line->find("&time=") + 6;
    const std::string id = line->substr(idAt, 32);
    const std::string time = line->substr(timeAt, line->find('&', timeAt) - timeAt);
    Md5Context key;
    key.Start("zhwebevent" + time + deployment::kRequestSalt);
    const std::string version = version::kSdkVersion;
    EXPECT_EQ(*line,
              "GET /c.gif?act=zhwebevent&smkdata=0&EC=1&action=" + id + "&sdkver=" + version +
                  "&key=" + key.HexDigest() + "&time=" + time +
                  "&kelvo_mid=&mid=ABC&pro=demo&extra=dty%3DD%26eid%3Dclick%26eid_desc%3Da%2Bb"
                  "%26sdk_ver%3D" +
                  version + "%26session_id%3D" + GetSessionId() + " HTTP/1.1");
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "GET /zhsdkinfo.php?ver=1&EC=1 HTTP/1.1"), 1);
}

}  // namespace
}  // namespace qzdata_report_kelvo
