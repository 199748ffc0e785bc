// The library under load: many host threads against a fast collector, and Exit with a full
// queue and no collector.
#include <gtest/gtest.h>
#include <malloc.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "delivery/report_context.h"
#include "qzdata_report.h"
#include "report/report_object.h"
#include "strategy/strategy.h"
#include "support/http_test_server.h"
#include "support/wait.h"

namespace qzdata_report_kelvo {
namespace {

// The bound of one host call in microseconds of CPU: a few times its benchmark figure.
constexpr double kCallBoundUs = QZ_TEST_SANITIZED ? 400.0 : 20.0;

// A loopback port that nothing listens on: connections to it are refused at once.
uint16_t ClosedPort() {
    const int probe = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    bind(probe, reinterpret_cast<sockaddr*>(&address), size);
    getsockname(probe, reinterpret_cast<sockaddr*>(&address), &size);
    close(probe);
    return ntohs(address.sin_port);
}

void RouteEverythingTo(uint16_t port) {
    StrategyRouting routing;  // every role on `port`; no fallback addresses
    const std::string ip = "127.0.0.1";
    routing.hosts = {ip, ip, ip, ip, ip, ip, port, port, port};
    GetReportObject()->GetReportThread().GetReportContext()->GetStrategy().SetRoutingForTesting(
        routing);
}

// Heap bytes the allocator has handed out and not got back: what the library keeps, apart from
// pages the allocator holds on to.
size_t HeapInUse() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

// CPU time of the calling thread: the cost of its calls without the time other threads ran.
double ThreadCpuUs() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return now.tv_sec * 1e6 + now.tv_nsec / 1e3;
}

long RssAnonKiB() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("RssAnon:", 0) == 0) {
            return std::stol(line.substr(8));
        }
    }
    return -1;
}

// A collector that answers at once and keeps only the record id of each request.
struct CountingCollector {
    static constexpr size_t kIdSize = 32;
    explicit CountingCollector(size_t expected) { ids.reserve(expected + 16); }
    bool Start() {
        server.SetRecording(false);
        return server.Start([this](qz_test::TestConnection& connection) {
            for (std::string request; !(request = connection.ReadRequest(10000)).empty();) {
                const size_t at = request.find("&action=");
                if (at != std::string::npos && request.size() >= at + 8 + kIdSize) {
                    std::array<char, kIdSize> id;
                    std::memcpy(id.data(), request.data() + at + 8, kIdSize);
                    std::lock_guard<std::mutex> guard(mutex);
                    ids.push_back(id);
                }
                if (!connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n")) {
                    return;
                }
            }
        });
    }
    size_t Count() {
        std::lock_guard<std::mutex> guard(mutex);
        return ids.size();
    }
    size_t Distinct() {
        std::lock_guard<std::mutex> guard(mutex);
        std::vector<std::array<char, kIdSize>> sorted = ids;
        std::sort(sorted.begin(), sorted.end());
        return static_cast<size_t>(std::unique(sorted.begin(), sorted.end()) - sorted.begin());
    }

    qz_test::HttpTestServer server;
    std::mutex mutex;
    std::vector<std::array<char, kIdSize>> ids;  // reserved up front: no growth under load
};

