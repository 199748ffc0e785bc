// Long runs that the test suite cannot afford, run by tools/soak.sh:
//
//   qz_soak burst THREADS EVENTS
//     THREADS host threads report EVENTS events each against a loopback collector; every record
//     must arrive, and the library must leave no file open after Exit.
//   qz_soak steady MINUTES RATE FLAP_SECONDS
//     heartbeats every 5 s and RATE events a second for MINUTES, against a collector that goes
//     down and comes back every FLAP_SECONDS; private memory and open files are sampled each
//     minute and must be flat at the end.
//
// Both print one line per sample and end with "soak: passed" or "soak: FAILED (...)".
#include <dirent.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "bench_support.h"
#include "qzdata_report.h"

namespace {

namespace qr = qzdata_report_kelvo;
using qzbench::Clock;

// What a flat run may grow by: the allocator's arenas settle within this.
constexpr long kFlatKiB = 1024;

int OpenFiles() {
    int count = 0;
    if (DIR* dir = opendir("/proc/self/fd")) {
        while (readdir(dir) != nullptr) {
            ++count;
        }
        closedir(dir);
    }
    return count - 3;  // ".", ".." and the directory's own descriptor
}

int Verdict(const std::string& failures) {
    std::printf("soak: %s\n", failures.empty() ? "passed" : ("FAILED (" + failures + ")").c_str());
    return failures.empty() ? 0 : 1;
}

int Burst(int threads, int events) {
    qzbench::LoopbackCollector collector;
    if (!collector.Start()) {
        return Verdict("no collector");
    }
    qzbench::RouteLibraryTo(collector.Port());
    const int filesBefore = OpenFiles();
    qzbench::StartLibrary(0);
    const long rssBefore = qzbench::RssAnonKiB();
    const Clock::time_point start = Clock::now();
    std::vector<std::thread> hosts;
    for (int t = 0; t < threads; ++t) {
        hosts.emplace_back([events] {
            for (int i = 0; i < events; ++i) {
                qr::SendCustomEvent("soak", "", "", i, false);
            }
        });
    }
    for (std::thread& host : hosts) {
        host.join();
    }
    const uint64_t sent = static_cast<uint64_t>(threads) * static_cast<uint64_t>(events);
    // The bound: the delivery pace of about 333 records a second, with half again for slack.
    const auto limit = std::chrono::milliseconds(sent * 3 * 3 / 2 + 60000);
    qzbench::WaitFor([&] { return collector.Records() >= sent; }, limit);
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    const uint64_t received = collector.Records();
    std::this_thread::sleep_for(std::chrono::seconds(1));  // the drained backlog is given back
    const long rssAfter = qzbench::RssAnonKiB();
    qr::Exit(true, 3000);
    const int filesAfter = OpenFiles();  // the library's sockets and files closed with Exit
    std::printf(
        "sent %llu, received %llu, lost %lld in %.0f s (%.0f records/s); RssAnon %ld -> "
        "%ld KiB, open files %d -> %d\n",
        static_cast<unsigned long long>(sent), static_cast<unsigned long long>(received),
        static_cast<long long>(sent) - static_cast<long long>(received), seconds,
        received / seconds, rssBefore, rssAfter, filesBefore, filesAfter);
    std::string failures;
    if (received != sent) {
        failures += "records lost or doubled; ";
    }
    if (filesAfter != filesBefore) {
        failures += "open files grew; ";
    }
    return Verdict(failures);
}

int Steady(int minutes, int rate, int flapSeconds) {
    qzbench::LoopbackCollector collector;
    if (!collector.Start()) {
        return Verdict("no collector");
    }
    const uint16_t port = collector.Port();
    qzbench::RouteLibraryTo(port);
    if (!qr::Init(L"http://127.0.0.1/c.gif", "pc", "soak", 5000, nullptr, L"", 7, false)) {
        return Verdict("Init refused");
    }
    qr::Run();
    std::atomic<bool> done{false};
    std::thread host([&] {
        const auto pause = std::chrono::microseconds(1000000 / std::max(rate, 1));
        for (int i = 0; !done; ++i) {
            qr::SendCustomEvent("soak", "", "", i, false);
            std::this_thread::sleep_for(pause);
        }
    });
    std::vector<long> rss;
    std::vector<int> files;
    bool up = true;
    const Clock::time_point start = Clock::now();
    Clock::time_point nextFlap = start + std::chrono::seconds(flapSeconds);
    for (int minute = 1; minute <= minutes; ++minute) {
        const Clock::time_point sample = start + std::chrono::minutes(minute);
        while (Clock::now() < sample) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            if (Clock::now() >= nextFlap) {
                up ? collector.Stop() : static_cast<void>(collector.Start(port));
                up = !up;
                nextFlap += std::chrono::seconds(flapSeconds);
            }
        }
        rss.push_back(qzbench::RssAnonKiB());
        files.push_back(OpenFiles());
        std::printf("minute %3d: received %8llu, RssAnon %6ld KiB, open files %3d, collector %s\n",
                    minute, static_cast<unsigned long long>(collector.Records()), rss.back(),
                    files.back(), up ? "up" : "down");
        std::fflush(stdout);
    }
    done = true;
    host.join();
    qr::Exit(true, 3000);
    // The first minutes fill the allocator and the buffers; from the second on the run is flat.
    const size_t settled = std::min<size_t>(1, rss.size() - 1);
    std::string failures;
    if (rss.back() > rss[settled] + kFlatKiB) {
        failures += "private memory grew; ";
    }
    if (files.back() > files[settled]) {
        failures += "open files grew; ";
    }
    return Verdict(failures);
}

}  // namespace

int main(int argc, char** argv) {
    const std::string mode = argc > 1 ? argv[1] : "";
    const auto number = [&](int index, int fallback) {
        return argc > index ? std::atoi(argv[index]) : fallback;
    };
    if (mode == "burst") {
        return Burst(number(2, 8), number(3, 100000));
    }
    if (mode == "steady" && number(2, 60) > 0) {
        return Steady(number(2, 60), number(3, 20), number(4, 180));
    }
    std::fprintf(stderr, "usage: %s burst [THREADS EVENTS] | steady [MINUTES RATE FLAP_SECONDS]\n",
                 argv[0]);
    return 2;
}
