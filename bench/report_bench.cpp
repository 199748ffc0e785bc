// The cost of a report on the host's thread, beside the least a queue hand-over can cost:
// building the same seven-key map and pushing it into a mutex-guarded deque. Run with
// repetitions; the medians and their ratio are printed at the end.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "port/env.h"
#include "qzdata_report.h"
#include "report/event_text.h"
#include "report/report_object.h"

namespace {

using qzdata_report_kelvo::ReportRecord;

// Reports vary from one to the next, as a host's do: ids and descriptions cycle through a few.
const std::vector<std::string> kEids = {"bench/click", "bench/scroll", "bench/open/file",
                                        "bench/close", "bench/menu/help"};
const std::vector<std::string> kDescs = {"Click on the main button", "Scrolled the list",
                                         "Opened a file", "Closed the window", "Asked for help"};
// Both sides hand this many reports over between two off-the-clock pauses.
constexpr size_t kBatch = 256;

void StartLibraryOnce() {
    static const bool started = [] {
        qzdata_report_kelvo::Init(L"http://collector.test/c.gif", "pc", "bench-product", 60000,
                                  nullptr, L"", 0, false);
        qzdata_report_kelvo::Run();
        return true;
    }();
    (void)started;
}

// Lets the worker empty its queue outside the timed loop, so repetitions start alike.
void WaitForDrain() {
    auto& worker = qzdata_report_kelvo::GetReportObject()->GetReportThread();
    // Spinning rather than sleeping: the host's thread stays on its core, as a busy host's does.
    while (worker.QueueLength() != 0) {
        std::this_thread::yield();
    }
}

void BM_SendCustomEvent(benchmark::State& state) {
    StartLibraryOnce();
    WaitForDrain();
    size_t sent = 0;
    for (auto _ : state) {
        const size_t which = sent % kEids.size();
        benchmark::DoNotOptimize(
            qzdata_report_kelvo::SendCustomEvent(kEids[which], kDescs[which], "", -1, true));
        // A host reports far more slowly than a loop can: the worker keeps up with it. Letting
        // the worker catch up off the clock keeps the two sides in that state.
        if (++sent % kBatch == 0) {
            state.PauseTiming();
            WaitForDrain();
            state.ResumeTiming();
        }
    }
    WaitForDrain();
}

void BM_MapIntoLockedDeque(benchmark::State& state) {
    StartLibraryOnce();
    const std::string session = qzdata_report_kelvo::GetSessionId();
    const std::string dty = "pc";
    const std::string pro = "bench-product";
    const std::string ati = qzdata_report_kelvo::FormatEventTime();
    std::mutex mutex;
    std::deque<ReportRecord> queue;
    size_t sent = 0;
    for (auto _ : state) {
        const size_t which = sent++ % kEids.size();
        ReportRecord record;
        record.emplace("act", "zhwebevent");
        record.emplace("session_id", session);
        record.emplace("dty", dty);
        record.emplace("pro", pro);
        record.emplace("eid", kEids[which]);
        record.emplace("eid_desc", kDescs[which]);
        record.emplace("ati", ati);
        {
            std::lock_guard<std::mutex> guard(mutex);
            queue.push_back(std::move(record));
        }
        // The consumer's part, off the clock, as the worker's is for the library.
        if (queue.size() == kBatch) {
            state.PauseTiming();
            queue.clear();
            state.ResumeTiming();
        }
    }
    benchmark::DoNotOptimize(queue.size());
}

// A fixed count: every record goes on to the delivery engine, which keeps what its collector
// does not take, so an open-ended run would only measure memory growth.
constexpr int kIterations = static_cast<int>(kBatch) * 64;
BENCHMARK(BM_SendCustomEvent)->Iterations(kIterations)->Repetitions(15)->ReportAggregatesOnly(true);
BENCHMARK(BM_MapIntoLockedDeque)
    ->Iterations(kIterations)
    ->Repetitions(15)
    ->ReportAggregatesOnly(true);

// Prints as the console does, and keeps the median time of each benchmark.
class MedianReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.aggregate_name == "median") {
                (run.benchmark_name().find("SendCustomEvent") != std::string::npos ? send
                                                                                   : baseline) =
                    run.GetAdjustedCPUTime();
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }
    double send = 0;
    double baseline = 0;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    MedianReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    if (reporter.send > 0 && reporter.baseline > 0) {
        std::printf("median SendCustomEvent %.1f ns, median baseline %.1f ns, ratio %.2f\n",
                    reporter.send, reporter.baseline, reporter.send / reporter.baseline);
    }
    qzdata_report_kelvo::Exit(false, 1000);
    return 0;
}
