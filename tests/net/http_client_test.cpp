#include "net/http_client.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "net/constants.h"
#include "support/http_test_server.h"
#include "support/wait.h"

namespace qzdata_report_kelvo {
namespace {

using qz_test::HttpTestServer;
using Clock = std::chrono::steady_clock;

constexpr uint32_t kTimeoutMs = 300;

const std::string kOk = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";
const std::string kOkKeepAlive =
    "HTTP/1.1 200 OK\r\nConnection: Keep-Alive\r\nContent-Length: 2\r\n\r\nok";

long ElapsedMs(Clock::time_point start) {
    return static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
}

std::atomic<uint32_t> fakeNow{0};
uint32_t FakeTick() {
    return fakeNow.load();
}

class HttpClientTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(CHttpClient::StartupWinsock());
        client.SetHost("127.0.0.1");
        client.SetTimeout(kTimeoutMs);
    }

    void Serve(HttpTestServer::Handler handler) {
        ASSERT_TRUE(server.Start(std::move(handler)));
        client.SetPort(server.port());
    }

    int Get(bool keepAlive = false, const std::string& path = "/") {
        return client.Request(keepAlive, false, path, "", status, serverKeepAlive, true, body);
    }

    HttpTestServer server;
    CHttpClient client{true};
    uint32_t status = 0;
    bool serverKeepAlive = false;
    std::string body;
};

struct RequestTextCase {
    const char* name;
    bool keepAlive;
    bool post;
    std::string path;
    std::string body;
    std::string expectedStart;  // the request line and the connection header vary
    std::string expectedEnd;    // the length header and what follows
};

class RequestTextTest : public HttpClientTest,
                        public ::testing::WithParamInterface<RequestTextCase> {};

