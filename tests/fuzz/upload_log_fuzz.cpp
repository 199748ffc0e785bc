// Self-reporting's log lines, from any text an earlier run (or a damaged disk) left: TakeField
// walks the first line, UploadLine sends it, UploadFile sends the whole file, and every request
// that reaches the collector, a loopback server in this process, has a well-formed request line
// (no field gets there unescaped). The clock stands at 1700000000, so seed lines with that time
// are recent. Input: one byte (bit 0: failure log, bit 1: TakeField checks the age of its
// field), then the text.
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <thread>

#include "delivery/report_context.h"
#include "delivery/upload_log.h"
#include "fuzz_support.h"
#include "port/env.h"

namespace {

using qzdata_report_kelvo::CUploadLog;

// A fixed calendar clock, and no pause between uploaded lines.
class FuzzEnv : public qzdata_report_kelvo::port::EnvWrapper {
  public:
    int64_t Time64() override { return 1700000000; }
    void Sleep(uint32_t ms) override { ms > 1 ? EnvWrapper::Sleep(ms) : void(); }
};

// Checks the request line of each request ("GET" or "POST", a target of visible ASCII,
// "HTTP/1.1"), answers 200 and closes once the client has.
void Serve(int listener) {
    for (;;) {
        const int connection = accept(listener, nullptr, nullptr);
        std::string request;
        char buffer[4096];
        ssize_t count = 0;
        while (request.find("\r\n\r\n") == std::string::npos &&
               (count = read(connection, buffer, sizeof(buffer))) > 0)
            request.append(buffer, count);
        const std::string line = request.substr(0, request.find("\r\n"));
        const size_t target = line.find(' ') + 1;
        QZ_FUZZ_CHECK(
            request.find("\r\n") == std::string::npos ||
            (line.compare(0, target, "GET ") == 0 || line.compare(0, target, "POST ") == 0) &&
                line.size() > target + 9 && line.compare(line.size() - 9, 9, " HTTP/1.1") == 0 &&
                std::all_of(line.begin() + target, line.end() - 9,
                            [](char c) { return c > 0x20 && c < 0x7F; }));
        static const char reply[] =
            "HTTP/1.1 200 OK\r\nContent-Length: 0\r\nConnection: Close\r\n\r\n";
        (void)!write(connection, reply, sizeof(reply) - 1);
        shutdown(connection, SHUT_WR);
        while (read(connection, buffer, sizeof(buffer)) > 0) {
        }
        close(connection);
    }
}

qzdata_report_kelvo::CReportContext* context;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    qz_fuzz::ScratchFolder();
    qzdata_report_kelvo::port::Env::Install(new FuzzEnv);
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t length = sizeof(address);
    QZ_FUZZ_CHECK(bind(listener, reinterpret_cast<sockaddr*>(&address), length) == 0 &&
                  listen(listener, 16) == 0 &&
                  getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) == 0);
    std::thread(Serve, listener).detach();

    context = new qzdata_report_kelvo::CReportContext("fuzz");
    qzdata_report_kelvo::StrategyRouting routing = qzdata_report_kelvo::DefaultRouting();
    routing.hosts.collectorHost = "127.0.0.1";
    routing.hosts.collectorPort = ntohs(address.sin_port);
    routing.fallbackAddresses = routing.postFallbackAddresses = routing.spareFallbackAddresses = {};
    context->GetStrategy().SetRoutingForTesting(routing);
    context->GetUploadLog().BuildCommonQuery();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0)
        return 0;
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    const std::string line = text.substr(0, text.find('\n'));
    std::string query;
    for (size_t position = 0;
         CUploadLog::TakeField(line, position, "&k=", query, data[0] & 2, nullptr, true);) {
    }
    context->GetUploadLog().UploadLine(line, data[0] & 1, true);
    const std::string path = qz_fuzz::ScratchFolder() + "report.log";
    qz_fuzz::WriteFile(path, text);
    context->GetUploadLog().UploadFile(path, data[0] & 1);
    return 0;
}
