#include "net/tls_library.h"

#include "port/dynamic_library.h"

namespace qzdata_report_kelvo {

TlsLibrary& TlsLibrary::Instance() {
    // Never destroyed: a look-up or client thread may still call in while the process exits.
    static TlsLibrary* instance = new TlsLibrary();
    return *instance;
}

TlsLibrary::TlsLibrary()
    : library(port::SslLibraryNames),
      sslLibraryInit(library, "SSL_library_init"),
      opensslInitSsl(library, "OPENSSL_init_ssl"),
      sslv23ClientMethod(library, "SSLv23_client_method"),
      tlsClientMethod(library, "TLS_client_method"),
      sslCtxNew(library, "SSL_CTX_new"),
      sslCtxFree(library, "SSL_CTX_free"),
      sslNew(library, "SSL_new"),
      sslSetFd(library, "SSL_set_fd"),
      sslConnect(library, "SSL_connect"),
      sslRead(library, "SSL_read"),
      sslWrite(library, "SSL_write"),
      sslGetError(library, "SSL_get_error"),
      sslShutdown(library, "SSL_shutdown"),
      sslFree(library, "SSL_free") {}

int TlsLibrary::SSL_library_init() {
    if (auto init = sslLibraryInit.Get()) {
        return init();
    }
    // Newer libraries keep the old name only as a macro over this call.
    if (auto init = opensslInitSsl.get()) {
        return init(0, nullptr);
    }
    return -1;
}

const SslMethod* TlsLibrary::SSLv23_client_method() {
    if (auto method = sslv23ClientMethod.Get()) {
        return method();
    }
    // Newer libraries keep the old name only as a macro over this one.
    if (auto method = tlsClientMethod.get()) {
        return method();
    }
    return nullptr;
}

SslContext* TlsLibrary::SSL_CTX_new(const SslMethod* method) {
    return Call(sslCtxNew, nullptr, method);
}

void TlsLibrary::SSL_CTX_free(SslContext* context) {
    CallVoid(sslCtxFree, context);
}

SslSession* TlsLibrary::SSL_new(SslContext* context) {
    return Call(sslNew, nullptr, context);
}

int TlsLibrary::SSL_set_fd(SslSession* session, int fd) {
    return Call(sslSetFd, -1, session, fd);
}

int TlsLibrary::SSL_connect(SslSession* session) {
    return Call(sslConnect, -1, session);
}

int TlsLibrary::SSL_read(SslSession* session, void* buffer, int size) {
    return Call(sslRead, -1, session, buffer, size);
}

int TlsLibrary::SSL_write(SslSession* session, const void* data, int size) {
    return Call(sslWrite, -1, session, data, size);
}

int TlsLibrary::SSL_get_error(const SslSession* session, int result) {
    return Call(sslGetError, -1, session, result);
}

int TlsLibrary::SSL_shutdown(SslSession* session) {
    return Call(sslShutdown, -1, session);
}

void TlsLibrary::SSL_free(SslSession* session) {
    CallVoid(sslFree, session);
}

void TlsLibrary::OverrideNamesForTesting(std::vector<std::string> fileNames) {
    if (fileNames.empty()) {
        fileNames = port::SslLibraryNames();
    }
    library.OverrideNamesForTesting(std::move(fileNames));
}

}  // namespace qzdata_report_kelvo
