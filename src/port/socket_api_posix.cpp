#include "port/socket_api.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "net/constants.h"

namespace qzdata_report_kelvo {
namespace port {

namespace {

// The seam's opaque node is the platform's addrinfo; these are the only two casts.
addrinfo* Native(AddrInfo* node) {
    return reinterpret_cast<addrinfo*>(node);
}
const addrinfo* Native(const AddrInfo& node) {
    return reinterpret_cast<const addrinfo*>(&node);
}

int Descriptor(SocketHandle socket) {
    return static_cast<int>(socket);
}

timeval ToTimeval(uint32_t timeoutMs) {
    timeval tv{};
    tv.tv_sec = static_cast<time_t>(timeoutMs / 1000);
    tv.tv_usec = static_cast<suseconds_t>((timeoutMs % 1000) * 1000);
    return tv;
}

// select cannot hold descriptors at or above FD_SETSIZE; a host with many open files would
// give us one, so those wait through poll, which answers the same question.
int WaitFor(SocketHandle socket, uint32_t timeoutMs, bool writable) {
    const int fd = Descriptor(socket);
    if (fd < 0) {
        errno = EBADF;
        return -1;
    }
    if (fd < FD_SETSIZE) {
        fd_set set;
        FD_ZERO(&set);
        FD_SET(fd, &set);
        timeval tv = ToTimeval(timeoutMs);
        return select(fd + 1, writable ? nullptr : &set, writable ? &set : nullptr, nullptr, &tv);
    }
    pollfd entry{};
    entry.fd = fd;
    entry.events = writable ? POLLOUT : POLLIN;
    const int timeout = timeoutMs > 0x7FFFFFFFu ? -1 : static_cast<int>(timeoutMs);
    const int result = poll(&entry, 1, timeout);
    return result > 0 ? 1 : result;
}

}  // namespace

int SocketStartup(uint16_t /*version*/) {
    return 0;
}

void SocketCleanup() {}

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
    const int fd = socket(node->ai_family, node->ai_socktype | SOCK_CLOEXEC, node->ai_protocol);
    return fd < 0 ? kInvalidSocket : static_cast<SocketHandle>(fd);
}

int SetNonBlocking(SocketHandle socket) {
    const int fd = Descriptor(socket);
    const int flags = fcntl(fd, F_GETFL, 0);
    if (flags < 0 || fcntl(fd, F_SETFL, flags | O_NONBLOCK) < 0) {
        return -1;
    }
    return 0;
}

void SetNoDelay(SocketHandle socket) {
    const int on = 1;
    setsockopt(Descriptor(socket), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
}

int ConnectSocket(SocketHandle socket, const AddrInfo& entry) {
    const addrinfo* node = Native(entry);
    return connect(Descriptor(socket), node->ai_addr, node->ai_addrlen) == 0 ? 0 : -1;
}

int Send(SocketHandle socket, const char* data, int size) {
    const ssize_t sent = send(Descriptor(socket), data, static_cast<size_t>(size), MSG_NOSIGNAL);
    return sent < 0 ? -1 : static_cast<int>(sent);
}

int Recv(SocketHandle socket, char* buffer, int size) {
    const ssize_t received = recv(Descriptor(socket), buffer, static_cast<size_t>(size), 0);
    return received < 0 ? -1 : static_cast<int>(received);
}

int SelectWritable(SocketHandle socket, uint32_t timeoutMs) {
    return WaitFor(socket, timeoutMs, true);
}

int SelectReadable(SocketHandle socket, uint32_t timeoutMs) {
    return WaitFor(socket, timeoutMs, false);
}

int ShutdownSend(SocketHandle socket) {
    return shutdown(Descriptor(socket), SHUT_WR) == 0 ? 0 : -1;
}

void CloseSocket(SocketHandle socket) {
    close(Descriptor(socket));
}

int GetLastSocketError() {
    const int error = errno;
    if (error == EWOULDBLOCK || error == EAGAIN || error == EINPROGRESS) {
        return net::kErrorWouldBlock;
    }
    if (error == EISCONN) {
        return net::kErrorIsConnected;
    }
    return error;
}

int RunWithoutBrokenPipeSignal(const std::function<int()>& call) {
    sigset_t pipeOnly;
    sigemptyset(&pipeOnly);
    sigaddset(&pipeOnly, SIGPIPE);
    sigset_t previous;
    pthread_sigmask(SIG_BLOCK, &pipeOnly, &previous);
    sigset_t pending;
    sigpending(&pending);
    const bool alreadyPending = sigismember(&pending, SIGPIPE) == 1;

    const int result = call();
    const int savedErrno = errno;

    // A signal raised by the call is taken off the thread before the mask is restored; one that
    // was pending before belongs to someone else and stays.
    if (!alreadyPending) {
        sigpending(&pending);
        if (sigismember(&pending, SIGPIPE) == 1) {
            const timespec noWait{};
            sigtimedwait(&pipeOnly, nullptr, &noWait);
        }
    }
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    errno = savedErrno;
    return result;
}

}  // namespace port
}  // namespace qzdata_report_kelvo
