#include "net/tls_transport.h"

#include <atomic>

#include "net/ticks.h"
#include "port/env.h"

namespace qzdata_report_kelvo {

namespace {

std::atomic<bool> tlsStarted{false};
std::atomic<bool> ownSocketLayer{false};
std::atomic<SslContext*> tlsContext{nullptr};

TlsLibrary& Library() {
    return TlsLibrary::Instance();
}

}  // namespace

void TlsTransport::Startup(bool startWinsock) {
    if (!startWinsock) {
        tlsStarted.store(true, std::memory_order_release);
    } else if (!tlsStarted.load(std::memory_order_acquire) &&
               port::SocketStartup(net::kSocketVersion) == 0) {
        ownSocketLayer.store(true, std::memory_order_release);
        tlsStarted.store(true, std::memory_order_release);
    }
    if (tlsContext.load(std::memory_order_acquire) == nullptr) {
        const SslMethod* method = Library().SSLv23_client_method();
        SslContext* context = Library().SSL_CTX_new(method);
        if (context == nullptr) {
            Library().SSL_library_init();
            context = Library().SSL_CTX_new(method);
        }
        tlsContext.store(context, std::memory_order_release);
    }
}

void TlsTransport::Cleanup() {
    if (SslContext* context = tlsContext.exchange(nullptr, std::memory_order_acq_rel)) {
        Library().SSL_CTX_free(context);
    }
    if (ownSocketLayer.exchange(false, std::memory_order_acq_rel)) {
        port::SocketCleanup();
    }
    tlsStarted.store(false, std::memory_order_release);
}

bool TlsTransport::IsStarted() {
    return tlsStarted.load(std::memory_order_acquire);
}

bool TlsTransport::HasContext() {
    return tlsContext.load(std::memory_order_acquire) != nullptr;
}

int TlsTransport::CheckAvailable() {
    if (!IsStarted()) {
        return net::kResultNotStarted;
    }
    return HasContext() ? net::kResultOk : net::kResultNoTlsContext;
}

TlsTransport::~TlsTransport() {
    EndClose();
}

int TlsTransport::Attach(port::SocketHandle socket) {
    if (session == nullptr) {
        session = Library().SSL_new(tlsContext.load(std::memory_order_acquire));
        if (session == nullptr) {
            return net::kResultTlsNewFailed;
        }
    }
    if (Library().SSL_set_fd(session, static_cast<int>(socket)) != 1) {
        return net::kResultTlsSetFdFailed;
    }
    return net::kResultOk;
}

int TlsTransport::Handshake(port::SocketHandle /*socket*/, uint32_t timeoutMs) {
    const uint32_t start = port::GetTickCount();
    for (;;) {
        const int result =
            port::RunWithoutBrokenPipeSignal([this] { return Library().SSL_connect(session); });
        if (result == 1) {
            return net::kResultOk;
        }
        if (result == 0 || !WouldBlock(result)) {
            return net::kResultHandshakeFailed;
        }
        if (net::ElapsedTicks(start, port::GetTickCount()) >= timeoutMs) {
            return net::kResultHandshakeTimedOut;
        }
        port::Sleep(1);
    }
}

int TlsTransport::Write(port::SocketHandle /*socket*/, const char* data, int size) {
    return port::RunWithoutBrokenPipeSignal(
        [&] { return Library().SSL_write(session, data, size); });
}

int TlsTransport::Read(port::SocketHandle /*socket*/, char* buffer, int size) {
    // A read may send an alert, and so write to a socket whose peer is gone.
    return port::RunWithoutBrokenPipeSignal(
        [&] { return Library().SSL_read(session, buffer, size); });
}

bool TlsTransport::WouldBlock(int result) {
    const int error = Library().SSL_get_error(session, result);
    return error == net::kTlsWantRead || error == net::kTlsWantWrite;
}

void TlsTransport::BeginClose() {
    if (session == nullptr) {
        return;
    }
    port::RunWithoutBrokenPipeSignal([this] {
        if (Library().SSL_shutdown(session) == 0) {
            Library().SSL_shutdown(session);
        }
        return 0;
    });
}

void TlsTransport::EndClose() {
    if (session != nullptr) {
        Library().SSL_free(session);
        session = nullptr;
    }
}

}  // namespace qzdata_report_kelvo
