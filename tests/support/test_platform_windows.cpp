#include "support/test_platform.h"

// The socket headers come before windows.h.
// clang-format off
#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>
// clang-format on

#include <gtest/gtest.h>

#include <malloc.h>

#include <cstdlib>

#include "support/wait.h"

namespace qz_test {

namespace {

// Winsock stays started for the life of the test program.
bool StartSockets() {
    static const bool started = [] {
        WSADATA data;
        return WSAStartup(MAKEWORD(2, 2), &data) == 0;
    }();
    return started;
}

SOCKET Raw(TestSocket socket) {
    return static_cast<SOCKET>(socket);
}

}  // namespace

void PumpMessagesFor(uint32_t milliseconds) {
    const ULONGLONG deadline = GetTickCount64() + milliseconds;
    for (;;) {
        MSG message;
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
            TranslateMessage(&message);
            DispatchMessageW(&message);
        }
        const ULONGLONG now = GetTickCount64();
        if (now >= deadline) {
            return;
        }
        // Wakes for any message, a timer falling due included.
        MsgWaitForMultipleObjects(0, nullptr, FALSE, static_cast<DWORD>(deadline - now),
                                  QS_ALLINPUT);
    }
}

std::string MakeTempFolder(const std::string& prefix) {
    for (unsigned attempt = 0; attempt < 100; ++attempt) {
        const std::string path = testing::TempDir() + prefix + "-" +
                                 std::to_string(GetCurrentProcessId()) + "-" +
                                 std::to_string(GetTickCount() + attempt);
        if (CreateDirectoryA(path.c_str(), nullptr)) {
            return path;
        }
    }
    ADD_FAILURE() << "no temporary folder under " << testing::TempDir();
    return std::string();
}

void SetEnv(const std::string& name, const char* value) {
    _putenv_s(name.c_str(), value != nullptr ? value : "");
}

std::string SelfPath() {
    char self[MAX_PATH] = {};
    const DWORD length = GetModuleFileNameA(nullptr, self, MAX_PATH);
    return length > 0 && length < MAX_PATH ? self : "";
}

double ThreadCpuMicros() {
    FILETIME created, exited, kernel, user;
    if (!GetThreadTimes(GetCurrentThread(), &created, &exited, &kernel, &user)) {
        return 0;
    }
    const auto micros = [](const FILETIME& time) {
        return ((static_cast<uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime) / 10.0;
    };
    return micros(kernel) + micros(user);
}

size_t HeapInUse() {
    size_t used = 0;
    _HEAPINFO entry{};
    while (_heapwalk(&entry) == _HEAPOK) {
        if (entry._useflag == _USEDENTRY) {
            used += entry._size;
        }
    }
    return used;
}

TestSocket ListenTcp(const std::string& address, uint16_t port, int backlog, uint16_t* boundPort) {
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(port);
    int length = sizeof(local);
    SOCKET listener = INVALID_SOCKET;
    if (!StartSockets() || inet_pton(AF_INET, address.c_str(), &local.sin_addr) != 1 ||
        (listener = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP)) == INVALID_SOCKET) {
        return kNoSocket;
    }
    // Windows lets a second socket take a port bound with SO_REUSEADDR; exclusive use keeps
    // a test's port its own.
    const BOOL on = TRUE;
    setsockopt(listener, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, reinterpret_cast<const char*>(&on),
               sizeof(on));
    if (bind(listener, reinterpret_cast<sockaddr*>(&local), sizeof(local)) != 0 ||
        (backlog >= 0 && listen(listener, backlog) != 0) ||
        getsockname(listener, reinterpret_cast<sockaddr*>(&local), &length) != 0) {
        closesocket(listener);
        return kNoSocket;
    }
    *boundPort = ntohs(local.sin_port);
    return static_cast<TestSocket>(listener);
}

TestSocket AcceptWithin(TestSocket listener, int timeoutMs) {
    if (WaitReadable(listener, timeoutMs) <= 0) {
        return kNoSocket;
    }
    const SOCKET accepted = accept(Raw(listener), nullptr, nullptr);
    if (accepted == INVALID_SOCKET) {
        return kNoSocket;
    }
    const BOOL on = TRUE;
    setsockopt(accepted, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on), sizeof(on));
    return static_cast<TestSocket>(accepted);
}

int WaitReadable(TestSocket socket, int timeoutMs) {
    WSAPOLLFD entry{Raw(socket), POLLRDNORM, 0};
    const int ready = WSAPoll(&entry, 1, timeoutMs);
    return ready < 0 ? -1 : ready > 0 ? 1 : 0;
}

long ReceiveBytes(TestSocket socket, char* buffer, size_t size) {
    return recv(Raw(socket), buffer, static_cast<int>(size), 0);
}

long SendBytes(TestSocket socket, const char* data, size_t size) {
    return send(Raw(socket), data, static_cast<int>(size), 0);
}

void ShutdownSending(TestSocket socket) {
    shutdown(Raw(socket), SD_SEND);
}

void ShutdownBoth(TestSocket socket) {
    shutdown(Raw(socket), SD_BOTH);
}

void ResetOnClose(TestSocket socket) {
    const linger hard{1, 0};
    setsockopt(Raw(socket), SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&hard),
               sizeof(hard));
}

void CloseTestSocket(TestSocket socket) {
    if (socket != kNoSocket) {
        closesocket(Raw(socket));
    }
}

int SpoilStreamEntry(void* list) {
    static_cast<addrinfo*>(list)->ai_protocol = IPPROTO_UDP;
    return WSAEPROTONOSUPPORT;
}

}  // namespace qz_test
