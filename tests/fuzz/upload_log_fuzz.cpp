// Self-reporting's log lines, from any text an earlier run (or a damaged disk) left:
//  - TakeField walks a line field by field: the fields it hands out, joined by tabs, give the
//    line back (a trailing tab aside), and the query grows only by fields that are not empty;
//  - UploadLine with a collector that accepts everything never asks to keep a line;
//  - UploadFile of a file held by no writer sends at most one request per line and, with such
//    a collector, always deletes the file;
//  - whatever the line holds, every request has a well-formed request line (no field reaches
//    it unescaped).
// The collector is a loopback server in this process. The clock stands at 1700000000, so seed
// lines with that time are recent.
//
// Input: one byte (bit 0: failure log, bit 1: TakeField checks the age of its field), then the
// text.
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "delivery/report_context.h"
#include "delivery/upload_log.h"
#include "fuzz_support.h"
#include "port/env.h"

namespace {

using qzdata_report_kelvo::CReportContext;
using qzdata_report_kelvo::CUploadLog;

constexpr int64_t kNow = 1700000000;

// A fixed calendar clock; the pause between uploaded lines is skipped to keep the rate up.
class FuzzEnv : public qzdata_report_kelvo::port::EnvWrapper {
  public:
    int64_t Time64() override { return kNow; }
    void Sleep(uint32_t milliseconds) override {
        if (milliseconds > 1) {
            EnvWrapper::Sleep(milliseconds);
        }
    }
};

// Answers every request on 127.0.0.1 with 200 and closes the connection.
class AcceptingCollector {
  public:
    bool Start() {
        listener = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof(address);
        if (listener < 0 ||
            bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
            listen(listener, 16) != 0 ||
            getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
            return false;
        }
        port = ntohs(address.sin_port);
        std::thread([this] { Serve(); }).detach();
        return true;
    }
    uint16_t port = 0;
    std::atomic<uint64_t> requests{0};
    std::atomic<uint64_t> malformed{0};  // requests whose first line is no valid request line

  private:
    // "GET" or "POST", one blank, a target of visible ASCII, one blank, "HTTP/1.1".
    static bool WellFormedRequestLine(const std::string& line) {
        const size_t first = line.find(' ');
        const size_t last = line.rfind(' ');
        if (first == std::string::npos || first == last ||
            line.compare(last, std::string::npos, " HTTP/1.1") != 0) {
            return false;
        }
        const std::string method = line.substr(0, first);
        for (size_t i = first + 1; i < last; ++i) {
            const auto c = static_cast<unsigned char>(line[i]);
            if (c <= 0x20 || c >= 0x7F) {
                return false;
            }
        }
        return (method == "GET" || method == "POST") && last > first + 1;
    }