TEST_P(RequestTextTest, GoesOutByteForByte) {
    const RequestTextCase& c = GetParam();
    Serve(HttpTestServer::Respond(kOk));
    ASSERT_EQ(
        client.Request(c.keepAlive, c.post, c.path, c.body, status, serverKeepAlive, false, body),
        net::kResultOk);
    const std::string expected =
        c.expectedStart +
        "Accept: */*\r\n"
        "Content-Type: application/octet-stream\r\n" +
        (c.keepAlive ? "Connection: Keep-Alive\r\n" : "Connection: Close\r\n") +
        "Host: 127.0.0.1\r\n"
        "Cache-Control: no-cache\r\n" +
        c.expectedEnd;
    ASSERT_TRUE(qz_test::WaitUntil([&] { return server.FinishedCount() == 1; }));
    EXPECT_EQ(server.ReceivedOn(0), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, RequestTextTest,
    ::testing::Values(RequestTextCase{"GetEmptyPath", false, false, "", "", "GET / HTTP/1.1\r\n",
                                      "Content-Length: 0\r\n\r\n"},
                      RequestTextCase{"GetDropsBody", true, false, "a/b?x=1", "dropped",
                                      "GET /a/b?x=1 HTTP/1.1\r\n", "Content-Length: 0\r\n\r\n"},
                      RequestTextCase{"GetWithSlash", false, false, "/zhsdkinfo.php?ver=1", "",
                                      "GET /zhsdkinfo.php?ver=1 HTTP/1.1\r\n",
                                      "Content-Length: 0\r\n\r\n"},
                      RequestTextCase{"BackslashPathUnchanged", false, false, "\\raw", "",
                                      "GET \\raw HTTP/1.1\r\n", "Content-Length: 0\r\n\r\n"},
                      RequestTextCase{"PostWithBody", false, true, "/up", "hello",
                                      "POST /up HTTP/1.1\r\n", "Content-Length: 5\r\n\r\nhello"},
                      RequestTextCase{"PostEmptyBody", true, true, "x", "", "POST /x HTTP/1.1\r\n",
                                      "Content-Length: 0\r\n\r\n"}),
    [](const ::testing::TestParamInfo<RequestTextCase>& info) {
        return std::string(info.param.name);
    });

struct ResponseCase {
    const char* name;
    std::string reply;
    int code;
    uint32_t status;
    std::string body;
};

class ResponseTest : public HttpClientTest, public ::testing::WithParamInterface<ResponseCase> {};

TEST_P(ResponseTest, GivesCodeStatusAndBody) {
    const ResponseCase& c = GetParam();
    Serve(HttpTestServer::RespondInPieces(c.reply, std::max<size_t>(7, c.reply.size() / 20), 1));
    EXPECT_EQ(Get(), c.code);
    EXPECT_EQ(status, c.status);
    EXPECT_EQ(body, c.body);
    EXPECT_FALSE(client.IsConnected());
}

const std::string kChunkedHead = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";

INSTANTIATE_TEST_SUITE_P(
    Cases, ResponseTest,
    ::testing::Values(
        ResponseCase{"StatusOnly", "HTTP/1.1 200 OK\r\n\r\n", net::kResultOk, 200, ""},
        ResponseCase{"NoContent", "HTTP/1.1 204 No Content\r\n\r\n", net::kResultStatusNotOk, 204,
                     ""},
        ResponseCase{"NotFoundKeepsBody", "HTTP/1.1 404 Not Found\r\nContent-Length: 4\r\n\r\nnope",
                     net::kResultStatusNotOk, 404, "nope"},
        ResponseCase{"RedirectIsFailure",
                     "HTTP/1.1 302 Found\r\nLocation: http://127.0.0.1/\r\n\r\n",
                     net::kResultStatusNotOk, 302, ""},
        ResponseCase{"NotHttp", "FOO 200 OK\r\n\r\n", net::kResultMalformed, 0, ""},
        ResponseCase{"ContentLengthOverChunked",
                     "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nContent-Length: 5\r\n\r\n"
                     "5\r\nhello\r\n0\r\n\r\n",
                     net::kResultOk, 200, "5\r\nhe"},
        ResponseCase{"Chunked", kChunkedHead + "4\r\nWiki\r\n5\r\npedia\r\n0\r\n\r\n",
                     net::kResultOk, 200, "Wikipedia"},
        ResponseCase{"ChunkExtension", kChunkedHead + "4;ext=1\r\nWiki\r\n0\r\n\r\n",
                     net::kResultMalformed, 0, ""},
        ResponseCase{"ChunkWithoutLineEnd", kChunkedHead + "4\r\nWikiXX0\r\n\r\n",
                     net::kResultMalformed, 0, ""},
        ResponseCase{"ContentLengthZero", "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\nextra",
                     net::kResultOk, 200, ""},
        ResponseCase{"PeerClosesBeforeComplete", "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc",
                     net::kResultReceiveFailed, 0, ""},
        ResponseCase{"PeerClosesBeforeHeadersEnd", "HTTP/1.1 200 OK\r\nContent-",
                     net::kResultReceiveFailed, 0, ""},
        ResponseCase{"BodyOverManyReads",
                     "HTTP/1.1 200 OK\r\nContent-Length: 3000\r\n\r\n" + std::string(3000, 'x'),
                     net::kResultOk, 200, std::string(3000, 'x')}),
    [](const ::testing::TestParamInfo<ResponseCase>& info) {
        return std::string(info.param.name);
    });

TEST_F(HttpClientTest, BodyOnlyWhenWanted) {
    Serve(HttpTestServer::Respond(kOk));
    body = "stale";
    EXPECT_EQ(client.Request(false, false, "/", "", status, serverKeepAlive, false, body),
              net::kResultOk);
    EXPECT_EQ(status, 200u);
    EXPECT_TRUE(body.empty());
    EXPECT_EQ(client.GetLastError(), 0);
}

TEST_F(HttpClientTest, SilentPeerTimesOutWithinTheTimeout) {
    Serve(HttpTestServer::Silent());
    const auto start = Clock::now();
    EXPECT_EQ(Get(), net::kResultReceiveTimedOut);
    const long elapsed = ElapsedMs(start);
    EXPECT_GE(elapsed, static_cast<long>(kTimeoutMs) - 10);
    EXPECT_LT(elapsed, static_cast<long>(kTimeoutMs) + 1500);
    EXPECT_FALSE(client.IsConnected());
}

TEST_F(HttpClientTest, TimeoutsCountIdleTimeOnly) {
    // Five pieces 100 ms apart take longer than the 300 ms time-out in total, but no single
    // silence reaches it.
    const std::string reply =
        "HTTP/1.1 200 OK\r\nContent-Length: 40\r\n\r\n" + std::string(40, 'b');
    Serve(HttpTestServer::RespondInPieces(reply, reply.size() / 5 + 1, 100));
    const auto start = Clock::now();
    EXPECT_EQ(Get(), net::kResultOk);
    EXPECT_GT(ElapsedMs(start), static_cast<long>(kTimeoutMs));
    EXPECT_EQ(body, std::string(40, 'b'));
}

TEST_F(HttpClientTest, NotStartedGives1WithoutContact) {
    Serve(HttpTestServer::Respond(kOk));
    CHttpClient::CleanupWinsock();
    const int code = Get();
    CHttpClient::StartupWinsock();
    EXPECT_EQ(code, net::kResultNotStarted);
    EXPECT_FALSE(qz_test::WaitUntil([&] { return server.ConnectionCount() > 0; }, 100));
    EXPECT_EQ(Get(), net::kResultOk);
}

TEST_F(HttpClientTest, EmptyHostGives2AndStaysClosed) {
    int resolverCalls = 0;
    client.SetResolverForTesting([&](const std::string&, const std::string&, port::AddrInfo**) {
        ++resolverCalls;
        return -1;
    });
    client.SetHost("");
    EXPECT_EQ(Get(), net::kResultEmptyHost);
    EXPECT_FALSE(client.IsConnected());
    EXPECT_EQ(resolverCalls, 0);
}

TEST_F(HttpClientTest, FailedDirectLookupGives3) {
    struct Case {
        const char* name;
        int rc;
        bool giveList;
    };
    for (const Case& c : {Case{"fails", -2, false}, Case{"fails with a list", -2, true},
                          Case{"succeeds without a list", 0, false}}) {
        SCOPED_TRACE(c.name);
        client.SetResolverForTesting(
            [c](const std::string& host, const std::string& service, port::AddrInfo** list) {
                if (c.giveList) {
                    port::GetAddrInfo(host, service, list);  // freed by the client: a leak shows
                }
                return c.rc;
            });
        EXPECT_EQ(Get(), net::kResultResolveFailed);
    }
}

TEST_F(HttpClientTest, ResolverGetsHostAndDecimalPort) {
    Serve(HttpTestServer::Respond(kOk));
    std::string seenHost;
    std::string seenService;
    client.SetResolverForTesting(
        [&](const std::string& host, const std::string& service, port::AddrInfo** list) {
            seenHost = host;
            seenService = service;
            return port::GetAddrInfo(host, service, list);
        });
    EXPECT_EQ(Get(), net::kResultOk);
    EXPECT_EQ(seenHost, "127.0.0.1");
    EXPECT_EQ(seenService, std::to_string(server.port()));
}

TEST_F(HttpClientTest, SocketCreationFailureGives6) {
    Serve(HttpTestServer::Respond(kOk));
    port::AddrInfo* resolved = nullptr;
    ASSERT_EQ(port::GetAddrInfo("127.0.0.1", std::to_string(server.port()), &resolved), 0);
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
    const int code = Get();
    const int error = client.GetLastError();
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &saved), 0);
    EXPECT_EQ(code, net::kResultSocketFailed);
    EXPECT_EQ(error, EMFILE);
    EXPECT_FALSE(client.IsConnected());
}

