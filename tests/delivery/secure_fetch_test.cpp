// The secure direct way against a real TLS server in the test process.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "delivery/delivery_test_util.h"
#include "delivery/report_connect.h"
#include "net/tls_test_server.h"

namespace qzdata_report_kelvo {
namespace {

using qz_test::HttpTestServer;
using qz_test::ServerGroup;

struct SecureDirect {
    SecureDirect(uint16_t port, const std::vector<std::string>& fallback) : context("vs") {
        context.GetStrategy().SetRoutingForTesting(
            qz_test::LoopbackRouting("127.0.0.1", port, fallback));
        context.SetRequestTimeoutForTesting(2000);
    }
    bool Fetch(uint16_t port, std::string& reply) {
        CStrategy& strategy = context.GetStrategy();
        CReportConnect connect("127.0.0.1", port, &context, &strategy.GetFallbackList(),
                               &strategy.GetFallbackList());
        return connect.FetchSecure("/api/getDeviceConfig?sys=10&appkey=demo", 0, "", reply);
    }
    CReportContext context;
};

TEST(SecureFetchTest, TheSecureClientFetchesTheReplyBody) {
    ServerGroup servers;
    ASSERT_TRUE(servers.Start({"127.0.0.1"}, qz_test::TlsRespond(qz_test::ReplyWithBody("{}"))));
    SecureDirect direct(servers.port(), {});
    std::string reply;
    if (!direct.Fetch(servers.port(), reply) && servers.ConnectionCount() == 0) {
        GTEST_SKIP() << "no TLS library for the client in this process";
    }
    EXPECT_EQ(reply, "{}");
}

// A failing TLS host falls back to plain HTTP on a fallback address, on the same port.
TEST(SecureFetchTest, FallbackStepsGoPlainToTheFallbackAddress) {
    const std::string kError = "HTTP/1.1 500 Internal Server Error\r\nContent-Length: 0\r\n\r\n";
    ServerGroup servers;
    ASSERT_TRUE(servers.Start(
        {"127.0.0.1", "127.0.0.2"},
        {qz_test::TlsRespond(kError), HttpTestServer::Respond(qz_test::ReplyWithBody("plain"))}));
    SecureDirect direct(servers.port(), {"127.0.0.2"});
    std::string reply;
    EXPECT_TRUE(direct.Fetch(servers.port(), reply));
    EXPECT_EQ(reply, "plain");
    EXPECT_EQ(servers.at(0).ConnectionCount(), 2u);
    EXPECT_EQ(
        qz_test::RequestLines(servers.at(1)),
        std::vector<std::string>{"GET /api/getDeviceConfig?sys=10&appkey=demo&EC=3 HTTP/1.1"});
}

}  // namespace
}  // namespace qzdata_report_kelvo
