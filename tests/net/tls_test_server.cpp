#include "net/tls_test_server.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <memory>

namespace qz_test {

namespace {

// Blocking TLS calls of a handler end at the latest after this, or when the server stops.
constexpr int kServerIoTimeoutMs = 5000;

SSL_CTX* MakeServerContext() {
    EVP_PKEY* key = EVP_EC_gen("P-256");
    X509* certificate = X509_new();
    if (key == nullptr || certificate == nullptr) {
        return nullptr;
    }
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate), -3600);
    X509_gmtime_adj(X509_getm_notAfter(certificate), 3600);
    X509_set_pubkey(certificate, key);
    X509_NAME* name = X509_get_subject_name(certificate);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>("127.0.0.1"), -1, -1, 0);
    X509_set_issuer_name(certificate, name);
    X509_sign(certificate, key, EVP_sha256());

    SSL_CTX* context = SSL_CTX_new(TLS_server_method());
    if (context != nullptr && (SSL_CTX_use_certificate(context, certificate) != 1 ||
                               SSL_CTX_use_PrivateKey(context, key) != 1)) {
        SSL_CTX_free(context);
        context = nullptr;
    }
    X509_free(certificate);
    EVP_PKEY_free(key);
    return context;
}

SSL_CTX* ServerContext() {
    static SSL_CTX* context = MakeServerContext();
    return context;
}

struct SessionDeleter {
    void operator()(SSL* session) const { SSL_free(session); }
};
using Session = std::unique_ptr<SSL, SessionDeleter>;

// A server session over the connection's (blocking) socket after a completed handshake; null
// when the handshake failed.
Session Accept(TestConnection& connection) {
    timeval limit{kServerIoTimeoutMs / 1000, 0};
    setsockopt(connection.fd(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    setsockopt(connection.fd(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
    SSL_CTX* context = ServerContext();
    if (context == nullptr) {
        return nullptr;
    }
    Session session(SSL_new(context));
    if (!session || SSL_set_fd(session.get(), connection.fd()) != 1 ||
        SSL_accept(session.get()) != 1) {
        ERR_clear_error();
        return nullptr;
    }
    return session;
}

// Reads until the head of a request has arrived (the clients' requests here carry no body).
bool ReadRequestHead(SSL* session) {
    std::string received;
    char buffer[1024];
    while (received.find("\r\n\r\n") == std::string::npos) {
        const int count = SSL_read(session, buffer, sizeof(buffer));
        if (count <= 0) {
            return false;
        }
        received.append(buffer, static_cast<size_t>(count));
    }
    return true;
}

}  // namespace

HttpTestServer::Handler TlsRespond(std::string reply) {
    return [reply](TestConnection& connection) {
        Session session = Accept(connection);
        if (!session) {
            return;
        }
        if (ReadRequestHead(session.get())) {
            SSL_write(session.get(), reply.data(), static_cast<int>(reply.size()));
        }
        SSL_shutdown(session.get());
        ERR_clear_error();
        connection.WaitForPeerClose();
    };
}

HttpTestServer::Handler TlsHandshakeThenReset() {
    return [](TestConnection& connection) {
        if (Session session = Accept(connection)) {
            connection.Reset();
        }
    };
}

HttpTestServer::Handler TlsHandshakeThenStall() {
    return [](TestConnection& connection) {
        if (Session session = Accept(connection)) {
            connection.Stall();
        }
    };
}

HttpTestServer::Handler CloseDuringHandshake() {
    return [](TestConnection& connection) { connection.ReadAtLeast(1); };
}

}  // namespace qz_test
