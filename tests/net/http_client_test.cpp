#include "net/http_client.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "net/net_test_util.h"
#include "support/http_test_server.h"
#include "support/wait.h"

namespace qzdata_report_kelvo {
namespace {

using namespace net_test;
using qz_test::HttpTestServer;
using qz_test::WaitUntil;

constexpr uint32_t kTimeoutMs = 300;

class HttpClientTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(CHttpClient::StartupWinsock()); }
    void Serve(HttpTestServer::Handler handler) {
        server = std::make_unique<HttpTestServer>();
        ASSERT_TRUE(server->Start(std::move(handler)));
        Aim(client, server->port(), kTimeoutMs);
    }
    std::unique_ptr<HttpTestServer> server;
    CHttpClient client{true};
};

TEST_F(HttpClientTest, RequestTextGoesOutByteForByte) {
    const std::string kNoBody = "Content-Length: 0\r\n\r\n";
    struct {
        bool keepAlive, post;
        std::string path, body, requestLine, tail;
    } const cases[] = {
        {false, false, "", "", "GET /", kNoBody},
        {true, false, "a/b?x=1", "dropped", "GET /a/b?x=1", kNoBody},
        {false, false, "/zhsdkinfo.php?ver=1", "", "GET /zhsdkinfo.php?ver=1", kNoBody},
        {false, false, "\\raw", "", "GET \\raw", kNoBody},
        {false, true, "/up", "hello", "POST /up", "Content-Length: 5\r\n\r\nhello"},
        {true, true, "x", "", "POST /x", kNoBody},
    };
    Serve(HttpTestServer::RespondToEach(kOk));
    for (const auto& c : cases) {
        ASSERT_EQ(Fetch(client, c.keepAlive, c.post, c.path, c.body).code, 0);
        EXPECT_EQ(server->Received().back(),
                  c.requestLine +
                      " HTTP/1.1\r\nAccept: */*\r\nContent-Type: application/octet-stream\r\n" +
                      (c.keepAlive ? "Connection: Keep-Alive\r\n" : "Connection: Close\r\n") +
                      "Host: 127.0.0.1\r\nCache-Control: no-cache\r\n" + c.tail);
    }
}

TEST_F(HttpClientTest, RepliesGiveCodeStatusAndBody) {
    struct {
        std::string reply;
        int code;
        uint32_t status;
        std::string body;
    } const cases[] = {
        {"HTTP/1.1 200 OK\r\n\r\n", 0, 200, ""},
        {"HTTP/1.1 204 No Content\r\n\r\n", 15, 204, ""},
        {"HTTP/1.1 404 Not Found\r\nContent-Length: 4\r\n\r\nnope", 15, 404, "nope"},
        {"FOO 200 OK\r\n\r\n", 14, 0, ""},
        {"HTTP/1.1 200 OK\r\nTransfer-Encoding: "
         "chunked\r\n\r\n4\r\nWiki\r\n5\r\npedia\r\n0\r\n\r\n",
         0, 200, "Wikipedia"},
        {"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc", 12, 0, ""},
        {"HTTP/1.1 200 OK\r\nContent-", 12, 0, ""},
        {"HTTP/1.1 200 OK\r\nContent-Length: 3000\r\n\r\n" + std::string(3000, 'x'), 0, 200,
         std::string(3000, 'x')},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.reply.substr(0, 60));
        Serve(HttpTestServer::Respond(c.reply, std::max<size_t>(7, c.reply.size() / 20), 1));
        const Reply reply = Fetch(client);
        EXPECT_EQ(reply.code, c.code);
        EXPECT_EQ(reply.status, c.status);
        EXPECT_EQ(reply.body, c.body);
        EXPECT_FALSE(client.IsConnected());
    }
}

