// Shared pieces of the delivery tests: loopback collectors on one port under several addresses,
// the request lines they saw, and an engine (context and table) pointed at them.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "delivery/dispatch_table.h"
#include "delivery/report_context.h"
#include "strategy/strategy.h"
#include "support/http_test_server.h"

namespace qz_test {

inline const std::string kReplyOk = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";
inline const std::string kReplyError =
    "HTTP/1.1 500 Internal Server Error\r\nContent-Length: 0\r\n\r\n";

// The file `name` of the strategy test data (blobs made by tests/strategy/data/make_blobs.sh).
std::string ReadStrategyData(const std::string& name);
// Whether those blobs were made with this build's strategy pass (another profile cannot decode
// them).
bool StrategyBlobsFit();

// A 200 reply that carries `body`.
std::string ReplyWithBody(const std::string& body);

// Loopback servers that listen on one port, one per address.
class ServerGroup {
  public:
    // Starts one server per address, all on one free port, each running `handler` (a handler per
    // address when `handlers` has as many entries). False when no common port was found.
    bool Start(const std::vector<std::string>& addresses,
               const std::vector<HttpTestServer::Handler>& handlers);
    bool Start(const std::vector<std::string>& addresses, HttpTestServer::Handler handler) {
        return Start(addresses, std::vector<HttpTestServer::Handler>{handler});
    }

    uint16_t port() const { return boundPort; }
    HttpTestServer& at(size_t index) { return *servers[index]; }
    size_t ConnectionCount() const;

  private:
    std::vector<std::unique_ptr<HttpTestServer>> servers;
    uint16_t boundPort = 0;
};

// The request line ("GET /... HTTP/1.1") of each connection of `server`, in order of acceptance.
std::vector<std::string> RequestLines(const HttpTestServer& server);
// The value of "EC=" in a request line; -1 when it has none.
int AttemptOf(const std::string& requestLine);
// The attempt counts of every request `server` saw, sorted.
std::vector<int> AttemptsSeen(const HttpTestServer& server);

// The profile's routing with every host at `host`:`port` and the given GET fallback list.
qzdata_report_kelvo::StrategyRouting LoopbackRouting(const std::string& host, uint16_t port,
                                                     const std::vector<std::string>& fallback);

// A context and a started table, with the given routing and request time-out.
struct Engine {
    explicit Engine(const qzdata_report_kelvo::StrategyRouting& routing, uint32_t timeoutMs = 1000);
    qzdata_report_kelvo::ReportCounters Counters() { return context.GetStats().Peek(); }

    qzdata_report_kelvo::CReportContext context;
    qzdata_report_kelvo::CDispatchTable table;
};

}  // namespace qz_test
