// The cost of a report on the host's thread, beside a plain hand-over of the same record:
// building a map with the keys and values of the library's record and pushing it into a
// mutex-guarded deque that a consumer thread empties. Two calls are measured: SendCustomEvent
// (strings in, record handed over) and PostEventWithDur (C strings in, a duration, the Post
// path). The repetitions of the four
// benchmarks run interleaved in random order, so that a change of load on the machine falls on
// all of them alike. The figures are the host thread's CPU time per call: the median and the
// least of the repetitions.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bench_support.h"
#include "post/report_thread.h"
#include "qzdata_report.h"
#include "report/event_text.h"

namespace {

using qzdata_report_kelvo::ReportRecord;

// Reports vary from one to the next, as a host's do: ids and descriptions cycle through a few.
const std::vector<std::string> kEids = {"bench/click", "bench/scroll", "bench/open/file",
                                        "bench/close", "bench/menu/help"};
const std::vector<std::string> kDescs = {"Click on the main button", "Scrolled the list",
                                         "Opened a file", "Closed the window", "Asked for help"};
const int kDurations[] = {12, 250, 3100, 47, 980};
constexpr size_t kKinds = 5;
const char kDty[] = "pc";
const char kPro[] = "bench-product";

// Both sides hand this many reports over between two off-the-clock pauses, in which the
// library's worker (or the baseline's consumer) empties the queue.
constexpr size_t kBatch = 256;

qzbench::LoopbackCollector collector;

void StartLibraryOnce() {
    static const bool started = [] {
        // Records go to a loopback collector, so that none reaches a fixed port.
        if (collector.Start()) {
            qzbench::RouteLibraryTo(collector.Port());
        }
        qzbench::StartLibrary(0);
        return true;
    }();
    (void)started;
}

// Lets the worker empty its queue and end the turn that took the last posts, which is also the
// turn that returns them for reuse: every batch starts as a host's report does, with a queue the
// worker keeps up with and posts it has recycled.
void WaitForDrain() {
    // Spinning rather than sleeping: the host's thread stays on its core, as a busy host's does.
    while (qzbench::Worker().QueueLength() != 0) {
        std::this_thread::yield();
    }
    // A worker that went idle before this look makes no more turns; the time limit covers it.
    const uint64_t turn = qzbench::Worker().TurnsForTesting();
    const auto limit = std::chrono::steady_clock::now() + std::chrono::milliseconds(5);
    while (qzbench::Worker().TurnsForTesting() == turn &&
           std::chrono::steady_clock::now() < limit) {
        std::this_thread::yield();
    }
}

// Times `report(i)` for the i-th report; the worker drains concurrently while the batch runs
// and catches up off the clock after it.
template <class Report>
void LibraryLoop(benchmark::State& state, Report report) {
    StartLibraryOnce();
    WaitForDrain();
    size_t sent = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(report(sent % kKinds));
        if (++sent % kBatch == 0) {
            state.PauseTiming();
            WaitForDrain();
            state.ResumeTiming();
        }
    }
    WaitForDrain();
}

// The baseline's hand-over: a mutex-guarded deque that a consumer thread empties every
// millisecond, destroying the records on its own thread, as the library's worker takes its posts
// between its 1 ms pauses. The host is never asked to signal anyone.
class LockedDeque {
  public:
    LockedDeque() : consumer([this] { Consume(); }) {}
    ~LockedDeque() {
        stopping = true;
        consumer.join();
    }
    // The producer's side: one thread.
    void Push(ReportRecord&& record) {
        ++pushed;
        std::lock_guard<std::mutex> guard(mutex);
        queue.push_back(std::move(record));
    }
    // Returns once the consumer has taken everything pushed and destroyed it. Producer only.
    void WaitForDrain() {
        while (destroyed.load(std::memory_order_acquire) != pushed) {
            std::this_thread::yield();
        }
    }