TEST_F(HttpClientTest, TimeOutsAreIdleTimeOuts) {
    // Silence for the time-out gives 13; pieces 100 ms apart that take longer in total do not.
    Serve(HttpTestServer::Silent());
    auto start = Clock::now();
    EXPECT_EQ(Fetch(client).code, net::kResultReceiveTimedOut);
    EXPECT_GE(ElapsedMs(start), static_cast<long>(kTimeoutMs) - 10);
    EXPECT_LT(ElapsedMs(start), static_cast<long>(kTimeoutMs) + 1500);

    const std::string reply =
        "HTTP/1.1 200 OK\r\nContent-Length: 40\r\n\r\n" + std::string(40, 'b');
    Serve(HttpTestServer::Respond(reply, reply.size() / 5 + 1, 100));
    start = Clock::now();
    EXPECT_EQ(Fetch(client).code, net::kResultOk);
    EXPECT_GT(ElapsedMs(start), static_cast<long>(kTimeoutMs));
}

TEST_F(HttpClientTest, FailuresBeforeAnyContact) {
    Serve(HttpTestServer::Respond(kOk));
    CHttpClient::CleanupWinsock();
    EXPECT_EQ(Fetch(client).code, net::kResultNotStarted);
    ASSERT_TRUE(CHttpClient::StartupWinsock());

    int resolverCalls = 0;
    client.SetResolverForTesting([&](const std::string&, const std::string&, port::AddrInfo**) {
        ++resolverCalls;
        return -2;
    });
    client.SetHost("");
    EXPECT_EQ(Fetch(client).code, net::kResultEmptyHost);
    EXPECT_EQ(resolverCalls, 0);
    client.SetHost("127.0.0.1");
    EXPECT_EQ(Fetch(client).code, net::kResultResolveFailed);
    EXPECT_EQ(resolverCalls, 1);
    EXPECT_FALSE(WaitUntil([&] { return server->ConnectionCount() > 0; }, 100));

    // A failing resolver that still returns a list (the client must free it), and a succeeding
    // one with no list.
    for (int rc : {-2, 0}) {
        client.SetResolverForTesting(
            [rc](const std::string& host, const std::string& service, port::AddrInfo** list) {
                if (rc != 0) {
                    port::GetAddrInfo(host, service, list);
                }
                return rc;
            });
        EXPECT_EQ(Fetch(client).code, net::kResultResolveFailed);
    }
}

TEST_F(HttpClientTest, SocketCreationFailureGives6) {
    Serve(HttpTestServer::Respond(kOk));
    port::AddrInfo* resolved = nullptr;
    ASSERT_EQ(port::GetAddrInfo("127.0.0.1", std::to_string(server->port()), &resolved), 0);
    client.SetResolverForTesting(
        [&](const std::string&, const std::string&, port::AddrInfo** list) {
            *list = resolved;
            return 0;
        });
    // No descriptor can be made while the soft limit is 0.
    rlimit saved{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &saved), 0);
    rlimit none = saved;
    none.rlim_cur = 0;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const int code = Fetch(client).code;
    const int error = client.GetLastError();
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &saved), 0);
    EXPECT_EQ(code, net::kResultSocketFailed);
    EXPECT_EQ(error, EMFILE);
}

TEST_F(HttpClientTest, ConnectFailures) {
    // TCP to the loopback broadcast address is refused at once, without a packet: 8.
    Aim(client, 80, kTimeoutMs);
    client.SetHost("127.255.255.255");
    EXPECT_EQ(Fetch(client).code, net::kResultConnectFailed);
    EXPECT_EQ(client.GetLastError(), ENETUNREACH);
    EXPECT_FALSE(client.IsConnected());

    // A listener that never accepts: once its queue is full, new connections get no answer: 9.
    HttpTestServer full;
    ASSERT_TRUE(full.ListenOnly(0));
    std::vector<std::unique_ptr<CHttpClient>> clients;
    int code = 0;
    long elapsed = 0;
    for (int i = 0; i < 8 && code == 0; ++i) {
        clients.push_back(std::make_unique<CHttpClient>(true));
        Aim(*clients.back(), full.port(), 150);
        const auto start = Clock::now();
        code = clients.back()->Connect(true);
        elapsed = ElapsedMs(start);
    }
    EXPECT_EQ(code, net::kResultConnectTimedOut);
    EXPECT_GE(elapsed, 140);
}