TEST_F(HttpClientTest, ImmediateConnectFailureGives8) {
    // TCP to the loopback broadcast address is refused at once, without a packet.
    client.SetHost("127.255.255.255");
    client.SetPort(80);
    EXPECT_EQ(Get(), net::kResultConnectFailed);
    EXPECT_EQ(client.GetLastError(), ENETUNREACH);
    EXPECT_FALSE(client.IsConnected());
}

TEST_F(HttpClientTest, UnansweredConnectGives9AfterTheTimeout) {
    // A listener that never accepts: once its queue is full, new connections get no answer.
    HttpTestServer full;
    ASSERT_TRUE(full.ListenOnly(0));
    std::vector<std::unique_ptr<CHttpClient>> clients;
    int code = net::kResultOk;
    long elapsed = 0;
    for (int i = 0; i < 8 && code == net::kResultOk; ++i) {
        clients.push_back(std::make_unique<CHttpClient>(true));
        clients.back()->SetHost("127.0.0.1");
        clients.back()->SetPort(full.port());
        clients.back()->SetTimeout(150);
        const auto start = Clock::now();
        code = clients.back()->Connect(true);
        elapsed = ElapsedMs(start);
    }
    EXPECT_EQ(code, net::kResultConnectTimedOut);
    EXPECT_GE(elapsed, 140);
}