    void Serve() {
        for (;;) {
            const int connection = accept(listener, nullptr, nullptr);
            if (connection < 0) {
                continue;
            }
            std::string request;
            char buffer[4096];
            size_t end = std::string::npos;
            size_t needed = 0;
            for (;;) {
                if (end == std::string::npos &&
                    (end = request.find("\r\n\r\n")) != std::string::npos) {
                    const size_t field = request.find("\r\nContent-Length: ");
                    const size_t body = field != std::string::npos && field < end
                                            ? std::strtoul(request.c_str() + field + 18, nullptr, 10)
                                            : 0;
                    needed = end + 4 + body;
                }
                if (end != std::string::npos && request.size() >= needed) {
                    break;
                }
                const ssize_t count = read(connection, buffer, sizeof(buffer));
                if (count <= 0) {
                    break;
                }
                request.append(buffer, static_cast<size_t>(count));
            }
            if (end != std::string::npos) {
                ++requests;
                malformed += !WellFormedRequestLine(request.substr(0, request.find("\r\n")));
                static const char reply[] =
                    "HTTP/1.1 200 OK\r\nContent-Length: 0\r\nConnection: Close\r\n\r\n";
                (void)!write(connection, reply, sizeof(reply) - 1);
            }
            close(connection);
        }
    }
    int listener = -1;
};

FuzzEnv* env;
AcceptingCollector* collector;
CReportContext* context;

void CheckFieldWalk(const std::string& line, bool checkAge) {
    size_t position = 0;
    std::string query;
    std::vector<std::string> fields;
    for (;;) {
        const size_t before = position;
        const size_t queryBefore = query.size();
        std::string value = "stale";
        if (!CUploadLog::TakeField(line, position, "&k=", query, checkAge, &value, true)) {
            QZ_FUZZ_CHECK(value.empty());
            QZ_FUZZ_CHECK(query.size() == queryBefore);
            break;
        }
        QZ_FUZZ_CHECK(position > before && position <= line.size());
        QZ_FUZZ_CHECK(value.find('\t') == std::string::npos);
        QZ_FUZZ_CHECK(query.size() > queryBefore == !value.empty());
        QZ_FUZZ_CHECK(value.empty() || query.compare(queryBefore, 3, "&k=") == 0);
        if (checkAge && !value.empty()) {
            char* end = nullptr;
            const long long time = std::strtoll(value.c_str(), &end, 10);
            QZ_FUZZ_CHECK(*end == '\0' && kNow - time <= 2 * 24 * 3600);
        }
        fields.push_back(value);
    }
    if (checkAge || line.empty()) {
        return;
    }
    std::string joined;
    for (size_t i = 0; i < fields.size(); ++i) {
        joined += (i == 0 ? "" : "\t") + fields[i];
    }
    if (!fields.empty() && line.back() == '\t') {
        joined += '\t';
    }
    QZ_FUZZ_CHECK(joined == line);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    qz_fuzz::ScratchFolder();
    env = new FuzzEnv;
    qzdata_report_kelvo::port::Env::Install(env);
    collector = new AcceptingCollector;
    if (!collector->Start()) {
        qz_fuzz::Fail("no loopback collector", __FILE__, __LINE__);
    }
    context = new CReportContext("fuzz");
    qzdata_report_kelvo::StrategyRouting routing = qzdata_report_kelvo::DefaultRouting();
    routing.hosts.collectorHost = "127.0.0.1";
    routing.hosts.collectorPort = collector->port;
    routing.fallbackAddresses.clear();
    routing.postFallbackAddresses.clear();
    routing.spareFallbackAddresses.clear();
    context->GetStrategy().SetRoutingForTesting(routing);
    context->GetUploadLog().BuildCommonQuery();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const bool isFail = (data[0] & 1) != 0;
    const bool checkAge = (data[0] & 2) != 0;
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    CUploadLog& upload = context->GetUploadLog();

    const std::string firstLine = text.substr(0, text.find('\n'));
    CheckFieldWalk(firstLine, checkAge);

    uint64_t before = collector->requests.load();
    QZ_FUZZ_CHECK(upload.UploadLine(firstLine, isFail, true));
    QZ_FUZZ_CHECK(collector->requests.load() - before <= 1);

    const std::string path = qz_fuzz::ScratchFolder() + "report.log";
    QZ_FUZZ_CHECK(qz_fuzz::WriteFile(path, text));
    size_t lines = 0;
    for (size_t at = 0; at < text.size();) {
        const size_t end = text.find('\n', at);
        const size_t next = end == std::string::npos ? text.size() : end + 1;
        lines += text.substr(at, next - at) != "\n" && text.substr(at, next - at) != "\r\n";
        at = next;
    }
    before = collector->requests.load();
    upload.UploadFile(path, isFail);
    QZ_FUZZ_CHECK(!qz_fuzz::FileExists(path));
    QZ_FUZZ_CHECK(collector->requests.load() - before <= lines);
    QZ_FUZZ_CHECK(collector->malformed.load() == 0);
    return 0;
}
