#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <vector>

#include "net/constants.h"
#include "net/http_client.h"
#include "net/tls_library.h"
#include "net/tls_test_server.h"
#include "support/http_test_server.h"
#include "support/wait.h"

namespace qzdata_report_kelvo {
namespace {

using qz_test::HttpTestServer;
using Clock = std::chrono::steady_clock;

constexpr uint32_t kTimeoutMs = 300;
const std::string kOk = "HTTP/1.1 200 OK\r\nContent-Length: 7\r\n\r\n{\"a\":1}";

long ElapsedMs(Clock::time_point start) {
    return static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
}

TlsLibrary& Tls() {
    return TlsLibrary::Instance();
}

class TlsClientTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(CHttpClient::StartupWinsock());
        CHttpClient_https::StartupTls(false);
        ASSERT_TRUE(TlsTransport::HasContext()) << "the TLS library could not be loaded";
        client.SetHost("127.0.0.1");
        client.SetTimeout(kTimeoutMs);
    }
    void TearDown() override {
        Tls().NewForTesting().ReplaceForTesting(nullptr);
        Tls().SetFdForTesting().ReplaceForTesting(nullptr);
        Tls().ShutdownForTesting().ReplaceForTesting(nullptr);
        client.Disconnect();
        CHttpClient_https::CleanupTls();
    }

    void Serve(HttpTestServer::Handler handler) {
        ASSERT_TRUE(server.Start(std::move(handler)));
        client.SetPort(server.port());
    }

    int Get(bool keepAlive = false) {
        return client.Request(keepAlive, false, "/api/getDeviceConfig?sys=10", "", status,
                              serverKeepAlive, true, body);
    }

    HttpTestServer server;
    CHttpClient_https client{true};
    uint32_t status = 0;
    bool serverKeepAlive = false;
    std::string body;
};

TEST_F(TlsClientTest, DefaultPortIs443) {
    CHttpClient_https fresh(true);
    fresh.SetHost("127.0.0.1");
    fresh.SetTimeout(100);
    // Nothing listens there in the test environment, or it does not speak to us: either way the
    // attempt goes to port 443 of the loopback and ends within the time-out.
    HttpTestServer probe;
    if (!probe.Start(HttpTestServer::Silent(), "127.0.0.1", 443)) {
        GTEST_SKIP() << "port 443 cannot be bound here";
    }
    uint32_t s = 0;
    bool k = false;
    std::string b;
    EXPECT_EQ(fresh.Request(false, false, "/", "", s, k, false, b), net::kResultHandshakeTimedOut);
    EXPECT_EQ(probe.ConnectionCount(), 1u);
}

TEST_F(TlsClientTest, RequestOverTls) {
    Serve(qz_test::TlsRespond(kOk));
    EXPECT_EQ(Get(), net::kResultOk);
    EXPECT_EQ(status, 200u);
    EXPECT_EQ(body, "{\"a\":1}");
    EXPECT_FALSE(client.IsConnected());
}

