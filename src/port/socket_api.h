// Socket seam of the network client: the few socket calls the clients make, in the shape of the
// Windows socket interface. Errors come back as the values of net/constants.h, so the logic knows
// only "would block" and "is connected" and carries any other value through unchanged.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace qzdata_report_kelvo {
namespace port {

using SocketHandle = intptr_t;
inline constexpr SocketHandle kInvalidSocket = -1;

// One node of a resolver list (the platform's addrinfo). Lists come from ResolveStream and are
// given back with FreeResolved.
struct AddrInfo;

// Starts and stops the socket layer; 0 on success. On POSIX there is nothing to start.
int SocketStartup(uint16_t version);
void SocketCleanup();

// Resolves `host` and the decimal `service` to TCP stream addresses of any family (hints: flags
// 0, unspecified family, stream socket, TCP). Returns 0 with the list in `*list`, or a
// resolver error; a failing call may still leave a list, which the caller must free. Blocks for
// as long as the resolver takes. Any thread.
int ResolveStream(const std::string& host, const std::string& service, AddrInfo** list);
void FreeResolved(AddrInfo* list);

// A socket of the entry's family, type and protocol; kInvalidSocket on failure. The descriptor
// is not inherited by child processes.
SocketHandle CreateSocket(const AddrInfo& entry);

// 0 on success, -1 on failure.
int SetNonBlocking(SocketHandle socket);
// Disables send coalescing; the result is of no interest to callers.
void SetNoDelay(SocketHandle socket);
// Starts a connection to the entry's address: 0 when connected at once, -1 otherwise (see
// GetLastSocketError: kErrorWouldBlock while in progress).
int ConnectSocket(SocketHandle socket, const AddrInfo& entry);

// Byte count or -1. Sending never raises a broken-pipe signal.
int Send(SocketHandle socket, const char* data, int size);
int Recv(SocketHandle socket, char* buffer, int size);

// Waits up to `timeoutMs` for the one socket to become writable or readable, as `select` with a
// set holding only this socket: 1 when ready, 0 on time-out, -1 on failure.
int SelectWritable(SocketHandle socket, uint32_t timeoutMs);
int SelectReadable(SocketHandle socket, uint32_t timeoutMs);

// Shuts the sending direction: 0 on success, -1 on failure.
int ShutdownSend(SocketHandle socket);
void CloseSocket(SocketHandle socket);

// The error of the calling thread's last failed socket call: kErrorWouldBlock for "would block"
// and "in progress", kErrorIsConnected for "already connected", any other value unchanged.
int GetLastSocketError();

// Runs `call` on the calling thread so that a write it makes to a socket whose peer is gone
// raises no broken-pipe signal (for code, such as the TLS library, that writes without our
// send). Returns what `call` returned.
int RunWithoutBrokenPipeSignal(const std::function<int()>& call);

}  // namespace port
}  // namespace qzdata_report_kelvo
