#include "net/tls_test_server.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
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

}  // namespace

HttpTestServer::Handler TlsPeer(TlsThen then, std::string reply) {
    return [then, reply](TestConnection& connection) {
        timeval limit{kServerIoTimeoutMs / 1000, 0};
        setsockopt(connection.fd(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
        setsockopt(connection.fd(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
        SSL_CTX* context = ServerContext();
        std::unique_ptr<SSL, void (*)(SSL*)> session(context ? SSL_new(context) : nullptr,
                                                     SSL_free);
        if (!session || SSL_set_fd(session.get(), connection.fd()) != 1 ||
            SSL_accept(session.get()) != 1) {
            ERR_clear_error();
        } else if (then == TlsThen::Reset) {
            connection.Reset();
        } else if (then == TlsThen::Stall) {
            connection.Stall();
        } else {
            // Reads the request head (the clients' requests here carry no body), then answers.
            std::string received;
            char buffer[1024];
            int count = 1;
            while (count > 0 && received.find("\r\n\r\n") == std::string::npos) {
                count = SSL_read(session.get(), buffer, sizeof(buffer));
                received.append(buffer, static_cast<size_t>(std::max(count, 0)));
            }
            if (count > 0) {
                SSL_write(session.get(), reply.data(), static_cast<int>(reply.size()));
            }
            SSL_shutdown(session.get());
            ERR_clear_error();
            connection.WaitForPeerClose();
        }
    };
}

}  // namespace qz_test