// Eight host threads report 2 000 events each: every record arrives exactly once, the calls stay
// cheap, and what the library took on during the load it gives back after the drain.
TEST(LoadTest, EightHostThreadsDeliverEveryRecordOnceAndMemoryReturns) {
    constexpr int kThreads = 8;
    constexpr int kPerThread = 2000;
    constexpr size_t kTotal = kThreads * kPerThread + 1;  // with the warm-up event
    CountingCollector collector(kTotal);
    ASSERT_TRUE(collector.Start());
    RouteEverythingTo(collector.server.port());
    ASSERT_TRUE(Init(L"http://c/", "D", "load", 600000, nullptr, L"", 0, false));
    qzdata_report_kelvo::Run();
    SendCustomEvent("warm-up", "", "", -1, false);
    ASSERT_TRUE(qz_test::WaitUntil([&] { return collector.Count() == 1; }));
    const size_t heapBefore = HeapInUse();
    const long rssBefore = RssAnonKiB();

    std::vector<double> meanCallUs(kThreads);
    std::vector<std::thread> hosts;
    for (int t = 0; t < kThreads; ++t) {
        hosts.emplace_back([t, &meanCallUs] {
            const double start = ThreadCpuUs();
            for (int i = 0; i < kPerThread; ++i) {
                SendCustomEvent("load", "", "", i, false);
            }
            meanCallUs[t] = (ThreadCpuUs() - start) / kPerThread;
        });
    }
    for (std::thread& host : hosts) {
        host.join();
    }
    EXPECT_TRUE(qz_test::WaitUntil([&] { return collector.Count() >= kTotal; }, 110000));
    // Late duplicates would come in right behind the last record.
    EXPECT_FALSE(qz_test::WaitUntil([&] { return collector.Count() > kTotal; }, 200));
    // The collector's threads and buffers go first, so that what remains is the library's.
    collector.server.Stop();
    ASSERT_TRUE(qz_test::WaitUntil(
        [] { return GetReportObject()->GetReportThread().QueuedPosts().empty(); }));
    const size_t heapAfter = HeapInUse();
    const long rssAfter = RssAnonKiB();
    Exit(true, 3000);

    const size_t received = collector.Count(), distinct = collector.Distinct();
    const double slowestMeanUs = *std::max_element(meanCallUs.begin(), meanCallUs.end());
    std::printf(
        "sent %zu, received %zu, duplicates %zu, lost %zu; slowest thread's mean call "
        "%.2f us; heap in use %zu -> %zu bytes, RssAnon %ld -> %ld KiB\n",
        kTotal, received, received - distinct, kTotal - distinct, slowestMeanUs, heapBefore,
        heapAfter, rssBefore, rssAfter);
    EXPECT_EQ(received, kTotal);
    EXPECT_EQ(distinct, kTotal);
    EXPECT_LT(slowestMeanUs, kCallBoundUs);
    // The queues and buffers that grew with the load keep only their bounded spares.
    EXPECT_LT(heapAfter, heapBefore + (1u << 20));
}

TEST(LoadTest, ExitWithTenThousandQueuedAndTheCollectorDownKeepsItsTimeOut) {
    constexpr int kRounds = QZ_TEST_SANITIZED ? 10 : 100;
    constexpr int kRecords = 10000;
    constexpr auto kBound = std::chrono::milliseconds(3000 + 500);
    const uint16_t port = ClosedPort();
    auto slowest = std::chrono::steady_clock::duration::zero();
    for (int round = 0; round < kRounds; ++round) {
        ResetReportObjectForTesting();
        RouteEverythingTo(port);
        ASSERT_TRUE(Init(L"http://c/", "D", "load", 60000, nullptr, L"", 7, false));
        qzdata_report_kelvo::Run();
        for (int i = 0; i < kRecords; ++i) {
            SendCustomEvent("queued", "", "", i, false);
        }
        const auto start = std::chrono::steady_clock::now();
        Exit(true, 3000);
        const auto took = std::chrono::steady_clock::now() - start;
        slowest = std::max(slowest, took);
        ASSERT_LT(took, kBound) << "round " << round;
        const ReportCounters counts =
            GetReportObject()->GetReportThread().GetReportContext()->GetStats().Peek();
        // Every record reached the engine and was given up; none was lost on the way.
        EXPECT_EQ(counts.cur, kRecords + 3u);  // with startup, heartbeat and endup
        EXPECT_EQ(counts.del, counts.cur);
        EXPECT_EQ(counts.succeed_report, 0u);
    }
    std::printf("slowest Exit of %d: %lld ms\n", kRounds,
                static_cast<long long>(
                    std::chrono::duration_cast<std::chrono::milliseconds>(slowest).count()));
}

}  // namespace
}  // namespace qzdata_report_kelvo
