// Measures that need a process of their own: a host that starts the library once and then
// idles, queues records for a collector that is down, or waits for its first record.
//
//   qz_bench_host idle [--without-library]   CPU share and private memory of an idle host
//   qz_bench_host queued <records>            private memory per record held for delivery
//   qz_bench_host first-record                milliseconds from Run to the first record
//
// QZ_BENCH_IDLE_SECONDS changes the idle measure's 10 s.
// Results go to standard output as "metric" lines; per-thread details of the idle host go to
// standard error.
#include <dirent.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <thread>

#include "bench_support.h"
#include "delivery/dispatch_table.h"
#include "post/report_thread.h"
#include "qzdata_report.h"

namespace {

using namespace std::chrono_literals;
using qzbench::Clock;

// The event mask bit of the "startup" record, which Run sends.
constexpr unsigned long kStartupEvent = 1;

// The session information a desktop host gives right after Init.
void PostSessionInfo() {
    qzdata_report_kelvo::SessionInfo info;
    info.channel = "bench";
    info.run_source = "desktop";
    info.iver = "1.0.0";
    info.tzuid = "bench-user";
    qzdata_report_kelvo::PostSessionInfo(info);
}

struct ThreadTimes {
    double cpuSeconds = 0;
    long wakeups = 0;  // voluntary context switches
};

// Run time and wake-ups of each thread of this process, by thread id.
std::map<int, ThreadTimes> ReadThreadTimes() {
    std::map<int, ThreadTimes> threads;
    DIR* tasks = opendir("/proc/self/task");
    if (tasks == nullptr) {
        return threads;
    }
    while (const dirent* entry = readdir(tasks)) {
        const int tid = std::atoi(entry->d_name);
        if (tid <= 0) {
            continue;
        }
        const std::string dir = std::string("/proc/self/task/") + entry->d_name;
        ThreadTimes& times = threads[tid];
        unsigned long long runNs = 0;
        if (std::ifstream(dir + "/schedstat") >> runNs) {
            times.cpuSeconds = static_cast<double>(runNs) * 1e-9;
        }
        std::ifstream status(dir + "/status");
        std::string key;
        while (status >> key) {
            if (key == "voluntary_ctxt_switches:") {
                status >> times.wakeups;
                break;
            }
            status.ignore(1 << 16, '\n');
        }
    }
    closedir(tasks);
    return threads;
}

// With the library: Init, session information and Run, then waits until the start-up traffic
// (machine id, "startup" record, strategy fetch) has settled. Then measures CPU time over
// `seconds` of idling, and reads the private memory at the end. Without the library, the same
// process does the same minus the library's calls.
int Idle(bool withLibrary, double seconds) {
    qzbench::LoopbackCollector collector;
    if (!collector.Start()) {
        return 1;
    }
    if (withLibrary) {
        qzbench::RouteLibraryTo(collector.Port());
        qzbench::InitLibrary(kStartupEvent);
        PostSessionInfo();
        qzdata_report_kelvo::Run();
        const bool settled = qzbench::WaitFor(
            [&] {
                return collector.Records() >= 1 && !qzdata_report_kelvo::TryGetMachineId().empty();
            },
            10s);
        if (!settled) {
            std::fprintf(stderr, "the library did not settle within 10 s\n");
        }
    }
    std::this_thread::sleep_for(2s);

    const std::map<int, ThreadTimes> threadsBefore = ReadThreadTimes();
    const double cpuBefore = qzbench::ProcessCpuSeconds();
    const Clock::time_point start = Clock::now();
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    const double cpu = qzbench::ProcessCpuSeconds() - cpuBefore;
    const double wall = std::chrono::duration<double>(Clock::now() - start).count();
    const std::map<int, ThreadTimes> threadsAfter = ReadThreadTimes();

    for (const auto& [tid, after] : threadsAfter) {
        auto before = threadsBefore.find(tid);
        const ThreadTimes base = before == threadsBefore.end() ? ThreadTimes() : before->second;
        std::fprintf(stderr, "thread %d: %.3f%% of a core, %.0f wake-ups/s\n", tid,
                     100.0 * (after.cpuSeconds - base.cpuSeconds) / wall,
                     static_cast<double>(after.wakeups - base.wakeups) / wall);
    }
    const char* suffix = withLibrary ? "" : "_without_library";
    qzbench::PrintMetric((std::string("idle_cpu_percent") + suffix).c_str(), 100.0 * cpu / wall);
    qzbench::PrintMetric((std::string("rss_anon_kib") + suffix).c_str(),
                         static_cast<double>(qzbench::RssAnonKiB()));
    if (withLibrary) {
        qzdata_report_kelvo::Exit(false, 1000);
    }
    return 0;
}

// Learns the wire size of one record from a live collector, stops the collector, then queues
// `count` records of the same kind and compares the private memory before and after, once the
// worker has handed them all to the delivery engine.
int Queued(long count) {
    qzbench::LoopbackCollector collector;
    if (count <= 0 || !collector.Start()) {
        return 1;
    }
    qzbench::RouteLibraryTo(collector.Port());
    qzbench::StartLibrary(0);
    auto report = [](long i) {
        static const char* const kEids[] = {"bench/click", "bench/scroll", "bench/open/file"};
        return qzdata_report_kelvo::SendCustomEvent(kEids[i % 3], "Click on the main button", "",
                                                    -1, true);
    };
    report(0);
    if (!qzbench::WaitFor([&] { return collector.Records() >= 1; }, 10s)) {
        std::fprintf(stderr, "no record reached the collector\n");
        return 1;
    }
    collector.Stop();
    std::this_thread::sleep_for(500ms);

    // In groups that the worker takes one by one, as it takes a host's reports: what stays is
    // what the delivery engine holds per record, not the worker's buffers for one large burst.
    constexpr long kGroup = 100;
    const long before = qzbench::RssAnonKiB();
    for (long i = 0; i < count; ++i) {
        report(i);
        if ((i + 1) % kGroup == 0) {
            qzbench::WaitFor([] { return qzbench::Worker().QueueLength() == 0; }, 10s);
        }
    }
    qzbench::WaitFor([] { return qzbench::Worker().QueueLength() == 0; }, 10s);
    // The worker's last turn ends after the queue looks empty.
    std::this_thread::sleep_for(100ms);
    const long after = qzbench::RssAnonKiB();
    const size_t held = qzbench::Worker().GetDispatchTable()->QueuedCount();
    std::fprintf(stderr,
                 "%ld records queued, %zu held by the delivery engine, RssAnon %ld -> %ld KiB\n",
                 count, held, before, after);
    qzbench::PrintMetric("queued_bytes_per_record",
                         static_cast<double>(after - before) * 1024.0 / static_cast<double>(count));
    qzbench::PrintMetric("record_wire_bytes", static_cast<double>(collector.LastRecordBytes()));
    qzdata_report_kelvo::Exit(false, 1000);
    return 0;
}

// Init with the "startup" event, then the time from the call of Run to the arrival of the first
// record at the collector.
int FirstRecord() {
    qzbench::LoopbackCollector collector;
    if (!collector.Start()) {
        return 1;
    }
    qzbench::RouteLibraryTo(collector.Port());
    qzbench::InitLibrary(kStartupEvent);
    const Clock::time_point start = Clock::now();
    qzdata_report_kelvo::Run();
    if (!qzbench::WaitFor([&] { return collector.Records() >= 1; }, 30s)) {
        std::fprintf(stderr, "no record reached the collector within 30 s\n");
        return 1;
    }
    qzbench::PrintMetric(
        "first_record_ms",
        std::chrono::duration<double, std::milli>(collector.FirstRecordTime() - start).count());
    qzdata_report_kelvo::Exit(false, 1000);
    return 0;
}

int Usage() {
    std::fprintf(stderr,
                 "usage: qz_bench_host idle [--without-library] | queued <records> | "
                 "first-record\n");
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string command = argc > 1 ? argv[1] : "";
    if (command == "idle" && argc <= 3) {
        const bool without = argc == 3 && std::strcmp(argv[2], "--without-library") == 0;
        if (argc == 3 && !without) {
            return Usage();
        }
        const char* seconds = std::getenv("QZ_BENCH_IDLE_SECONDS");
        return Idle(!without, seconds != nullptr ? std::atof(seconds) : 10.0);
    }
    if (command == "queued" && argc == 3) {
        return Queued(std::atol(argv[2]));
    }
    if (command == "first-record" && argc == 2) {
        return FirstRecord();
    }
    return Usage();
}
