// The plain transport of CHttpClient: bytes go straight through the socket.
#pragma once

#include <cstdint>

#include "net/constants.h"
#include "port/socket_api.h"

namespace qzdata_report_kelvo {

// Used by one client on that client's thread; the start-up state is process-wide.
class PlainTransport {
  public:
    static constexpr uint16_t kDefaultPort = net::kDefaultHttpPort;
    static constexpr int kSendFailed = net::kResultSendFailed;
    static constexpr int kSendTimedOut = net::kResultSendTimedOut;
    static constexpr int kReceiveFailed = net::kResultReceiveFailed;
    static constexpr int kReceiveTimedOut = net::kResultReceiveTimedOut;
    // Whether each send or receive round that goes on sleeps a millisecond first.
    static constexpr bool kPauseEachRound = false;

    // Starts the socket layer unless it is started; true when it is started afterwards. The
    // flag is not locked: start-up and clean-up run while no client is in use.
    static bool Startup();
    // Stops the socket layer if it was started.
    static void Cleanup();
    static bool IsStarted();

    // 0 when a connection may be made, else the result code that says why not.
    static int CheckAvailable();

    // Before connect, after connect: nothing to do for a plain socket.
    int Attach(port::SocketHandle /*socket*/) { return net::kResultOk; }
    int Handshake(port::SocketHandle /*socket*/, uint32_t /*timeoutMs*/) { return net::kResultOk; }

    // Byte count, 0, or negative; WouldBlock tells a negative result that may be retried.
    int Write(port::SocketHandle socket, const char* data, int size);
    int Read(port::SocketHandle socket, char* buffer, int size);
    bool WouldBlock(int result);

    // Around closing the socket: nothing to do for a plain socket.
    void BeginClose() {}
    void EndClose() {}
};

}  // namespace qzdata_report_kelvo
