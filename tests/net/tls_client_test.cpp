#include <gtest/gtest.h>

#include <atomic>
#include <string>

#include "net/http_client.h"
#include "net/net_test_util.h"
#include "net/tls_library.h"
#include "net/tls_test_server.h"
#include "support/http_test_server.h"
#include "support/wait.h"

namespace qzdata_report_kelvo {
namespace {

using namespace net_test;
using qz_test::HttpTestServer;
using qz_test::WaitUntil;

constexpr uint32_t kTimeoutMs = 300;

TlsLibrary& Tls() {
    return TlsLibrary::Instance();
}

class TlsClientTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(CHttpClient::StartupWinsock());
        CHttpClient_https::StartupTls(false);
        ASSERT_TRUE(TlsTransport::HasContext()) << "the TLS library could not be loaded";
    }
    void TearDown() override {
        Tls().NewForTesting().ReplaceForTesting(nullptr);
        Tls().SetFdForTesting().ReplaceForTesting(nullptr);
        Tls().ShutdownForTesting().ReplaceForTesting(nullptr);
        client.Disconnect();
        CHttpClient_https::CleanupTls();
    }
    void Serve(HttpTestServer::Handler handler) {
        server = std::make_unique<HttpTestServer>();
        ASSERT_TRUE(server->Start(std::move(handler)));
        Aim(client, server->port(), kTimeoutMs);
    }
    bool Contacted() {
        return WaitUntil([&] { return server->ConnectionCount() > 0; }, 100);
    }

    std::unique_ptr<HttpTestServer> server;
    CHttpClient_https client{true};
};

struct TlsCase {
    std::function<HttpTestServer::Handler()> peer;
    int code;
    uint32_t status;
    std::string body;
};

TEST_F(TlsClientTest, OutcomesOverTls) {
    const TlsCase cases[] = {
        {[] { return qz_test::TlsRespond(kOk); }, 0, 200, "ok"},
        {[] { return qz_test::TlsRespond("HTTP/1.1 404 Not Found\r\n\r\n"); }, 15, 404, ""},
        {[] { return qz_test::TlsRespond("NOTHTTP\r\n\r\n"); }, 14, 0, ""},
        {[] { return qz_test::TlsRespond("HTTP/1.1 200 OK\r\nContent-Length: 50\r\n\r\nab"); },
         net::kResultTlsReadFailed, 0, ""},
        {qz_test::CloseDuringHandshake, net::kResultHandshakeFailed, 0, ""},
        {qz_test::TlsHandshakeThenStall, net::kResultTlsReceiveTimedOut, 0, ""},
    };
    for (const TlsCase& c : cases) {
        SCOPED_TRACE(c.code);
        Serve(c.peer());
        const Reply reply = Fetch(client, false, false, "/api/getDeviceConfig?sys=10");
        EXPECT_EQ(reply.code, c.code);
        EXPECT_EQ(reply.status, c.status);
        EXPECT_EQ(reply.body, c.body);
        EXPECT_FALSE(client.IsConnected());
    }
}

TEST_F(TlsClientTest, StalledHandshakeGives23AfterTheTimeout) {
    Serve(HttpTestServer::Silent());
    const auto start = Clock::now();
    EXPECT_EQ(Fetch(client).code, net::kResultHandshakeTimedOut);
    EXPECT_GE(ElapsedMs(start), static_cast<long>(kTimeoutMs) - 10);
    EXPECT_LT(ElapsedMs(start), static_cast<long>(kTimeoutMs) + 1500);
}

TEST_F(TlsClientTest, WriteFailures) {
    Serve(qz_test::TlsHandshakeThenReset());
    ASSERT_EQ(client.Connect(false), 0);
    ASSERT_TRUE(WaitUntil([&] { return server->FinishedCount() == 1; }));
    EXPECT_EQ(client.SendRequest(false, false, "/", ""), net::kResultTlsWriteFailed);
    client.Disconnect();

    Serve(qz_test::TlsHandshakeThenStall());
    EXPECT_EQ(Fetch(client, false, true, "/up", std::string(32u << 20, 'p')).code,
              net::kResultTlsSendTimedOut);
}

TEST_F(TlsClientTest, StartAndLibraryStates) {
    Serve(qz_test::TlsRespond(kOk));
    CHttpClient_https::CleanupTls();
    EXPECT_EQ(Fetch(client).code, net::kResultNotStarted);

    Tls().OverrideNamesForTesting({"libqz-no-such-ssl.so.0"});
    CHttpClient_https::StartupTls(false);
    EXPECT_FALSE(TlsTransport::HasContext());
    EXPECT_EQ(Fetch(client).code, net::kResultNoTlsContext);
    EXPECT_FALSE(Contacted());

    // Starting with its own socket layer, once the library is back.
    Tls().OverrideNamesForTesting({});
    CHttpClient_https::CleanupTls();
    CHttpClient_https::StartupTls(true);
    CHttpClient_https::StartupTls(true);
    EXPECT_EQ(Fetch(client).code, 0);
    CHttpClient_https::CleanupTls();
    EXPECT_FALSE(TlsTransport::IsStarted() || TlsTransport::HasContext());
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
    EXPECT_EQ(Fetch(client).code, net::kResultTlsNewFailed);
    Tls().NewForTesting().ReplaceForTesting(nullptr);
    Tls().SetFdForTesting().ReplaceForTesting(RefuseDescriptor);
    EXPECT_EQ(Fetch(client).code, net::kResultTlsSetFdFailed);
    EXPECT_FALSE(Contacted());
}

// Does the real shutdown, then reports what the test scripted for the first call.
std::atomic<int> firstShutdownResult{1};
std::atomic<int> shutdownCalls{0};
int ScriptedShutdown(SslSession* session) {
    Tls().ShutdownForTesting().Original()(session);
    return shutdownCalls.fetch_add(1) == 0 ? firstShutdownResult.load() : 1;
}

TEST_F(TlsClientTest, ShutdownRepeatedOnlyWhenTheFirstCallReturnedZero) {
    Tls().ShutdownForTesting().ReplaceForTesting(ScriptedShutdown);
    for (int first : {1, 0}) {
        Serve(qz_test::TlsRespond(kOk));
        firstShutdownResult = first;
        shutdownCalls = 0;
        const uint32_t before = Tls().ShutdownForTesting().CallCount();
        ASSERT_EQ(Fetch(client).code, 0);
        EXPECT_EQ(Tls().ShutdownForTesting().CallCount() - before, first == 0 ? 2u : 1u);
    }
}

}  // namespace
}  // namespace qzdata_report_kelvo
