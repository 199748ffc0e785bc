#include "net/http_client.h"

#include <gtest/gtest.h>

#include <deque>
#include <thread>
#include <tuple>

#include "net/net_test_util.h"
#include "support/test_platform.h"

namespace qzdata_report_kelvo {
namespace {

using namespace net;
using namespace net_test;
using HttpClientTest = ClientTest<CHttpClient>;
using Peer = HttpTestServer;

// Replies in pieces 1 ms apart (or whole), then the peer closes. The time-out bounds each idle
// stretch, not the whole reply. No reply keeps the connection: the server must ask too.
TEST_F(HttpClientTest, RepliesGiveCodeStatusAndBody) {
    const std::string ok = "HTTP/1.1 200 OK\r\n", big(3000, 'x');
    const auto slow = [](const std::string& text) { return Peer::Respond(text, 7, 1); };
    // Peer; code, status, body, least duration.
    const std::tuple<Peer::Handler, int, uint32_t, std::string, long> cases[] = {
        {slow("HTTP/1.1 201 Created\r\nContent-Length: 4\r\n\r\nnope"), kResultStatusNotOk, 201,
         "nope", 0},
        {slow("FOO 200 OK\r\n\r\n"), kResultMalformed, 0, "", 0},
        {slow(ok + "Transfer-Encoding: chunked\r\n\r\n4\r\nWiki\r\n0\r\n\r\n"), 0, 200, "Wiki", 0},
        {slow(ok + "Content-Length: 10\r\n\r\nabc"), kResultReceiveFailed, 0, "", 0},
        {Peer::Respond(ok + "Content-Length: 3000\r\n\r\n" + big), 0, 200, big, 0},
        {Peer::Silent(), kResultReceiveTimedOut, 0, "", kTimeoutMs - 10},
        {Peer::Respond(ok + "Content-Length: 1\r\n\r\n1", 8, 100), 0, 200, "1", kTimeoutMs + 1}};
    for (const auto& [peer, code, status, body, leastMs] : cases) {
        Serve(peer);
        const Reply r(client, true);
        EXPECT_EQ(std::make_tuple(r.code, r.status, r.body, client.IsConnected()),
                  std::make_tuple(code, status, body, false));
        EXPECT_TRUE(r.ms >= leastMs && r.ms < kTimeoutMs + 1500) << code << ": " << r.ms;
    }
}

// Socket layer not started; resolvers that fail with a list (which the client must free), succeed
// with none, or give an address no socket can be made for; an empty host; then connect and send.
TEST_F(HttpClientTest, FailuresBeforeAnyContactAndWhileConnectingOrSending) {
    Serve(Peer::Respond("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok"));
    CHttpClient::CleanupWinsock();
    EXPECT_EQ(Reply(client).code, kResultNotStarted);
    ASSERT_TRUE(CHttpClient::StartupWinsock());
    int unusable = 0;
    for (int mode : {0, 1, 2}) {
        client.SetResolverForTesting([&, mode](auto& host, auto& service, port::AddrInfo** list) {
            if (mode != 1 && port::ResolveStream(host, service, list) == 0 && mode == 2)
                unusable = qz_test::SpoilStreamEntry(*list);
            return mode == 0 ? -2 : 0;
        });
        EXPECT_EQ(Reply(client).code, mode == 2 ? kResultSocketFailed : kResultResolveFailed);
    }
    EXPECT_EQ(client.GetLastError(), unusable);
    client.SetHost("");
    EXPECT_EQ(Reply(client).code, kResultEmptyHost);
    EXPECT_FALSE(WaitUntil([&] { return server->ConnectionCount() > 0; }, 100));

    // TCP to the loopback broadcast address is refused at once; a listener that never accepts
    // leaves new connections unanswered once its queue is full.
    client.SetResolverForTesting(port::ResolveStream);
    client.SetPort(80);
    client.SetHost("127.255.255.255");
    EXPECT_EQ(Reply(client).code, kResultConnectFailed);
    HttpTestServer full;
    ASSERT_TRUE(full.ListenOnly(0));
    std::deque<CHttpClient> clients;
    int code = 0;
    while (code == 0 && clients.size() < 8) {
        Aim(clients.emplace_back(true), full.port());
        const auto due = Clock::now() + std::chrono::milliseconds(kTimeoutMs - 10);
        code = clients.back().Connect(true);
        EXPECT_TRUE(code == 0 || Clock::now() >= due);
    }
    EXPECT_EQ(code, kResultConnectTimedOut);
    ExpectSendFailures(Peer::ResetAtOnce(), Peer::Stall(), kResultSendFailed, kResultSendTimedOut);
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
    Serve(Peer::RespondToEach(
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