  private:
    void Consume() {
        std::deque<ReportRecord> taken;
        while (!stopping) {
            {
                std::lock_guard<std::mutex> guard(mutex);
                taken.swap(queue);
            }
            const size_t count = taken.size();
            taken.clear();
            destroyed.store(destroyed.load(std::memory_order_relaxed) + count,
                            std::memory_order_release);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    std::mutex mutex;
    std::deque<ReportRecord> queue;    // guarded by mutex
    size_t pushed = 0;                 // producer only
    std::atomic<size_t> destroyed{0};  // written by the consumer only
    std::atomic<bool> stopping{false};
    std::thread consumer;  // last: starts once the rest exists
};

// Times building `build(i)`'s record and pushing it into the locked deque; the consumer drains
// concurrently and catches up off the clock after each batch, as the worker does for the library.
template <class Build>
void BaselineLoop(benchmark::State& state, Build build) {
    StartLibraryOnce();
    LockedDeque queue;
    size_t sent = 0;
    for (auto _ : state) {
        queue.Push(build(sent % kKinds));
        if (++sent % kBatch == 0) {
            state.PauseTiming();
            queue.WaitForDrain();
            state.ResumeTiming();
        }
    }
    queue.WaitForDrain();
}

// The keys every event record of the library has, with the same values.
void AddEventKeys(ReportRecord& record, const std::string& session) {
    record.emplace("act", "zhwebevent");
    record.emplace("session_id", session);
    record.emplace("dty", kDty);
    record.emplace("pro", kPro);
}

void BM_SendCustomEvent(benchmark::State& state) {
    LibraryLoop(state, [](size_t which) {
        return qzdata_report_kelvo::SendCustomEvent(kEids[which], kDescs[which], "", -1, true);
    });
}

void BM_SendCustomEventBaseline(benchmark::State& state) {
    const std::string session = qzdata_report_kelvo::GetSessionId();
    BaselineLoop(state, [&](size_t which) {
        ReportRecord record;
        AddEventKeys(record, session);
        record.emplace("eid", kEids[which]);
        record.emplace("eid_desc", kDescs[which]);
        record.emplace("ati", qzdata_report_kelvo::FormatEventTime());
        return record;
    });
}

void BM_PostEventWithDur(benchmark::State& state) {
    LibraryLoop(state, [](size_t which) {
        return qzdata_report_kelvo::PostEventWithDur(kEids[which].c_str(), kDurations[which],
                                                     kDescs[which].c_str());
    });
}

void BM_PostEventWithDurBaseline(benchmark::State& state) {
    const std::string session = qzdata_report_kelvo::GetSessionId();
    BaselineLoop(state, [&](size_t which) {
        const char* eid = kEids[which].c_str();
        const char* desc = kDescs[which].c_str();
        ReportRecord record;
        AddEventKeys(record, session);
        record.emplace("eid", eid);
        record.emplace("eid_desc", desc);
        record.emplace("dur", std::to_string(kDurations[which]));
        record.emplace("ati", qzdata_report_kelvo::FormatEventTime());
        return record;
    });
}

// A fixed count: the records go on to the delivery engine, which holds what its collector has
// not taken yet, so an open-ended run would only measure memory growth.
constexpr int kIterations = static_cast<int>(kBatch) * 16;
constexpr int kRepetitions = 21;
double Min(const std::vector<double>& values) {
    return values.empty() ? 0.0 : *std::min_element(values.begin(), values.end());
}
void Configure(benchmark::internal::Benchmark* benchmark) {
    benchmark->Iterations(kIterations)->Repetitions(kRepetitions)->ComputeStatistics("min", Min);
}
BENCHMARK(BM_SendCustomEvent)->Apply(Configure);
BENCHMARK(BM_SendCustomEventBaseline)->Apply(Configure);
BENCHMARK(BM_PostEventWithDur)->Apply(Configure);
BENCHMARK(BM_PostEventWithDurBaseline)->Apply(Configure);

// Prints as the console does, and keeps the median and the least CPU time of each benchmark
// under a metric name: "<short name>_ns" and "<short name>_min_ns".
class TimeReporter : public benchmark::ConsoleReporter {
  public:
    TimeReporter() : ConsoleReporter(OO_Tabular) {}
    void ReportRuns(const std::vector<Run>& runs) override {
        static const std::map<std::string, std::string> kShortNames = {
            {"BM_SendCustomEvent", "send_custom"},
            {"BM_SendCustomEventBaseline", "send_custom_baseline"},
            {"BM_PostEventWithDur", "post_dur"},
            {"BM_PostEventWithDurBaseline", "post_dur_baseline"},
        };
        for (const Run& run : runs) {
            auto name = kShortNames.find(run.run_name.function_name);
            if (name == kShortNames.end()) {
                continue;
            }
            if (run.aggregate_name == "median") {
                times[name->second + "_ns"] = run.GetAdjustedCPUTime();
            } else if (run.aggregate_name == "min") {
                times[name->second + "_min_ns"] = run.GetAdjustedCPUTime();
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, double> times;
};

}  // namespace

int main(int argc, char** argv) {
    // Defaults that flags on the command line may override: only the aggregates, and the
    // repetitions of all benchmarks interleaved.
    std::vector<char*> args(argv, argv + argc);
    char aggregatesOnly[] = "--benchmark_report_aggregates_only=true";
    char interleave[] = "--benchmark_enable_random_interleaving=true";
    args.insert(args.begin() + 1, {aggregatesOnly, interleave});
    int count = static_cast<int>(args.size());
    benchmark::Initialize(&count, args.data());
    TimeReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::map<std::string, double>& times = reporter.times;
    for (const auto& [name, nanoseconds] : times) {
        qzbench::PrintMetric(name.c_str(), nanoseconds);
    }
    // Each call against its baseline as measured side by side in this process.
    for (const std::string call : {"send_custom", "post_dur"}) {
        for (const std::string statistic : {"", "_min"}) {
            const double baseline = times[call + "_baseline" + statistic + "_ns"];
            if (baseline > 0) {
                qzbench::PrintMetric((call + statistic + "_ratio").c_str(),
                                     times[call + statistic + "_ns"] / baseline);
            }
        }
    }
    qzdata_report_kelvo::Exit(false, 1000);
    return 0;
}
