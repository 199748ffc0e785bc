#include "port/socket_api.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <mutex>

#include "net/constants.h"

namespace qzdata_report_kelvo {
namespace port {

// The logic compares with these two values; here they are the platform's own.
static_assert(WSAEWOULDBLOCK == net::kErrorWouldBlock, "would-block value");
static_assert(WSAEISCONN == net::kErrorIsConnected, "is-connected value");
static_assert(static_cast<SocketHandle>(INVALID_SOCKET) == kInvalidSocket, "invalid socket");

namespace {

// The seam's opaque node is the platform's addrinfo, and its handle a SOCKET; only these
// three functions convert.
addrinfo* Native(AddrInfo* node) {
    return reinterpret_cast<addrinfo*>(node);
}
const addrinfo* Native(const AddrInfo& node) {
    return reinterpret_cast<const addrinfo*>(&node);
}

SOCKET Native(SocketHandle socket) {
    return static_cast<SOCKET>(socket);
}

// Winsock is started once however many starts nest, and stopped by the clean-up that matches
// the first successful start. A clean-up without a start of ours leaves Winsock alone, so that
// one started by the host process is never taken from it.
std::mutex startMutex;
unsigned startCount = 0;

// Windows select takes any socket value and ignores its first argument, so one socket always
// fits its set.
int WaitFor(SocketHandle socket, uint32_t timeoutMs, bool writable) {
    fd_set set;
    FD_ZERO(&set);
    FD_SET(Native(socket), &set);
    timeval tv{};
    tv.tv_sec = static_cast<long>(timeoutMs / 1000);
    tv.tv_usec = static_cast<long>((timeoutMs % 1000) * 1000);
    const int result =
        select(0, writable ? nullptr : &set, writable ? &set : nullptr, nullptr, &tv);
    return result == SOCKET_ERROR ? -1 : result;
}

}  // namespace

int SocketStartup(uint16_t version) {
    std::lock_guard<std::mutex> guard(startMutex);
    if (startCount == 0) {
        WSADATA data;
        const int result = WSAStartup(version, &data);
        if (result != 0) {
            return result;
        }
        // Winsock answers an unknown version with the nearest one it has; the caller asked for
        // exactly this one.
        if (data.wVersion != version) {
            WSACleanup();
            return WSAVERNOTSUPPORTED;
        }
    }
    ++startCount;
    return 0;
}

void SocketCleanup() {
    std::lock_guard<std::mutex> guard(startMutex);
    if (startCount > 0 && --startCount == 0) {
        WSACleanup();
    }
}

int ResolveStream(const std::string& host, const std::string& service, AddrInfo** list) {
    addrinfo hints{};
    hints.ai_flags = 0;
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;
    addrinfo* result = nullptr;
    const int rc = getaddrinfo(host.c_str(), service.c_str(), &hints, &result);
    *list = reinterpret_cast<AddrInfo*>(result);
    return rc;
}

void FreeResolved(AddrInfo* list) {
    if (list != nullptr) {
        freeaddrinfo(Native(list));
    }
}

SocketHandle CreateSocket(const AddrInfo& entry) {
    const addrinfo* node = Native(entry);
    // Overlapped as `socket` makes them. Systems without the no-inherit flag refuse it with
    // WSAEINVAL; there the handle is made non-inheritable after the fact.
    SOCKET made = WSASocketW(node->ai_family, node->ai_socktype, node->ai_protocol, nullptr, 0,
                             WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT);
    if (made == INVALID_SOCKET && WSAGetLastError() == WSAEINVAL) {
        made = WSASocketW(node->ai_family, node->ai_socktype, node->ai_protocol, nullptr, 0,
                          WSA_FLAG_OVERLAPPED);
        if (made != INVALID_SOCKET &&
            !SetHandleInformation(reinterpret_cast<HANDLE>(made), HANDLE_FLAG_INHERIT, 0)) {
            const DWORD error = GetLastError();
            closesocket(made);
            WSASetLastError(static_cast<int>(error));
            made = INVALID_SOCKET;
        }
    }
    return made == INVALID_SOCKET ? kInvalidSocket : static_cast<SocketHandle>(made);
}

int SetNonBlocking(SocketHandle socket) {
    u_long on = 1;
    return ioctlsocket(Native(socket), FIONBIO, &on) == 0 ? 0 : -1;
}

void SetNoDelay(SocketHandle socket) {
    const BOOL on = TRUE;
    setsockopt(Native(socket), IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on),
               sizeof(on));
}

int ConnectSocket(SocketHandle socket, const AddrInfo& entry) {
    const addrinfo* node = Native(entry);
    return connect(Native(socket), node->ai_addr, static_cast<int>(node->ai_addrlen)) == 0 ? 0 : -1;
}

// Windows has no broken-pipe signal: a send to a closed peer fails with an error.
int Send(SocketHandle socket, const char* data, int size) {
    if (size < 0) {
        WSASetLastError(WSAEINVAL);
        return -1;
    }
    const int sent = send(Native(socket), data, size, 0);
    return sent == SOCKET_ERROR ? -1 : sent;
}

int Recv(SocketHandle socket, char* buffer, int size) {
    if (size < 0) {
        WSASetLastError(WSAEINVAL);
        return -1;
    }
    const int received = recv(Native(socket), buffer, size, 0);
    return received == SOCKET_ERROR ? -1 : received;
}

int SelectWritable(SocketHandle socket, uint32_t timeoutMs) {
    return WaitFor(socket, timeoutMs, true);
}

int SelectReadable(SocketHandle socket, uint32_t timeoutMs) {
    return WaitFor(socket, timeoutMs, false);
}

int ShutdownSend(SocketHandle socket) {
    return shutdown(Native(socket), SD_SEND) == 0 ? 0 : -1;
}

void CloseSocket(SocketHandle socket) {
    closesocket(Native(socket));
}

// A connect in progress on a non-blocking socket reports WSAEWOULDBLOCK itself, so every value
// passes through unchanged.
int GetLastSocketError() {
    return WSAGetLastError();
}

int RunWithoutBrokenPipeSignal(const std::function<int()>& call) {
    return call();
}

}  // namespace port
}  // namespace qzdata_report_kelvo
