#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>

#include "net/net_test_util.h"
#include "net/tls_library.h"

// The server side's own TLS library; last, as its macros would rename the client's declarations.
#include <openssl/ssl.h>

namespace qzdata_report_kelvo {
namespace {

using namespace net_test;

// A TLS peer (key and certificate of data/): after the handshake it answers one request with
// `reply` and closes the session, resets the connection, or holds it without reading.
enum class TlsThen { Respond, Reset, Stall };
HttpTestServer::Handler TlsPeer(TlsThen then, std::string reply = "") {
    return [then, reply](qz_test::TestConnection& connection) {
        static SSL_CTX* const context = [] {
            SSL_CTX* made = SSL_CTX_new(TLS_server_method());
            SSL_CTX_use_certificate_chain_file(made, QZ_NET_TEST_DATA "/tls_peer.pem");
            SSL_CTX_use_PrivateKey_file(made, QZ_NET_TEST_DATA "/tls_peer.pem", SSL_FILETYPE_PEM);
            return made;
        }();
        // A blocking TLS call ends when the server stops: it shuts the socket down.
        std::unique_ptr<SSL, void (*)(SSL*)> session(SSL_new(context), SSL_free);
        char head[4096];
        if (!session || SSL_set_fd(session.get(), connection.fd()) != 1 ||
            SSL_accept(session.get()) != 1) {  // no handshake: nothing to do
        } else if (then == TlsThen::Reset) {
            connection.Reset();
        } else if (then == TlsThen::Stall) {
            connection.Stall();
        } else if (SSL_read(session.get(), head, sizeof(head)) > 0) {  // the head: one record
            SSL_write(session.get(), reply.data(), static_cast<int>(reply.size()));
            SSL_shutdown(session.get());
            connection.WaitForPeerClose();
        }
    };
}

struct TlsClientTest : ClientTest<CHttpClient_https> {
    void SetUp() override {
        ClientTest::SetUp();
        CHttpClient_https::StartupTls(false);
        ASSERT_TRUE(TlsTransport::HasContext()) << "the TLS library could not be loaded";
    }
    void TearDown() override { client.Disconnect(), CHttpClient_https::CleanupTls(); }
};

// The outcomes of TLS itself (the others are the plain client's); time-outs after the time-out.
TEST_F(TlsClientTest, OutcomesOverTls) {
    const std::tuple<HttpTestServer::Handler, int, long> cases[] = {
        {TlsPeer(TlsThen::Respond, "HTTP/1.1 200 OK\r\nContent-Length: 50\r\n\r\nab"),
         net::kResultTlsReadFailed, 0},
        {HttpTestServer::ResetAtOnce(), net::kResultHandshakeFailed, 0},
        {TlsPeer(TlsThen::Stall), net::kResultTlsReceiveTimedOut, kTimeoutMs - 10},
        {HttpTestServer::Silent(), net::kResultHandshakeTimedOut, kTimeoutMs - 10}};
    for (const auto& [peer, code, leastMs] : cases) {
        Serve(peer);
        const Reply r(client);
        EXPECT_EQ(r.code, code);
        EXPECT_TRUE(r.ms >= leastMs && r.ms < kTimeoutMs + 1500) << code << ": " << r.ms;
    }
    ExpectSendFailures(TlsPeer(TlsThen::Reset), TlsPeer(TlsThen::Stall), net::kResultTlsWriteFailed,
                       net::kResultTlsSendTimedOut);
}

}  // namespace
}  // namespace qzdata_report_kelvo
