// Shared pieces of the delivery tests: loopback peers on one port under several addresses, the
// attempts they saw, and an engine (context and started table) pointed at them.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "codec/md5.h"
#include "delivery/dispatch_table.h"
#include "delivery/report_context.h"
#include "deployment_config.h"
#include "support/http_test_server.h"

namespace qz_test {

inline const std::string kReplyOk = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";
inline const std::string kReplyError = "HTTP/1.1 500 Error\r\nContent-Length: 0\r\n\r\n";

inline std::string ReplyWithBody(const std::string& body) {
    return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

// Blobs made independently of the library by tests/strategy/data/make_blobs.sh.
inline std::string ReadStrategyData(const std::string& name) {
    std::ifstream file(std::string(QZ_STRATEGY_TEST_DATA) + "/" + name, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}
// False when this build's strategy pass is not the one the blobs were made with.
inline bool StrategyBlobsFit() {
    qzdata_report_kelvo::Md5Context md5;
    md5.Start(qzdata_report_kelvo::deployment::kStrategyPass);
    return ReadStrategyData("pass.md5") == md5.HexDigest() + "\n";
}

// One server per address, all on one port (a fallback attempt keeps the connection's port).
class ServerGroup {
  public:
    // `handlers` has one entry for all addresses or one per address.
    bool Start(const std::vector<std::string>& addresses,
               const std::vector<HttpTestServer::Handler>& handlers) {
        for (int round = 0; round < 10; ++round) {  // another process may hold the port
            servers.clear();
            uint16_t port = 0;
            bool all = true;
            for (size_t i = 0; i < addresses.size() && all; ++i) {
                servers.push_back(std::make_unique<HttpTestServer>());
                all = servers.back()->Start(handlers[handlers.size() == 1 ? 0 : i], addresses[i],
                                            port);
                port = servers.back()->port();
            }
            if (all) {
                return true;
            }
        }
        return false;
    }
    uint16_t port() const { return servers.front()->port(); }
    HttpTestServer& at(size_t index) { return *servers[index]; }
    size_t ConnectionCount() const {
        size_t count = 0;
        for (const auto& server : servers) {
            count += server->ConnectionCount();
        }
        return count;
    }

  private:
    std::vector<std::unique_ptr<HttpTestServer>> servers;
};

// The request line of each connection, in order of acceptance.
inline std::vector<std::string> RequestLines(const HttpTestServer& server) {
    std::vector<std::string> lines;
    for (const std::string& bytes : server.Received()) {
        lines.push_back(bytes.substr(0, bytes.find("\r\n")));
    }
    return lines;
}

// The "EC=" counts of every request the servers saw, sorted.
inline std::vector<int> AttemptsSeen(const std::vector<HttpTestServer*>& servers) {
    std::vector<int> attempts;
    for (const HttpTestServer* server : servers) {
        for (const std::string& line : RequestLines(*server)) {
            const size_t pos = line.find("EC=");
            attempts.push_back(pos == std::string::npos ? -1 : std::atoi(line.c_str() + pos + 3));
        }
    }
    std::sort(attempts.begin(), attempts.end());
    return attempts;
}

// The profile's routing with every host at `host`:`port` and the given GET fallback list.
inline qzdata_report_kelvo::StrategyRouting LoopbackRouting(
    const std::string& host, uint16_t port, const std::vector<std::string>& fallback) {
    qzdata_report_kelvo::StrategyRouting routing = qzdata_report_kelvo::DefaultRouting();
    routing.collectorHost = routing.strategyHost = routing.configHost = host;
    routing.collectorPort = routing.strategyPort = routing.configPort = port;
    routing.fallbackAddresses = fallback;
    return routing;
}

struct Engine {
    explicit Engine(const qzdata_report_kelvo::StrategyRouting& routing, uint32_t timeoutMs = 1000)
        : context("vs-test-1"), table(&context) {
        context.GetStrategy().SetRoutingForTesting(routing);
        context.SetRequestTimeoutForTesting(timeoutMs);
        table.Start();
    }
    qzdata_report_kelvo::ReportCounters Counters() { return context.GetStats().Peek(); }

    qzdata_report_kelvo::CReportContext context;
    qzdata_report_kelvo::CDispatchTable table;
};

}  // namespace qz_test
