// Fixed values of the network client: result codes, defaults and the two socket error values the
// logic knows. The result codes leave the program in failure lines, so their numbers never change.
#pragma once

#include <cstdint>

namespace qzdata_report_kelvo {
namespace net {

// Result codes of Connect, SendRequest, ReceiveResponse and Request.
enum ResultCode : int {
    kResultOk = 0,
    kResultNotStarted = 1,           // socket (or TLS) start-up has not succeeded
    kResultEmptyHost = 2,            // the host is empty
    kResultResolveFailed = 3,        // a look-up on the calling thread failed or gave no list
    kResultLookupEmpty = 4,          // the look-up thread ended and left no list
    kResultLookupTimedOut = 5,       // the look-up thread did not end within the time-out
    kResultSocketFailed = 6,         // socket creation failed
    kResultNonBlockingFailed = 7,    // switching to non-blocking mode failed
    kResultConnectFailed = 8,        // connect failed at once with a real error
    kResultConnectTimedOut = 9,      // the socket did not become writable within the time-out
    kResultSendFailed = 10,          // send failed, returned 0 or an impossible count
    kResultSendTimedOut = 11,        // no send progress for the time-out
    kResultReceiveFailed = 12,       // recv failed, the peer closed early, or an impossible count
    kResultReceiveTimedOut = 13,     // the response stayed incomplete for the time-out
    kResultMalformed = 14,           // the response is malformed
    kResultStatusNotOk = 15,         // the response is complete and its status is not 200
    kResultHolderAllocation = 16,    // the address holder could not be allocated
    kResultNoAddress = 17,           // the holder was empty at the moment of connecting
    kResultLookupAllocation = 18,    // the look-up data could not be allocated
    kResultNoTlsContext = 19,        // TLS is not available in this process
    kResultTlsNewFailed = 20,        // no TLS session could be made
    kResultTlsSetFdFailed = 21,      // the session could not take the socket
    kResultHandshakeFailed = 22,     // the TLS handshake failed
    kResultHandshakeTimedOut = 23,   // the TLS handshake did not end within the time-out
    kResultTlsWriteFailed = 24,      // a TLS write failed
    kResultTlsSendTimedOut = 25,     // no TLS write progress for the time-out
    kResultTlsReadFailed = 26,       // a TLS read failed or the session ended early
    kResultTlsReceiveTimedOut = 27,  // the response stayed incomplete for the time-out (TLS)
};

// Socket error values as the logic sees them, whatever the platform reports.
inline constexpr int kErrorWouldBlock = 10035;   // WSAEWOULDBLOCK
inline constexpr int kErrorIsConnected = 10056;  // WSAEISCONN

// Socket layer version asked for at start-up (2.2).
inline constexpr uint16_t kSocketVersion = 0x202;

inline constexpr uint16_t kDefaultHttpPort = 80;
inline constexpr uint16_t kDefaultHttpsPort = 443;
inline constexpr uint32_t kDefaultTimeoutMs = 2000;
inline constexpr uint32_t kDefaultKeepAliveMs = 60000;

// Size of the receive buffer, and so the most one recv or TLS read returns.
inline constexpr int kReceiveBufferSize = 1024;

// Total time Disconnect spends draining what the peer still sends after our shutdown.
inline constexpr uint32_t kDrainBudgetMs = 500;

// TLS library values: SSL_get_error's want-read and want-write.
inline constexpr int kTlsWantRead = 2;
inline constexpr int kTlsWantWrite = 3;

}  // namespace net
}  // namespace qzdata_report_kelvo
