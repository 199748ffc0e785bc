#include <gtest/gtest.h>
#include <sys/socket.h>

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
using qz_test::TlsPeer;
using qz_test::TlsThen;
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

    std::unique_ptr<HttpTestServer> server;
    CHttpClient_https client{true};
};

TEST_F(TlsClientTest, OutcomesOverTls) {
    struct {
        HttpTestServer::Handler peer;
        int code;
        uint32_t status;
        std::string body;
    } const cases[] = {
        {TlsPeer(TlsThen::Respond, kOk), 0, 200, "ok"},
        {TlsPeer(TlsThen::Respond, "HTTP/1.1 404 Not Found\r\n\r\n"), 15, 404, ""},
        {TlsPeer(TlsThen::Respond, "NOTHTTP\r\n\r\n"), 14, 0, ""},
        {TlsPeer(TlsThen::Respond, "HTTP/1.1 200 OK\r\nContent-Length: 50\r\n\r\nab"),
         net::kResultTlsReadFailed, 0, ""},
        // Takes the first bytes of the client's handshake, then closes.
        {[](qz_test::TestConnection& c) {
             char b;
             recv(c.fd(), &b, 1, 0);
         },
         net::kResultHandshakeFailed, 0, ""},
        {TlsPeer(TlsThen::Stall), net::kResultTlsReceiveTimedOut, 0, ""},
        {HttpTestServer::Silent(), net::kResultHandshakeTimedOut, 0, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.code);
        Serve(c.peer);
        const auto start = Clock::now();
        const Reply reply = Fetch(client, false, false, "/api/getDeviceConfig?sys=10");
        EXPECT_EQ(reply.code, c.code);
        EXPECT_EQ(reply.status, c.status);
        EXPECT_EQ(reply.body, c.body);
        EXPECT_FALSE(client.IsConnected());
        // Time-outs come after the time-out, and no outcome takes much longer.
        if (c.code == net::kResultHandshakeTimedOut || c.code == net::kResultTlsReceiveTimedOut) {
            EXPECT_GE(ElapsedMs(start), static_cast<long>(kTimeoutMs) - 10);
        }
        EXPECT_LT(ElapsedMs(start), static_cast<long>(kTimeoutMs) + 1500);
    }
}

TEST_F(TlsClientTest, WriteFailures) {
    Serve(TlsPeer(TlsThen::Reset));
    ASSERT_EQ(client.Connect(false), 0);
    ASSERT_TRUE(WaitUntil([&] { return server->FinishedCount() == 1; }));
    EXPECT_EQ(client.SendRequest(false, false, "/", ""), net::kResultTlsWriteFailed);
    client.Disconnect();

    Serve(TlsPeer(TlsThen::Stall));
    EXPECT_EQ(Fetch(client, false, true, "/up", std::string(32u << 20, 'p')).code,
              net::kResultTlsSendTimedOut);
}

SslSession* NoSession(SslContext*) {
    return nullptr;
}
int RefuseDescriptor(SslSession*, int) {
    return 0;
}

TEST_F(TlsClientTest, FailuresBeforeAnyContact) {
    Serve(TlsPeer(TlsThen::Respond, kOk));
    Tls().NewForTesting().ReplaceForTesting(NoSession);
    EXPECT_EQ(Fetch(client).code, net::kResultTlsNewFailed);
    Tls().NewForTesting().ReplaceForTesting(nullptr);
    Tls().SetFdForTesting().ReplaceForTesting(RefuseDescriptor);
    EXPECT_EQ(Fetch(client).code, net::kResultTlsSetFdFailed);

    CHttpClient_https::CleanupTls();
    EXPECT_EQ(Fetch(client).code, net::kResultNotStarted);
    // The TLS library is absent.
    Tls().OverrideNamesForTesting({"libqz-no-such-ssl.so.0"});
    CHttpClient_https::StartupTls(false);
    Tls().OverrideNamesForTesting({});
    EXPECT_FALSE(TlsTransport::HasContext());
    EXPECT_EQ(Fetch(client).code, net::kResultNoTlsContext);
    EXPECT_FALSE(WaitUntil([&] { return server->ConnectionCount() > 0; }, 100));
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
        Serve(TlsPeer(TlsThen::Respond, kOk));
        firstShutdownResult = first;
        shutdownCalls = 0;
        ASSERT_EQ(Fetch(client).code, 0);
        EXPECT_EQ(shutdownCalls.load(), first == 0 ? 2 : 1);
    }
}

}  // namespace
}  // namespace qzdata_report_kelvo
