// The delivery engine: request targets, daily counters, the dispatch table, faults of the peer.
#include <gmock/gmock.h>

#include <algorithm>

#include "delivery/dispatch_table.h"
#include "delivery/report_connect.h"
#include "delivery/report_context.h"
#include "net/lookup.h"
#include "port/env.h"
#include "support/http_test_server.h"
#include "support/strategy_blobs.h"
#include "support/wait.h"

namespace qzdata_report_kelvo {

// An answer with its Content-Length; the self-reporting tests use it too.
std::string Reply(const std::string& status, const std::string& body = "") {
    return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\n\r\n" + body;
}

namespace {

using namespace qz_test;  // NOLINT: the servers, waits and blobs of the test support
using Counts = std::vector<uint64_t>;

const std::string kHost = "127.0.0.1";
const std::string kId = "0123456789abcdef0123456789abcdef";

CConnectData Request(const std::string& path, const std::string& body, int32_t retry,
                     int32_t type = 0, bool base64 = false, const std::string& item = "act") {
    return {path, 0, type, body, retry > 0 ? kId : "", item, retry, -1, base64, false};
}

TEST(BuildTargetTest, Rules) {
    const std::string a = "&action=" + kId;
    // clang-format off
    for (const auto& [data, attempt, ver, target] :
         std::vector<std::tuple<CConnectData, int32_t, std::string, std::string>>{
        // Direct requests (pass 0): the attempt alone, no action, no body.
        {Request("/zhsdkinfo.php?ver=1", "&x=1", 0), 2, "v", "/zhsdkinfo.php?ver=1&EC=2"},
        {Request("/x", "", 0), 1, "v", "/x?EC=1"},
        {Request("c.gif?a=1", "", 0), 3, "v", "/c.gif?a=1&EC=3"},
        // Records: the count runs across passes; the body follows the version.
        {Request("/c?a=1", "&key=k&q=1", 3), 4, "v", "/c?a=1&EC=12" + a + "&sdkver=v&key=k&q=1"},
        {Request("/c?a=1", "q=1", 1), 1, "v", "/c?a=1&EC=1" + a + "&sdkver=v&q=1"},
        {Request("/c?a=1", "&q=1&sdkver=m", 1), 1, "v", "/c?a=1&EC=1" + a + "&q=1&sdkver=m"},
        {Request("/c?a=1", "&q=1", 1, 0, true), 1, "", "/c?a=1&EC=1&enc=b64" + a + "&q=1"},
        {Request("/c?a=1", "", 1, 0, true), 1, "", "/c?a=1&EC=1" + a},
        // POST: the body is the content; the target names the item.
        {Request("/c?a=1", "&q=1", 1, 1), 1, "v", "/c?a=1&EC=1" + a + "&sdkver=v&item=act"},
        {Request("/c?a=1", "&q=1", 2, 1, false, ""), 2, "v", "/c?a=1&EC=6" + a + "&sdkver=v"}}) {
        // clang-format on
        EXPECT_EQ(CReportConnect::BuildTarget(data, attempt, ver), target);
    }
}

// Counters are per local day: a new day's first snapshot reports the old day and resets.
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

// Servers on `addresses`, all on one port (none if no port was free in ten tries), and a started
// table with every host at the first.
struct Engine {
    Engine(const std::vector<std::string>& addresses, const std::vector<std::string>& fallback,
           uint32_t timeoutMs, const HttpTestServer::Handler& handler)
        : context("vs-test-1"), table(&context) {
        for (int round = 0; round < 10 && servers.size() < addresses.size(); ++round) {
            servers.clear();
            for (size_t i = 0; i < addresses.size() && servers.size() == i; ++i) {
                servers.push_back(std::make_unique<HttpTestServer>());
                if (!servers.back()->Start(handler, addresses[i], Port()))
                    servers.pop_back();
            }
        }
        StrategyRouting routing = DefaultRouting();
        routing.hosts.collectorHost = routing.hosts.strategyHost = routing.hosts.configHost = kHost;
        routing.hosts.collectorPort = routing.hosts.strategyPort = routing.hosts.configPort =
            Port();
        routing.fallbackAddresses = fallback;
        context.GetStrategy().SetRoutingForTesting(routing);
        context.SetRequestTimeoutForTesting(timeoutMs);
        table.Start();
    }
    uint16_t Port() const { return servers.empty() ? 0 : servers[0]->port(); }
    // The sorted "EC=" counts that servers [first, first + count) saw.
    std::vector<int> Attempts(size_t first, size_t count) const {
        std::vector<int> attempts;
        for (size_t i = first; i < first + count; ++i) {
            for (const std::string& request : servers[i]->Received())
                attempts.push_back(std::stoi(request.substr(request.find("EC=") + 3)));
        }
        std::sort(attempts.begin(), attempts.end());
        return attempts;
    }
    // cur, resume_report, succeed_report, fail_report, first_connect, retry, suc, fait, del.
    Counts Counters() {
        const ReportCounters c = context.GetStats().Peek();
        return {c.cur,   c.resume_report, c.succeed_report, c.fail_report, c.first_connect,
                c.retry, c.suc,           c.fait,           c.del};
    }
    void Post(int64_t time = -1, int32_t priority = 0, const std::string& body = "&key=k") {
        table.Post(kHost, Port(),
                   {"/c.gif?act=zhwebevent&smkdata=0", priority, 0, body, "", "zhwebevent", 0, time,
                    false, false});
    }
    std::vector<std::unique_ptr<HttpTestServer>> servers;
    CReportContext context;
    CDispatchTable table;
};

// The collector holds the 2nd record while 25 more queue and Stop begins; the quick quit goes
// first, the drain gives up the tried 2nd, sends 20 untried records of priority 1, drops the rest.
TEST(DispatchTableTest, StopSendsAtMostTwentyUntriedRecords) {
    std::atomic<bool> release{false};
    std::atomic<int> accepted{0};
    Engine engine({kHost}, {}, 5000, [&](TestConnection& peer) {
        const int index = accepted++;
        WaitUntil([&] { return index != 1 || release || peer.Stopping(); });
        HttpTestServer::Respond(Reply(index == 1 || index == 2 ? "500 Error" : "200 OK"))(peer);
    });
    ASSERT_EQ(engine.servers.size(), 1u);
    engine.Post();
    engine.Post();
    ASSERT_TRUE(WaitUntil([&] { return accepted == 2; }));
    for (int i = 0; i < 25; ++i)
        engine.Post(-1, i % 5 == 0 ? 2 : 1, i % 5 == 0 ? "&late" : "&key=k");
    const auto dispatch = engine.table.GetDispatch(kHost, engine.Port());  // 25 records + quit
    std::thread stopper([&] { engine.table.Stop(); });
    const bool quit = WaitUntil([&] { return dispatch->GetQueue().PendingNotifications() == 26; });
    release = true;
    stopper.join();
    ASSERT_TRUE(quit);
    EXPECT_THAT(engine.servers[0]->Received(),
                testing::Each(testing::Not(testing::HasSubstr("&late"))));
    engine.Post();  // no longer running: dropped without a count
    EXPECT_EQ(engine.Counters(), (Counts{27, 1, 21, 1, 22, 1, 21, 2, 6}));
}

// Peers that fail each in their own way, against a 2000 ms time-out, with a record older than seven
// days: it runs one pass, two attempts on the host. A new record answered 500 runs five passes of
// two attempts on the host and two on fallbacks (if any), counted across passes.
TEST(FaultTest, EachPeerFaultGivesItsRequestsAndCounters) {
    using Handler = HttpTestServer::Handler;
    // Reads the request; after `ms` answers, or with `cut` breaks the answer off with a reset.
    const auto answer = [](int ms, bool cut = false) -> Handler {
        return [=](TestConnection& peer) {
            if (!peer.ReadRequest().empty() && !WaitUntil([&] { return peer.Stopping(); }, ms) &&
                peer.Send(cut ? "HTTP/1.1 200 OK\r\nContent-Len" : Reply("200 OK"))) {
                cut ? peer.Reset() : peer.WaitForPeerClose(3000);
            }
        };
    };
    const Counts failedPass{1, 0, 0, 1, 1, 1, 0, 2, 1}, sent{1, 0, 1, 0, 1, 0, 1, 0, 0};
    const Handler error = HttpTestServer::Respond(Reply("500 Error"));
    const std::vector<int> passes{1, 2, 5, 6, 9, 10, 13, 14, 17, 18}, none,
        onFallbacks{3, 4, 7, 8, 11, 12, 15, 16, 19, 20};
    const Counts withFallbacks{1, 4, 0, 5, 1, 19, 0, 20, 1};
    const std::vector<std::string> fallbacks{"127.0.0.2", "127.0.0.3"};
    // name, peer (null: nothing listens), new record, fallbacks, "EC=" counts the host and the
    // fallbacks saw, counters
    const std::vector<std::tuple<std::string, Handler, bool, std::vector<std::string>,
                                 std::vector<int>, std::vector<int>, Counts>>
        cases = {
            {"refused", nullptr, false, {}, none, none, failedPass},
            {"never answers", HttpTestServer::Silent(), false, {}, {1, 2}, none, failedPass},
            {"reset mid-response", answer(0, true), false, {}, {1, 2}, none, failedPass},
            {"500", error, false, {}, {1, 2}, none, failedPass},
            {"answers after 2.1 s", answer(2100), false, {}, {1, 2}, none, failedPass},
            {"answers after 1.9 s", answer(1900), false, {}, {1}, none, sent},
            {"500, new", error, true, {}, passes, none, {1, 4, 0, 5, 1, 9, 0, 10, 1}},
            {"500, new, fallbacks", error, true, fallbacks, passes, onFallbacks, withFallbacks},
        };
    // The cases wait on the clock, so they run side by side. A loaded machine can push the 1.9 s
    // answer past the bound, so that case alone may be tried three times.
    std::vector<std::thread> runs;
    for (const auto& run : cases) {
        runs.emplace_back([&run, &sent] {
            const auto& [name, handler, fresh, hosts, attempts, fallbackAttempts, counts] = run;
            SCOPED_TRACE(name);
            for (int tries = counts == sent ? 3 : 1; tries > 0; --tries) {
                Engine engine({kHost, "127.0.0.2", "127.0.0.3"}, hosts, 2000,
                              handler ? handler : HttpTestServer::Silent());
                ASSERT_EQ(engine.servers.size(), 3u);
                if (!handler)
                    engine.servers[0]->Stop();
                engine.Post(fresh ? -1 : port::Time64() - 8 * 86400);
                // Given up (del) or sent (succeed_report).
                EXPECT_TRUE(WaitUntil(
                    [&] { return engine.Counters()[8] + engine.Counters()[2] == 1; }, 10000));
                engine.table.Stop();
                if (engine.Counters() == counts || tries == 1) {
                    EXPECT_EQ(engine.Attempts(0, 1), attempts);
                    EXPECT_EQ(engine.Attempts(1, 2), fallbackAttempts);
                    EXPECT_EQ(engine.Counters(), counts);
                    break;
                }
            }
        });
    }
    for (std::thread& run : runs)
        run.join();
}

// A record made while the collector is down uses up its five passes and is given up; once the
// collector is back on its port, the next record goes through at the first attempt. (On Windows
// a connect to a closed port fails only at the time-out, kept short here.)
TEST(FaultTest, TheCollectorComingBackTakesTheNextRecord) {
    Engine engine({kHost}, {}, 300, HttpTestServer::Respond(Reply("200 OK")));
    ASSERT_EQ(engine.servers.size(), 1u);
    const uint16_t port = engine.Port();
    engine.servers[0]->Stop();
    engine.Post();
    ASSERT_TRUE(WaitUntil([&] { return engine.context.GetStats().Peek().del == 1; }, 20000));
    EXPECT_EQ(engine.Counters(), (Counts{1, 4, 0, 5, 1, 9, 0, 10, 1}));
    HttpTestServer back;
    ASSERT_TRUE(back.Start(HttpTestServer::Respond(Reply("200 OK")), kHost, port));
    engine.Post();
    ASSERT_TRUE(WaitUntil([&] { return engine.context.GetStats().Peek().succeed_report == 1; }));
    EXPECT_EQ(engine.Counters(), (Counts{2, 4, 1, 5, 2, 9, 1, 10, 1}));
    EXPECT_THAT(
        back.Received(),
        testing::ElementsAre(testing::StartsWith("GET /c.gif?act=zhwebevent&smkdata=0&EC=1&")));
}

// A resolver that hangs: each attempt gives up at the time-out, so the record runs its one pass
// and no request reaches the collector; the hung look-ups end once the resolver answers.
TEST(FaultTest, AHangingResolverCostsEachAttemptItsTimeOut) {
    const auto hung = std::make_shared<std::atomic<int>>(0);
    const auto released = std::make_shared<std::atomic<bool>>(false);
    net::SetDefaultResolverForTesting([hung, released](const std::string& host,
                                                       const std::string& service,
                                                       port::AddrInfo** list) {
        ++*hung;
        WaitUntil([&] { return released->load(); }, 60000);
        --*hung;
        return port::ResolveStream(host, service, list);
    });
    Engine engine({kHost}, {}, 300, HttpTestServer::Respond(Reply("200 OK")));
    const auto start = std::chrono::steady_clock::now();
    engine.Post(port::Time64() - 8 * 86400);
    const bool given = WaitUntil([&] { return engine.context.GetStats().Peek().del == 1; });
    net::SetDefaultResolverForTesting(nullptr);
    *released = *hung > 0;
    ASSERT_TRUE(given && *released && engine.servers.size() == 1);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(2 * 300));
    EXPECT_EQ(engine.Counters(), (Counts{1, 0, 0, 1, 1, 1, 0, 2, 1}));
    EXPECT_TRUE(engine.servers[0]->Received().empty());
    EXPECT_TRUE(WaitUntil([&] { return *hung == 0; }));
}

// The strategy comes direct, uncounted; a served blob's keep-alive limit reaches every
// connection, made before or after; a 404 changes nothing.
TEST_F(StrategyBlobTest, TheEngineFetchesTheStrategyAndPassesItsLimitToEveryConnection) {
    for (const bool served : {true, false}) {
        SCOPED_TRACE(served ? "served" : "404");
        Engine engine({kHost, "127.0.0.2"}, {"127.0.0.2"}, 1000,
                      HttpTestServer::Respond(Reply(served ? "200 OK" : "404 Not Found",
                                                    served ? ReadStrategyData("good.blob") : "")));
        ASSERT_EQ(engine.servers.size(), 2u);
        engine.table.GetDispatch("idle", 1);  // before the fetch; the others after it
        std::atomic<bool> stopOldSdk{false};
        engine.context.GetStrategy().StartFetch(&stopOldSdk);
        engine.context.GetStrategy().Join();
        EXPECT_EQ(engine.Attempts(0, 2), (served ? std::vector<int>{1} : std::vector<int>{1, 2}));
        EXPECT_EQ(stopOldSdk.load(), served);
        EXPECT_EQ(engine.Counters(), Counts(9, 0));
        // One dispatcher and sending thread per key: the host alone on the collector port.
        const uint32_t limit = served ? 30000 : 60000;
        for (const uint16_t port : std::vector<uint16_t>{1, 2, deployment::kCollectorPort}) {
            const auto& threads = engine.table.GetDispatch("idle", port)->GetConnections();
            ASSERT_EQ(threads.size(), 1u);
            EXPECT_TRUE(
                WaitUntil([&] { return threads.begin()->second->GetKeepAliveLimit() == limit; }));
        }
        EXPECT_EQ(engine.table.DispatchKeysForTesting(),
                  (std::vector<std::string>{"idle", "idle1", "idle2"}));
    }
}

}  // namespace
}  // namespace qzdata_report_kelvo