TEST_F(HttpClientTest, SendFailures) {
    Serve(HttpTestServer::ResetAtOnce());
    ASSERT_EQ(client.Connect(false), 0);
    ASSERT_TRUE(WaitUntil([&] { return server->FinishedCount() == 1; }));
    EXPECT_EQ(client.SendRequest(false, false, "/", ""), net::kResultSendFailed);

    Serve(HttpTestServer::Stall());
    EXPECT_EQ(Fetch(client, false, true, "/up", std::string(32u << 20, 'p')).code,
              net::kResultSendTimedOut);
    EXPECT_FALSE(client.IsConnected());
}

TEST_F(HttpClientTest, KeptConnectionClosedByPeerFailsTheNextRequest) {
    Serve(HttpTestServer::Respond(kOkKeepAlive));
    ASSERT_EQ(Fetch(client, true).code, 0);
    ASSERT_TRUE(client.IsConnected());
    EXPECT_EQ(Fetch(client, true).code, net::kResultReceiveFailed);
    EXPECT_FALSE(client.IsConnected());
    EXPECT_EQ(server->ConnectionCount(), 1u);
}

std::atomic<uint32_t> fakeNow{0};
uint32_t FakeTick() {
    return fakeNow.load();
}

class KeepAliveTest : public HttpClientTest {
  protected:
    void SetUp() override {
        HttpClientTest::SetUp();
        client.SetTickSourceForTesting(FakeTick);
        Serve(HttpTestServer::RespondToEach(kOkKeepAlive));
    }
};

TEST_F(KeepAliveTest, ReusedUnderTheLimitReopenedAtIt) {
    struct {
        uint32_t limitMs;
        std::vector<uint32_t> ticks;
        size_t connections;
    } const cases[] = {
        {100, {1000, 1099}, 1},
        {100, {1000, 1100}, 2},
        // From 0xFFFFFFF0 to 4 counts as 19 ms, to 5 as 20 ms.
        {20, {0xFFFFFFF0u, 4}, 1},
        {20, {0xFFFFFFF0u, 5}, 2},
        {0, {500, 500, 500}, 3},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.limitMs);
        client.Disconnect();
        // The limit may be set from another thread.
        std::thread([&] { client.SetKeepAliveTimeout(c.limitMs); }).join();
        const size_t before = server->ConnectionCount();
        for (uint32_t tick : c.ticks) {
            fakeNow = tick;
            EXPECT_EQ(Fetch(client, true).code, 0);
            EXPECT_TRUE(client.IsConnected());
        }
        EXPECT_EQ(server->ConnectionCount() - before, c.connections);
    }
}

TEST_F(KeepAliveTest, StaysOpenOnlyWhenBothSidesAskAndTheStatusIs200) {
    EXPECT_EQ(Fetch(client, false).code, 0);
    EXPECT_FALSE(client.IsConnected());
    Serve(HttpTestServer::RespondToEach(kOk));
    EXPECT_EQ(Fetch(client, true).code, 0);
    EXPECT_FALSE(client.IsConnected());
    Serve(HttpTestServer::RespondToEach(
        "HTTP/1.1 500 Oops\r\nConnection: Keep-Alive\r\nContent-Length: 0\r\n\r\n"));
    const Reply reply = Fetch(client, true);
    EXPECT_EQ(reply.code, net::kResultStatusNotOk);
    EXPECT_TRUE(reply.serverKeepAlive);
    EXPECT_FALSE(client.IsConnected());
}

}  // namespace
}  // namespace qzdata_report_kelvo
