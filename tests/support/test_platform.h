// What the tests need of the operating system beyond the library's own seams: temporary
// folders, the environment, process facts, and the server side of loopback sockets. One
// implementation per platform, chosen by CMake like the library's seams.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace qz_test {

// A new, empty folder under the test framework's temporary folder; its path without a trailing
// separator. Fails the calling test (and returns "") when none can be made.
std::string MakeTempFolder(const std::string& prefix);

// Sets the process environment variable `name` to `value`; null removes it.
void SetEnv(const std::string& name, const char* value);

// The path of the running test program.
std::string SelfPath();

// CPU time of the calling thread in microseconds.
double ThreadCpuMicros();

// Heap bytes the allocator has handed out and not got back; 0 when the allocator cannot tell.
size_t HeapInUse();

// Sockets on the server side of loopback tests.
using TestSocket = intptr_t;
inline constexpr TestSocket kNoSocket = -1;

// A listening TCP socket on the IPv4 `address` and `port` (0: any free port, stored in
// `*boundPort`); with a negative `backlog` bound but not listening. kNoSocket on failure.
TestSocket ListenTcp(const std::string& address, uint16_t port, int backlog, uint16_t* boundPort);
// The next connection within `timeoutMs` (with send coalescing off), else kNoSocket.
TestSocket AcceptWithin(TestSocket listener, int timeoutMs);
// 1 when readable within `timeoutMs`, 0 on time-out, -1 on failure.
int WaitReadable(TestSocket socket, int timeoutMs);
// Byte count, 0 at the peer's end, -1 on failure. Sending never raises a signal.
long ReceiveBytes(TestSocket socket, char* buffer, size_t size);
long SendBytes(TestSocket socket, const char* data, size_t size);
void ShutdownSending(TestSocket socket);
// Wakes every thread blocked on the socket, without closing it.
void ShutdownBoth(TestSocket socket);
// The next close sends a reset instead of an orderly end.
void ResetOnClose(TestSocket socket);
void CloseTestSocket(TestSocket socket);
// Makes the first entry of a resolver list (the platform's addrinfo) ask for UDP over a stream
// socket, which no socket can be made for; returns the error that making one then fails with.
int SpoilStreamEntry(void* list);

// The library's per-user store (files under the config home on POSIX, the current user's
// registry on Windows) moved to a fresh, empty place of the calling test's own; each call starts
// another. Fails the calling test when it cannot.
void IsolateUserStore();
// The usual store back; the test's own place is deleted.
void RestoreUserStore();
// The stored bytes of the value `name` of the key `path` (levels joined by '\'); false when
// there is none.
bool ReadUserStoreValue(const std::string& path, const std::string& name, std::string* bytes);
// Stores `bytes` as the text value `name` of the key `path`, creating the key.
void WriteUserStoreValue(const std::string& path, const std::string& name,
                         const std::string& bytes);
// Whether the file or folder `path` is open to its owner alone: mode 0600 or 0700 on POSIX, an
// access list that grants the current user alone on Windows.
bool IsPrivateToUser(const std::string& path);
// False where the system keeps no access rights of files to check (Wine keeps no access lists:
// it reports one made from the file's mode, whatever was set).
bool FileAccessIsKept();

}  // namespace qz_test
