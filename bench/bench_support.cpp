#include "bench_support.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "delivery/report_context.h"
#include "post/report_thread.h"
#include "qzdata_report.h"
#include "report/report_object.h"
#include "strategy/strategy.h"

namespace qzbench {

namespace {

// A loopback socket bound to `port` (0: one the system picks, stored into `port`), listening
// when `listening`; -1 on failure.
int BindLoopback(bool listening, uint16_t& port) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    // A collector started again on its port must not wait for the old connections to expire.
    const int on = 1;
    if (fd >= 0 && listening) {
        setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    }
    socklen_t size = sizeof(address);
    if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        (listening && listen(fd, 64) != 0) ||
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        if (fd >= 0) {
            close(fd);
        }
        return -1;
    }
    port = ntohs(address.sin_port);
    return fd;
}

}  // namespace

bool LoopbackCollector::Start(uint16_t onPort) {
    port = onPort;
    stopping = false;
    listener = BindLoopback(true, port);
    if (listener < 0) {
        return false;
    }
    thread = std::thread([this] { Serve(); });
    return true;
}

void LoopbackCollector::Stop() {
    if (listener < 0) {
        return;
    }
    stopping = true;
    // Wakes the accept of the serving thread.
    shutdown(listener, SHUT_RDWR);
    thread.join();
    close(listener);
    listener = -1;
}

void LoopbackCollector::Serve() {
    static const char kReply[] = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";
    static const std::string kRecordTarget = " /c.gif?";
    std::string request;
    char buffer[4096];
    while (!stopping) {
        const int connection = accept(listener, nullptr, nullptr);
        if (connection < 0) {
            continue;
        }
        request.clear();
        // The library's records are GET requests: the headers end the request.
        while (request.find("\r\n\r\n") == std::string::npos) {
            const ssize_t count = recv(connection, buffer, sizeof(buffer), 0);
            if (count <= 0) {
                break;
            }
            request.append(buffer, static_cast<size_t>(count));
        }
        send(connection, kReply, sizeof(kReply) - 1, MSG_NOSIGNAL);
        close(connection);
        const size_t method = request.find(' ');
        if (method != std::string::npos &&
            request.compare(method, kRecordTarget.size(), kRecordTarget) == 0) {
            if (records.load(std::memory_order_relaxed) == 0) {
                firstRecord = Clock::now();
            }
            lastRecordBytes.store(request.size(), std::memory_order_relaxed);
            records.fetch_add(1, std::memory_order_release);
        }
    }
}

uint16_t RefusingPort() {
    static uint16_t port = 0;
    static const int fd = BindLoopback(false, port);
    return fd < 0 ? 0 : port;
}

qzdata_report_kelvo::ReportThreadImpl& Worker() {
    return qzdata_report_kelvo::GetReportObject()->GetReportThread();
}

void RouteLibraryTo(uint16_t port) {
    qzdata_report_kelvo::StrategyRouting routing = qzdata_report_kelvo::DefaultRouting();
    routing.hosts.collectorHost = routing.hosts.strategyHost = routing.hosts.configHost =
        "127.0.0.1";
    routing.hosts.collectorPort = routing.hosts.strategyPort = port;
    routing.hosts.configPort = RefusingPort();
    routing.fallbackAddresses.clear();
    routing.postFallbackAddresses.clear();
    routing.strategyFallbackAddresses.clear();
    routing.configFallbackAddresses.clear();
    routing.spareFallbackAddresses.clear();
    Worker().GetReportContext()->GetStrategy().SetRoutingForTesting(routing);
}

void InitLibrary(unsigned long eventMask) {
    qzdata_report_kelvo::Init(L"http://collector.test/c.gif", "pc", "bench-product", 60000, nullptr,
                              L"", eventMask, false);
}

void StartLibrary(unsigned long eventMask) {
    InitLibrary(eventMask);
    qzdata_report_kelvo::Run();
}

long RssAnonKiB() {
    std::ifstream status("/proc/self/status");
    std::string key;
    long value = 0;
    while (status >> key) {
        if (key == "RssAnon:" && status >> value) {
            return value;
        }
        status.ignore(1 << 16, '\n');
    }
    return -1;
}

double ProcessCpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void PrintMetric(const char* name, double value) {
    std::printf("metric %s %.6g\n", name, value);
    std::fflush(stdout);
}

}  // namespace qzbench
