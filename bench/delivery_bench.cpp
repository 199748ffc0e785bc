// Records per second from SendCustomEvent to a loopback collector that answers 200 at once,
// beside the bound that the three 1 ms pauses of each record set (after sending, after
// receiving, and the sending loop's own): about 333 records per second.
#include <benchmark/benchmark.h>

#include <chrono>
#include <thread>

#include "bench_support.h"
#include "delivery/report_context.h"
#include "port/env.h"
#include "port/sleep_precision.h"
#include "post/report_thread.h"
#include "qzdata_report.h"

namespace {

using qzdata_report_kelvo::CReportContext;

constexpr int kRecordsPerIteration = 300;
constexpr double kPausesPerRecordMs = 3.0;
constexpr double kBoundPerSecond = 1000.0 / kPausesPerRecordMs;

qzbench::LoopbackCollector collector;

CReportContext& Context() {
    return *qzbench::Worker().GetReportContext();
}

uint64_t Delivered() {
    return Context().GetStats().Peek().succeed_report;
}

bool StartLibraryOnce() {
    static const bool started = [] {
        if (!collector.Start()) {
            return false;
        }
        qzbench::RouteLibraryTo(collector.Port());
        qzbench::StartLibrary(0);
        return true;
    }();
    return started;
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
        qzbench::WaitFor([&] { return Delivered() >= before + kRecordsPerIteration; },
                         std::chrono::seconds(60));
        const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
        state.SetIterationTime(seconds.count());
        totalSeconds += seconds.count();
        totalRecords += static_cast<double>(Delivered() - before);
    }
    state.counters["records_per_second"] = benchmark::Counter(
        static_cast<double>(kRecordsPerIteration) * static_cast<double>(state.iterations()),
        benchmark::Counter::kIsRate);
    state.counters["bound_per_second"] = kBoundPerSecond;
    state.counters["failed"] =
        static_cast<double>(Context().GetStats().Peek().fail_report - failedBefore);
}

// How long one of those 1 ms pauses lasts here, slept as a sending thread sleeps it: whatever
// it adds to 1 ms lowers the rate that the pauses allow.
double PauseAsSleptMs() {
    constexpr int kPauses = 300;
    double milliseconds = 0;
    std::thread([&] {
        qzdata_report_kelvo::port::RequestPreciseSleeps();
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < kPauses; ++i) {
            qzdata_report_kelvo::port::Sleep(1);
        }
        milliseconds =
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
                .count() /
            kPauses;
    }).join();
    return milliseconds;
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
        qzbench::PrintMetric("delivery_per_second", totalRecords / totalSeconds);
        qzbench::PrintMetric("delivery_bound_per_second", kBoundPerSecond);
    }
    qzbench::PrintMetric("sleep_1ms_as_slept_ms", PauseAsSleptMs());
    qzdata_report_kelvo::Exit(false, 5000);
    return 0;
}
