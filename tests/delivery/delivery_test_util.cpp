#include "delivery/delivery_test_util.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "codec/md5.h"
#include "deployment_config.h"

namespace qz_test {

using namespace qzdata_report_kelvo;

std::string ReadStrategyData(const std::string& name) {
    std::ifstream file(std::string(QZ_STRATEGY_TEST_DATA) + "/" + name, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

bool StrategyBlobsFit() {
    Md5Context md5;
    md5.Start(deployment::kStrategyPass);
    return ReadStrategyData("pass.md5") == md5.HexDigest() + "\n";
}

std::string ReplyWithBody(const std::string& body) {
    return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

bool ServerGroup::Start(const std::vector<std::string>& addresses,
                        const std::vector<HttpTestServer::Handler>& handlers) {
    // The first address picks a free port; another process may hold it under a later address,
    // so a few ports are tried.
    for (int round = 0; round < 10; ++round) {
        servers.clear();
        bool all = true;
        uint16_t port = 0;
        for (size_t i = 0; i < addresses.size() && all; ++i) {
            auto server = std::make_unique<HttpTestServer>();
            const auto& handler = handlers.size() == addresses.size() ? handlers[i] : handlers[0];
            all = server->Start(handler, addresses[i], port);
            port = server->port();
            servers.push_back(std::move(server));
        }
        if (all) {
            boundPort = port;
            return true;
        }
    }
    servers.clear();
    return false;
}

size_t ServerGroup::ConnectionCount() const {
    size_t count = 0;
    for (const auto& server : servers) {
        count += server->ConnectionCount();
    }
    return count;
}

std::vector<std::string> RequestLines(const HttpTestServer& server) {
    std::vector<std::string> lines;
    for (const std::string& bytes : server.Received()) {
        lines.push_back(bytes.substr(0, bytes.find("\r\n")));
    }
    return lines;
}

int AttemptOf(const std::string& requestLine) {
    size_t pos = requestLine.find("?EC=");
    if (pos == std::string::npos) {
        pos = requestLine.find("&EC=");
    }
    if (pos == std::string::npos) {
        return -1;
    }
    return std::atoi(requestLine.c_str() + pos + 4);
}

std::vector<int> AttemptsSeen(const HttpTestServer& server) {
    std::vector<int> attempts;
    for (const std::string& line : RequestLines(server)) {
        attempts.push_back(AttemptOf(line));
    }
    std::sort(attempts.begin(), attempts.end());
    return attempts;
}

StrategyRouting LoopbackRouting(const std::string& host, uint16_t port,
                                const std::vector<std::string>& fallback) {
    StrategyRouting routing = DefaultRouting();
    routing.collectorHost = routing.strategyHost = routing.configHost = host;
    routing.collectorPort = routing.strategyPort = routing.configPort = port;
    routing.fallbackAddresses = fallback;
    return routing;
}

Engine::Engine(const StrategyRouting& routing, uint32_t timeoutMs)
    : context("vs-test-1"), table(&context) {
    context.GetStrategy().SetRoutingForTesting(routing);
    context.SetRequestTimeoutForTesting(timeoutMs);
    table.Start();
}

}  // namespace qz_test