TEST_F(HttpClientTest, PeerResetBeforeSendGives10) {
    Serve(HttpTestServer::ResetAtOnce());
    ASSERT_EQ(client.Connect(false), net::kResultOk);
    ASSERT_TRUE(qz_test::WaitUntil([&] { return server.FinishedCount() == 1; }));
    EXPECT_EQ(client.SendRequest(false, false, "/", ""), net::kResultSendFailed);
    client.Disconnect();
    EXPECT_FALSE(client.IsConnected());
}

TEST_F(HttpClientTest, PeerThatStopsReadingGives11) {
    Serve(HttpTestServer::Stall());
    const std::string big(32u << 20, 'p');
    const auto start = Clock::now();
    EXPECT_EQ(client.Request(false, true, "/up", big, status, serverKeepAlive, false, body),
              net::kResultSendTimedOut);
    EXPECT_GE(ElapsedMs(start), static_cast<long>(kTimeoutMs) - 10);
    EXPECT_FALSE(client.IsConnected());
}

TEST_F(HttpClientTest, NonOkReplyClosesEvenWhenKeepAliveOffered) {
    Serve(HttpTestServer::RespondToEach(
        "HTTP/1.1 500 Oops\r\nConnection: Keep-Alive\r\nContent-Length: 0\r\n\r\n"));
    EXPECT_EQ(Get(true), net::kResultStatusNotOk);
    EXPECT_EQ(status, 500u);
    EXPECT_TRUE(serverKeepAlive);
    EXPECT_FALSE(client.IsConnected());
}

