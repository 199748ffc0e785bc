// Records per second from SendCustomEvent to a loopback collector that answers 200 at once,
// beside the bound that the three 1 ms pauses of each record set (after sending, after
// receiving, and the sending loop's own): about 333 records per second.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

#include "delivery/report_context.h"
#include "qzdata_report.h"
#include "report/report_object.h"
#include "strategy/strategy.h"

namespace {

using qzdata_report_kelvo::CReportContext;

constexpr int kRecordsPerIteration = 300;
constexpr double kPausesPerRecordMs = 3.0;
constexpr double kBoundPerSecond = 1000.0 / kPausesPerRecordMs;

// A collector that costs as little as a peer can: one thread, one connection at a time, each
// request answered with a bare 200 and closed.
class Collector {
  public:
    bool Start() {
        listener = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof(address);
        if (listener < 0 || bind(listener, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
            listen(listener, 64) != 0 ||
            getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
            return false;
        }
        port = ntohs(address.sin_port);
        thread = std::thread([this] { Serve(); });
        return true;
    }
    void Stop() {
        stopping = true;
        shutdown(listener, SHUT_RDWR);
        if (thread.joinable()) {
            thread.join();
        }
        close(listener);
    }
    uint16_t port = 0;

  private:
    void Serve() {
        static const char kReply[] = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";
        while (!stopping) {
            const int connection = accept(listener, nullptr, nullptr);
            if (connection < 0) {
                continue;
            }
            std::string request;
            char buffer[2048];
            while (request.find("\r\n\r\n") == std::string::npos) {
                const ssize_t count = recv(connection, buffer, sizeof(buffer), 0);
                if (count <= 0) {
                    break;
                }
                request.append(buffer, static_cast<size_t>(count));
            }
            send(connection, kReply, sizeof(kReply) - 1, MSG_NOSIGNAL);
            close(connection);
        }
    }

    int listener = -1;
    std::atomic<bool> stopping{false};
    std::thread thread;
};

Collector collector;

CReportContext& Context() {
    return *qzdata_report_kelvo::GetReportObject()->GetReportThread().GetReportContext();
}

uint64_t Delivered() {
    return Context().GetStats().Peek().succeed_report;
}

// Points the library at the collector (also as the strategy host, which then finds no blob)
// and starts it.
bool StartLibraryOnce() {
    static const bool started = [] {
        if (!collector.Start()) {
            return false;
        }
        qzdata_report_kelvo::StrategyRouting routing = qzdata_report_kelvo::DefaultRouting();
        routing.hosts.collectorHost = routing.hosts.strategyHost = "127.0.0.1";
        routing.hosts.collectorPort = routing.hosts.strategyPort = collector.port;
        routing.fallbackAddresses.clear();
        Context().GetStrategy().SetRoutingForTesting(routing);
        qzdata_report_kelvo::Init(L"http://collector.test/c.gif", "pc", "bench-product", 60000,
                                  nullptr, L"", 0, false);
        qzdata_report_kelvo::Run();
        return true;
    }();
    return started;
}

void WaitForDelivered(uint64_t count) {
    while (Delivered() < count) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

double totalSeconds = 0;
double totalRecords = 0;

void BM_DeliverToLoopbackCollector(benchmark::State& state) {
    if (!StartLibraryOnce()) {
        state.SkipWithError("no loopback collector");
        return;
    }
    const uint64_t failedBefore = Context().GetStats().Peek().fail_report;
    for (auto _ : state) {
        const uint64_t before = Delivered();
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < kRecordsPerIteration; ++i) {
            qzdata_report_kelvo::SendCustomEvent("bench/click", "Click", "", -1, false);
        }
        WaitForDelivered(before + kRecordsPerIteration);
        const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
        state.SetIterationTime(seconds.count());
        totalSeconds += seconds.count();
        totalRecords += kRecordsPerIteration;
    }
    state.counters["records_per_second"] = benchmark::Counter(
        static_cast<double>(kRecordsPerIteration) * static_cast<double>(state.iterations()),
        benchmark::Counter::kIsRate);
    state.counters["bound_per_second"] = kBoundPerSecond;
    state.counters["failed"] =
        static_cast<double>(Context().GetStats().Peek().fail_report - failedBefore);
}

BENCHMARK(BM_DeliverToLoopbackCollector)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    if (totalSeconds > 0) {
        const double rate = totalRecords / totalSeconds;
        std::printf("%.1f records/s delivered, bound %.1f records/s (three 1 ms pauses), %.0f%%\n",
                    rate, kBoundPerSecond, 100.0 * rate / kBoundPerSecond);
    }
    qzdata_report_kelvo::Exit(false, 5000);
    collector.Stop();
    return 0;
}
