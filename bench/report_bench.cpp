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

#include "port/clock.h"
#include "qzdata_report.h"
#include "report/event_text.h"
#include "report/report_object.h"

namespace {

using qzdata_report_kelvo::ReportRecord;

const std::string kEid = "bench/click";
const std::string kDesc = "Click on the main button";
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
    while (worker.QueueLengthForTesting() != 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

void BM_SendCustomEvent(benchmark::State& state) {
    StartLibraryOnce();
    WaitForDrain();
    size_t sent = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(qzdata_report_kelvo::SendCustomEvent(kEid, kDesc, "", -1, true));
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
    for (auto _ : state) {
        ReportRecord record;
        record.emplace("act", "zhwebevent");
        record.emplace("session_id", session);
        record.emplace("dty", dty);
        record.emplace("pro", pro);
        record.emplace("eid", kEid);
        record.emplace("eid_desc", kDesc);
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

BENCHMARK(BM_SendCustomEvent)->Repetitions(15)->ReportAggregatesOnly(true);
BENCHMARK(BM_MapIntoLockedDeque)->Repetitions(15)->ReportAggregatesOnly(true);

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