TEST_F(TlsClientTest, StatusAndMalformedCodesStayOverTls) {
    struct Case {
        const char* name;
        std::string reply;
        int code;
        uint32_t status;
    };
    const Case cases[] = {
        {"not found", "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n",
         net::kResultStatusNotOk, 404},
        {"malformed", "NOTHTTP\r\n\r\n", net::kResultMalformed, 0},
        {"closed early", "HTTP/1.1 200 OK\r\nContent-Length: 50\r\n\r\nshort",
         net::kResultTlsReadFailed, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        HttpTestServer peer;
        ASSERT_TRUE(peer.Start(qz_test::TlsRespond(c.reply)));
        client.SetPort(peer.port());
        EXPECT_EQ(Get(), c.code);
        EXPECT_EQ(status, c.status);
        EXPECT_FALSE(client.IsConnected());
    }
}

TEST_F(TlsClientTest, LibraryAbsentGives19WithoutContact) {
    CHttpClient_https::CleanupTls();
    Tls().OverrideNamesForTesting({"libqz-no-such-ssl.so.0"});
    CHttpClient_https::StartupTls(false);
    const bool hasContext = TlsTransport::HasContext();
    Serve(qz_test::TlsRespond(kOk));
    const int code = Get();

    Tls().OverrideNamesForTesting({});
    CHttpClient_https::CleanupTls();
    CHttpClient_https::StartupTls(false);

    EXPECT_FALSE(hasContext);
    EXPECT_EQ(code, net::kResultNoTlsContext);
    EXPECT_FALSE(qz_test::WaitUntil([&] { return server.ConnectionCount() > 0; }, 100));
    ASSERT_TRUE(TlsTransport::HasContext());
    EXPECT_EQ(Get(), net::kResultOk);
}

TEST_F(TlsClientTest, NotStartedGives1) {
    CHttpClient_https::CleanupTls();
    EXPECT_EQ(Get(), net::kResultNotStarted);
}

TEST_F(TlsClientTest, StartupWithItsOwnSocketLayer) {
    CHttpClient_https::CleanupTls();
    CHttpClient_https::StartupTls(true);
    EXPECT_TRUE(TlsTransport::IsStarted());
    EXPECT_TRUE(TlsTransport::HasContext());
    // A second start keeps the context it has.
    CHttpClient_https::StartupTls(true);
    Serve(qz_test::TlsRespond(kOk));
    EXPECT_EQ(Get(), net::kResultOk);
    CHttpClient_https::CleanupTls();
    EXPECT_FALSE(TlsTransport::IsStarted());
    EXPECT_FALSE(TlsTransport::HasContext());
}

SslSession* NoSession(SslContext*) {
    return nullptr;
}
int RefuseDescriptor(SslSession*, int) {
    return 0;
}

TEST_F(TlsClientTest, SessionSetupFailuresGive20And21BeforeConnecting) {
    Serve(qz_test::TlsRespond(kOk));
    Tls().NewForTesting().ReplaceForTesting(NoSession);
    EXPECT_EQ(Get(), net::kResultTlsNewFailed);
    Tls().NewForTesting().ReplaceForTesting(nullptr);

    Tls().SetFdForTesting().ReplaceForTesting(RefuseDescriptor);
    EXPECT_EQ(Get(), net::kResultTlsSetFdFailed);
    Tls().SetFdForTesting().ReplaceForTesting(nullptr);

    EXPECT_FALSE(client.IsConnected());
    EXPECT_FALSE(qz_test::WaitUntil([&] { return server.ConnectionCount() > 0; }, 100));
}

TEST_F(TlsClientTest, PeerClosingDuringTheHandshakeGives22) {
    Serve(qz_test::CloseDuringHandshake());
    EXPECT_EQ(Get(), net::kResultHandshakeFailed);
    EXPECT_FALSE(client.IsConnected());
}

TEST_F(TlsClientTest, StalledHandshakeGives23AfterTheTimeout) {
    Serve(HttpTestServer::Silent());
    const auto start = Clock::now();
    EXPECT_EQ(Get(), net::kResultHandshakeTimedOut);
    const long elapsed = ElapsedMs(start);
    EXPECT_GE(elapsed, static_cast<long>(kTimeoutMs) - 10);
    EXPECT_LT(elapsed, static_cast<long>(kTimeoutMs) + 1500);
}

TEST_F(TlsClientTest, PeerResetAfterHandshakeGives24) {
    Serve(qz_test::TlsHandshakeThenReset());
    ASSERT_EQ(client.Connect(false), net::kResultOk);
    ASSERT_TRUE(qz_test::WaitUntil([&] { return server.FinishedCount() == 1; }));
    EXPECT_EQ(client.SendRequest(false, false, "/", ""), net::kResultTlsWriteFailed);
    client.Disconnect();
}

TEST_F(TlsClientTest, PeerThatStopsReadingGives25) {
    Serve(qz_test::TlsHandshakeThenStall());
    const std::string big(32u << 20, 'p');
    EXPECT_EQ(client.Request(false, true, "/up", big, status, serverKeepAlive, false, body),
              net::kResultTlsSendTimedOut);
}

TEST_F(TlsClientTest, SilentPeerAfterHandshakeGives27) {
    Serve(qz_test::TlsHandshakeThenStall());
    const auto start = Clock::now();
    EXPECT_EQ(Get(), net::kResultTlsReceiveTimedOut);
    EXPECT_GE(ElapsedMs(start), static_cast<long>(kTimeoutMs) - 10);
}

// SSL_shutdown stand-in: does the real shutdown, then reports what the test scripted for the
// first call of each connection.
std::atomic<int> firstShutdownResult{1};
std::atomic<int> shutdownCallsThisConnection{0};
int ScriptedShutdown(SslSession* session) {
    Tls().ShutdownForTesting().Original()(session);
    return shutdownCallsThisConnection.fetch_add(1) == 0 ? firstShutdownResult.load() : 1;
}

TEST_F(TlsClientTest, ShutdownRepeatedOnlyWhenTheFirstCallReturnedZero) {
    Serve(qz_test::TlsRespond(kOk));
    Tls().ShutdownForTesting().ReplaceForTesting(ScriptedShutdown);
    for (int first : {1, 0}) {
        SCOPED_TRACE(first);
        HttpTestServer peer;
        ASSERT_TRUE(peer.Start(qz_test::TlsRespond(kOk)));
        client.SetPort(peer.port());
        firstShutdownResult = first;
        shutdownCallsThisConnection = 0;
        const uint32_t before = Tls().ShutdownForTesting().CallCount();
        ASSERT_EQ(Get(), net::kResultOk);
        EXPECT_EQ(Tls().ShutdownForTesting().CallCount() - before, first == 0 ? 2u : 1u);
    }
}

}  // namespace
}  // namespace qzdata_report_kelvo
