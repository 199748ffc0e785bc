// The library under load: many host threads against a fast collector, and Exit with a full
// queue and a collector that takes no record.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "delivery/report_context.h"
#include "qzdata_report.h"
#include "report/report_object.h"
#include "strategy/strategy.h"
#include "support/http_test_server.h"
#include "support/test_platform.h"
#include "support/wait.h"

namespace qzdata_report_kelvo {

// Every role on the loopback `port`, no fallback addresses; the not-sent test uses it too.
void RouteEverythingTo(uint16_t port) {
    const std::string ip = "127.0.0.1";
    StrategyRouting routing;
    routing.hosts = {ip, ip, ip, ip, ip, ip, port, port, port};
    GetReportObject()->GetReportThread().GetReportContext()->GetStrategy().SetRoutingForTesting(
        routing);
}

namespace {

// The bound of one host call in microseconds of CPU: a few times its benchmark figure.
constexpr double kCallBoundUs = QZ_TEST_SANITIZED ? 400.0 : 20.0;
// Sanitizers and Wine slow the library many times over: fewer events and rounds there.
constexpr bool kSlowRun = QZ_TEST_SANITIZED || QZ_TEST_EMULATED;

// Eight host threads report 2 000 events each (500 under Wine): the collector sees every record
// exactly once (by its action GUID), the calls stay cheap, and what the library took on under load
// it gives back.
TEST(LoadTest, EightHostThreadsDeliverEveryRecordOnceAndMemoryReturns) {
    constexpr int kThreads = 8, kPerThread = QZ_TEST_EMULATED ? 500 : 2000;
    constexpr size_t kTotal = kThreads * kPerThread + 1;  // with the warm-up event
    std::vector<std::array<char, 32>> ids;                // reserved up front: no growth under load
    ids.reserve(kTotal + 16);
    std::mutex mutex;
    std::atomic<size_t> received{0};
    qz_test::HttpTestServer collector;
    collector.SetRecording(false);
    ASSERT_TRUE(collector.Start([&](qz_test::TestConnection& connection) {
        for (std::string request; !(request = connection.ReadRequest(10000)).empty();) {
            const size_t at = request.find("&action=");
            if (at != std::string::npos && request.size() >= at + 40) {
                std::lock_guard<std::mutex> guard(mutex);
                std::memcpy(ids.emplace_back().data(), request.data() + at + 8, 32);
                ++received;
            }
            if (!connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"))
                return;
        }
    }));
    RouteEverythingTo(collector.port());
    ASSERT_TRUE(Init(L"http://c/", "D", "load", 600000, nullptr, L"", 0, false));
    qzdata_report_kelvo::Run();
    SendCustomEvent("warm-up", "", "", -1, false);
    ASSERT_TRUE(qz_test::WaitUntil([&] { return received == 1; }));
    const size_t heapBefore = qz_test::HeapInUse();
    std::vector<double> meanCallUs(kThreads);
    std::vector<std::thread> hosts;
    for (int t = 0; t < kThreads; ++t) {
        hosts.emplace_back([t, &meanCallUs] {
            const double start = qz_test::ThreadCpuMicros();
            for (int i = 0; i < kPerThread; ++i)
                SendCustomEvent("load", "", "", i, false);
            meanCallUs[t] = (qz_test::ThreadCpuMicros() - start) / kPerThread;
        });
    }
    for (std::thread& host : hosts)
        host.join();
    EXPECT_TRUE(qz_test::WaitUntil([&] { return received >= kTotal; }, 110000));
    // Late duplicates would come in right behind the last record.
    EXPECT_FALSE(qz_test::WaitUntil([&] { return received > kTotal; }, 200));
    // The collector's threads and buffers go first, so that what remains is the library's.
    collector.Stop();
    ASSERT_TRUE(qz_test::WaitUntil(
        [] { return GetReportObject()->GetReportThread().QueuedPosts().empty(); }));
    const size_t heapAfter = qz_test::HeapInUse();
    Exit(true, 3000);
    std::sort(ids.begin(), ids.end());
    const size_t distinct = std::unique(ids.begin(), ids.end()) - ids.begin();
    const double slowestMeanUs = *std::max_element(meanCallUs.begin(), meanCallUs.end());
    std::printf(
        "sent %zu, received %zu, duplicates %zu, lost %zu; slowest thread's mean call "
        "%.2f us; heap in use %zu -> %zu bytes\n",
        kTotal, received.load(), received - distinct, kTotal - distinct, slowestMeanUs, heapBefore,
        heapAfter);
    EXPECT_EQ(received, kTotal);
    EXPECT_EQ(distinct, kTotal);
    EXPECT_LT(slowestMeanUs, kCallBoundUs);
    // The queues and buffers that grew with the load keep only their bounded spares.
    EXPECT_LT(heapAfter, heapBefore + (1u << 20));
}

// Exit with 10 000 records queued and a collector that takes none keeps its time-out, round after
// round; every record reached the engine and was given up. The collector resets each connection
// once its request is in: on Windows a port that nobody holds costs each connect its time-out.
TEST(LoadTest, ExitWithTenThousandQueuedAndTheCollectorDownKeepsItsTimeOut) {
    constexpr int kRounds = kSlowRun ? 10 : 100, kRecords = 10000;
    qz_test::HttpTestServer down;
    ASSERT_TRUE(down.Start([](qz_test::TestConnection& peer) {
        if (!peer.ReadRequest(2000).empty())
            peer.Reset();
    }));
    for (int round = 0; round < kRounds; ++round) {
        ResetReportObjectForTesting();
        RouteEverythingTo(down.port());
        ASSERT_TRUE(Init(L"http://c/", "D", "load", 60000, nullptr, L"", 7, false));
        qzdata_report_kelvo::Run();
        for (int i = 0; i < kRecords; ++i)
            SendCustomEvent("queued", "", "", i, false);
        const auto start = std::chrono::steady_clock::now();
        Exit(true, 3000);
        ASSERT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(3500))
            << "round " << round;
        const ReportCounters counts =
            GetReportObject()->GetReportThread().GetReportContext()->GetStats().Peek();
        EXPECT_EQ(counts.cur, kRecords + 3u);  // with startup, heartbeat and endup
        EXPECT_EQ(counts.del, counts.cur);     // every record given up, none sent
    }
}

}  // namespace
}  // namespace qzdata_report_kelvo
