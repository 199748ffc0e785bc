// The TLS transport of CHttpClient_https: a session of the run-time-bound TLS library over the
// client's socket. No certificate is loaded or verified and no server name is sent: any server
// certificate is accepted.
#pragma once

#include <cstdint>

#include "net/constants.h"
#include "net/tls_library.h"
#include "port/socket_api.h"

namespace qzdata_report_kelvo {

// Used by one client on that client's thread; the start-up state and the one TLS context are
// process-wide and shared by all TLS clients.
class TlsTransport {
  public:
    static constexpr uint16_t kDefaultPort = net::kDefaultHttpsPort;
    static constexpr int kSendFailed = net::kResultTlsWriteFailed;
    static constexpr int kSendTimedOut = net::kResultTlsSendTimedOut;
    static constexpr int kReceiveFailed = net::kResultTlsReadFailed;
    static constexpr int kReceiveTimedOut = net::kResultTlsReceiveTimedOut;
    static constexpr bool kPauseEachRound = true;

    TlsTransport() = default;
    ~TlsTransport();
    TlsTransport(const TlsTransport&) = delete;
    TlsTransport& operator=(const TlsTransport&) = delete;

    // With `startWinsock`, starts the socket layer itself unless TLS is started already (a
    // failed start leaves TLS not started); without, takes the socket layer as started by
    // PlainTransport::Startup. Then makes the process's TLS context if there is none: first
    // tries, and initialises the library only if that failed. The context stays null when the
    // library is unavailable. Not locked: runs while no client is in use.
    static void Startup(bool startWinsock);
    // Frees the context, stops the socket layer if Startup started it, clears the started flag.
    // The library itself stays loaded.
    static void Cleanup();
    static bool IsStarted();
    static bool HasContext();

    // 0 when a connection may be made; net::kResultNotStarted or net::kResultNoTlsContext.
    static int CheckAvailable();

    // Before connect: makes the session if the client has none and gives it the socket.
    // 0, net::kResultTlsNewFailed or net::kResultTlsSetFdFailed.
    int Attach(port::SocketHandle socket);
    // After connect: the handshake, polled with 1 ms sleeps until it ends or `timeoutMs` passed
    // by `now`. 0, net::kResultHandshakeFailed or net::kResultHandshakeTimedOut.
    int Handshake(port::SocketHandle socket, uint32_t timeoutMs);

    // Byte count, 0, or negative; WouldBlock tells a negative result that may be retried.
    int Write(port::SocketHandle socket, const char* data, int size);
    int Read(port::SocketHandle socket, char* buffer, int size);
    bool WouldBlock(int result);

    // Before the socket closes: the TLS shutdown, a second call only when the first returned 0.
    void BeginClose();
    // After the socket closed: frees the session, so each connection gets a new one.
    void EndClose();

  private:
    SslSession* session = nullptr;
};

}  // namespace qzdata_report_kelvo