TEST_F(HttpClientTest, StaysOpenOnlyWhenBothSidesAskForKeepAlive) {
    struct Case {
        const char* name;
        bool clientKeepAlive;
        std::string reply;
        bool open;
    };
    const Case cases[] = {
        {"both", true, kOkKeepAlive, true},
        {"client only", true, kOk, false},
        {"server only", false, kOkKeepAlive, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        HttpTestServer peer;
        ASSERT_TRUE(peer.Start(HttpTestServer::RespondToEach(c.reply)));
        client.SetPort(peer.port());
        EXPECT_EQ(Get(c.clientKeepAlive), net::kResultOk);
        EXPECT_EQ(client.IsConnected(), c.open);
        client.Disconnect();
    }
}

class KeepAliveTest : public HttpClientTest {
  protected:
    void SetUp() override {
        HttpClientTest::SetUp();
        client.SetTickSourceForTesting(FakeTick);
        Serve(HttpTestServer::RespondToEach(kOkKeepAlive));
    }
};

TEST_F(KeepAliveTest, ReusedOneMillisecondUnderTheLimitAndReopenedAtIt) {
    client.SetKeepAliveTimeout(100);
    fakeNow = 1000;
    ASSERT_EQ(Get(true), net::kResultOk);
    ASSERT_TRUE(client.IsConnected());
    fakeNow = 1099;
    ASSERT_EQ(Get(true), net::kResultOk);
    EXPECT_EQ(server.ConnectionCount(), 1u);
    // Last use is now 1099; the limit is reached at 1199.
    fakeNow = 1199;
    ASSERT_EQ(Get(true), net::kResultOk);
    EXPECT_TRUE(qz_test::WaitUntil([&] { return server.ConnectionCount() == 2; }));
    EXPECT_EQ(server.ReceivedOn(0).find("GET / HTTP/1.1"), 0u);
    EXPECT_NE(server.ReceivedOn(0).find("GET / HTTP/1.1", 1), std::string::npos);
}

TEST_F(KeepAliveTest, IdleTimeAcrossTheTickWrap) {
    // From 0xFFFFFFF0 to 4 counts as 19 ms, to 5 as 20 ms.
    client.SetKeepAliveTimeout(20);
    fakeNow = 0xFFFFFFF0u;
    ASSERT_EQ(Get(true), net::kResultOk);
    fakeNow = 4;
    ASSERT_EQ(Get(true), net::kResultOk);
    EXPECT_EQ(server.ConnectionCount(), 1u);

    client.Disconnect();
    fakeNow = 0xFFFFFFF0u;
    ASSERT_EQ(Get(true), net::kResultOk);
    fakeNow = 5;
    ASSERT_EQ(Get(true), net::kResultOk);
    EXPECT_TRUE(qz_test::WaitUntil([&] { return server.ConnectionCount() == 3; }));
}

TEST_F(KeepAliveTest, LimitZeroReconnectsEveryTime) {
    client.SetKeepAliveTimeout(0);
    fakeNow = 500;
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(Get(true), net::kResultOk);
    }
    EXPECT_TRUE(qz_test::WaitUntil([&] { return server.ConnectionCount() == 3; }));
}

TEST_F(KeepAliveTest, RequestWithoutKeepAliveDoesNotReuse) {
    fakeNow = 500;
    ASSERT_EQ(Get(true), net::kResultOk);
    ASSERT_TRUE(client.IsConnected());
    ASSERT_EQ(Get(false), net::kResultOk);
    EXPECT_FALSE(client.IsConnected());
    EXPECT_TRUE(qz_test::WaitUntil([&] { return server.ConnectionCount() == 2; }));
}

TEST_F(KeepAliveTest, LimitMayChangeFromAnotherThread) {
    fakeNow = 500;
    ASSERT_EQ(Get(true), net::kResultOk);
    std::thread pusher([&] { client.SetKeepAliveTimeout(0); });
    pusher.join();
    ASSERT_EQ(Get(true), net::kResultOk);
    EXPECT_TRUE(qz_test::WaitUntil([&] { return server.ConnectionCount() == 2; }));
}

TEST_F(HttpClientTest, KeptConnectionClosedByPeerFailsTheNextRequest) {
    // The server offers keep-alive but closes after one answer: the reuse is unchecked and the
    // next request on it fails.
    Serve(HttpTestServer::Respond(kOkKeepAlive));
    ASSERT_EQ(Get(true), net::kResultOk);
    ASSERT_TRUE(client.IsConnected());
    EXPECT_EQ(Get(true), net::kResultReceiveFailed);
    EXPECT_FALSE(client.IsConnected());
    EXPECT_EQ(server.ConnectionCount(), 1u);
}

TEST_F(HttpClientTest, WorksOnAnyLoopbackAddress) {
    HttpTestServer other;
    ASSERT_TRUE(other.Start(HttpTestServer::Respond(kOk), "127.0.0.2"));
    client.SetHost("127.0.0.2");
    client.SetPort(other.port());
    EXPECT_EQ(Get(), net::kResultOk);
    EXPECT_NE(other.ReceivedOn(0).find("Host: 127.0.0.2\r\n"), std::string::npos);
}

}  // namespace
}  // namespace qzdata_report_kelvo
