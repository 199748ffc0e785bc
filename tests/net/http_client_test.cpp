#include "net/http_client.h"

#include <gtest/gtest.h>

#include <thread>
#include <tuple>
#include <vector>

#include "net/net_test_util.h"
#include "support/test_platform.h"

namespace qzdata_report_kelvo {
namespace {

using namespace net_test;
using HttpClientTest = ClientTest<CHttpClient>;

// Replies in pieces 1 ms apart (or whole), then the peer closes. The time-out bounds each idle
// stretch, not the whole reply. No reply keeps the connection: the server must ask too.
TEST_F(HttpClientTest, RepliesGiveCodeStatusAndBody) {
    const std::string ok = "HTTP/1.1 200 OK\r\n", big(3000, 'x');
    const auto respond = &HttpTestServer::Respond;  // reply, piece size, pause between pieces
    // Peer; code, status, body, least duration.
    const std::tuple<HttpTestServer::Handler, int, uint32_t, std::string, long> cases[] = {
        {respond("HTTP/1.1 201 Created\r\nContent-Length: 4\r\n\r\nnope", 7, 1),
         net::kResultStatusNotOk, 201, "nope", 0},
        {respond("FOO 200 OK\r\n\r\n", 7, 1), net::kResultMalformed, 0, "", 0},
        {respond(ok + "Transfer-Encoding: chunked\r\n\r\n4\r\nWiki\r\n0\r\n\r\n", 7, 1), 0, 200,
         "Wiki", 0},
        {respond(ok + "Content-Length: 10\r\n\r\nabc", 7, 1), net::kResultReceiveFailed, 0, "", 0},
        {respond(ok + "Content-Length: 3000\r\n\r\n" + big, 0, 0), 0, 200, big, 0},
        {HttpTestServer::Silent(), net::kResultReceiveTimedOut, 0, "", kTimeoutMs - 10},
        {respond(ok + "Content-Length: 1\r\n\r\n1", 8, 100), 0, 200, "1", kTimeoutMs + 1}};
    for (const auto& [peer, code, status, body, leastMs] : cases) {
        Serve(peer);
        const auto start = Clock::now();
        const Reply reply(client, true);
        const long ms = ElapsedMs(start);
        EXPECT_EQ(std::make_tuple(reply.code, reply.status, reply.body, client.IsConnected()),
                  std::make_tuple(code, status, body, false));
        EXPECT_TRUE(ms >= leastMs && ms < static_cast<long>(kTimeoutMs) + 1500)
            << code << ": " << ms;
    }
}

// Socket layer not started; resolvers that fail with a list (which the client must free), succeed
// with none, or give an address no socket can be made for; an empty host; then connect and send.
TEST_F(HttpClientTest, FailuresBeforeAnyContactAndWhileConnectingOrSending) {
    Serve(HttpTestServer::Respond(kOk));
    CHttpClient::CleanupWinsock();
    EXPECT_EQ(Reply(client).code, net::kResultNotStarted);
    ASSERT_TRUE(CHttpClient::StartupWinsock());
    int unusable = 0;
    for (int mode : {0, 1, 2}) {
        client.SetResolverForTesting(
            [&, mode](const std::string& host, const std::string& service, port::AddrInfo** list) {
                if (mode != 1 && port::ResolveStream(host, service, list) == 0 && mode == 2) {
                    unusable = qz_test::SpoilStreamEntry(*list);
                }
                return mode == 0 ? -2 : 0;
            });
        EXPECT_EQ(Reply(client).code,
                  mode == 2 ? net::kResultSocketFailed : net::kResultResolveFailed);
    }
    EXPECT_EQ(client.GetLastError(), unusable);
    client.SetHost("");
    EXPECT_EQ(Reply(client).code, net::kResultEmptyHost);
    EXPECT_FALSE(WaitUntil([&] { return server->ConnectionCount() > 0; }, 100));

    // TCP to the loopback broadcast address is refused at once; a listener that never accepts
    // leaves new connections unanswered once its queue is full.
    client.SetResolverForTesting(port::ResolveStream);
    Aim(client, 80, kTimeoutMs);
    client.SetHost("127.255.255.255");
    EXPECT_EQ(Reply(client).code, net::kResultConnectFailed);
    HttpTestServer full;
    ASSERT_TRUE(full.ListenOnly(0));
    std::vector<std::unique_ptr<CHttpClient>> clients;
    int code = 0;
    while (code == 0 && clients.size() < 8) {
        clients.push_back(std::make_unique<CHttpClient>(true));
        Aim(*clients.back(), full.port(), kTimeoutMs);
        const auto start = Clock::now();
        code = clients.back()->Connect(true);
        EXPECT_TRUE(code == 0 || ElapsedMs(start) >= static_cast<long>(kTimeoutMs) - 10);
    }
    EXPECT_EQ(code, net::kResultConnectTimedOut);
    ExpectSendFailures(HttpTestServer::ResetAtOnce(), HttpTestServer::Stall(),
                       net::kResultSendFailed, net::kResultSendTimedOut);
}

// Reused while idle for less than the limit, also across a wrap of the tick counter: from
// 0xFFFFFFF0 to 4 counts as 19 ms, to 5 as 20 ms. A request that does not ask for keep-alive
// neither reuses nor keeps the connection.
TEST_F(HttpClientTest, KeptConnectionReusedUnderTheLimitReopenedAtIt) {
    // Limit, ticks of two requests, whether the second asks for keep-alive, connections taken.
    const std::tuple<uint32_t, int64_t, int64_t, bool, size_t> cases[] = {
        {100, 1000, 1099, true, 1},   {100, 1000, 1100, true, 2},   {20, 100, 120, true, 2},
        {20, 0xFFFFFFF0, 4, true, 1}, {20, 0xFFFFFFF0, 5, true, 2}, {0, 500, 500, true, 2},
        {100, 500, 500, false, 2}};
    Serve(HttpTestServer::RespondToEach(
        "HTTP/1.1 200 OK\r\nConnection: Keep-Alive\r\nContent-Length: 2\r\n\r\nok"));
    for (const auto& [limitMs, first, second, keep, connections] : cases) {
        SCOPED_TRACE(limitMs);
        client.Disconnect();
        std::thread([&] { client.SetKeepAliveTimeout(limitMs); }).join();  // from any thread
        const size_t before = server->ConnectionCount();
        now = first;
        EXPECT_EQ(Reply(client, true).code, 0);
        now = second;
        EXPECT_EQ(Reply(client, keep).code, 0);
        EXPECT_EQ(client.IsConnected(), keep);
        EXPECT_EQ(server->ConnectionCount() - before, connections);
    }
}

}  // namespace
}  // namespace qzdata_report_kelvo
