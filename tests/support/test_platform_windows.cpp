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
        if (now >= deadline)
            return;
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
        if (CreateDirectoryA(path.c_str(), nullptr))
            return path;
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
    if (!GetThreadTimes(GetCurrentThread(), &created, &exited, &kernel, &user))
        return 0;
    const auto micros = [](const FILETIME& time) {
        return ((static_cast<uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime) / 10.0;
    };
    return micros(kernel) + micros(user);
}

size_t HeapInUse() {
    size_t used = 0;
    _HEAPINFO entry{};
    while (_heapwalk(&entry) == _HEAPOK) {
        if (entry._useflag == _USEDENTRY)
            used += entry._size;
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
    if (WaitReadable(listener, timeoutMs) <= 0)
        return kNoSocket;
    const SOCKET accepted = accept(Raw(listener), nullptr, nullptr);
    if (accepted == INVALID_SOCKET)
        return kNoSocket;
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
    if (socket != kNoSocket)
        closesocket(Raw(socket));
}

int SpoilStreamEntry(void* list) {
    static_cast<addrinfo*>(list)->ai_protocol = IPPROTO_UDP;
    return WSAEPROTONOSUPPORT;
}

}  // namespace qz_test

#include <aclapi.h>

#include <memory>
#include <vector>

namespace qz_test {

namespace {

// The key that stands for HKEY_CURRENT_USER while a test's own store is in place; one per
// process, as test programs may run side by side in one Wine prefix.
HKEY storeRoot = nullptr;

std::string StoreKeyName() {
    return "Software\\qz_test_store_" + std::to_string(GetCurrentProcessId());
}

}  // namespace

void IsolateUserStore() {
    RestoreUserStore();
    if (RegCreateKeyExA(HKEY_CURRENT_USER, StoreKeyName().c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                        nullptr, &storeRoot, nullptr) != ERROR_SUCCESS ||
        RegOverridePredefKey(HKEY_CURRENT_USER, storeRoot) != ERROR_SUCCESS) {
        ADD_FAILURE() << "no store of the test's own";
    }
}

void RestoreUserStore() {
    if (storeRoot != nullptr) {
        RegOverridePredefKey(HKEY_CURRENT_USER, nullptr);
        RegCloseKey(storeRoot);
        storeRoot = nullptr;
        RegDeleteTreeA(HKEY_CURRENT_USER, StoreKeyName().c_str());
    }
}

bool ReadUserStoreValue(const std::string& path, const std::string& name, std::string* bytes) {
    HKEY key = nullptr;
    DWORD size = 0;
    bool found =
        RegOpenKeyExA(HKEY_CURRENT_USER, path.c_str(), 0, KEY_QUERY_VALUE, &key) == ERROR_SUCCESS &&
        RegQueryValueExA(key, name.c_str(), nullptr, nullptr, nullptr, &size) == ERROR_SUCCESS;
    bytes->assign(size, '\0');
    found =
        found && RegQueryValueExA(key, name.c_str(), nullptr, nullptr,
                                  reinterpret_cast<BYTE*>(&(*bytes)[0]), &size) == ERROR_SUCCESS;
    bytes->resize(found ? size : 0);
    RegCloseKey(key);
    return found;
}

void WriteUserStoreValue(const std::string& path, const std::string& name,
                         const std::string& bytes) {
    // The registry adds a zero to a text whose last byte is none when the byte behind it is one:
    // the copy's extra byte, not stored, is none.
    const std::string copy = bytes + '\1';
    HKEY key = nullptr;
    if (RegCreateKeyExA(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, 0, KEY_SET_VALUE, nullptr,
                        &key, nullptr) != ERROR_SUCCESS ||
        RegSetValueExA(key, name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(copy.data()),
                       static_cast<DWORD>(bytes.size())) != ERROR_SUCCESS) {
        ADD_FAILURE() << "cannot store " << path << "\\" << name;
    }
    RegCloseKey(key);
}

bool FileAccessIsKept() {
    return GetProcAddress(GetModuleHandleA("ntdll.dll"), "wine_get_version") == nullptr;
}

bool IsPrivateToUser(const std::string& path) {
    // Every entry of the access list grants, and grants the user this process runs as.
    HANDLE token = nullptr;
    DWORD size = 0;
    OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token);
    GetTokenInformation(token, TokenUser, nullptr, 0, &size);
    std::vector<unsigned char> user(size + 1);
    const bool known = GetTokenInformation(token, TokenUser, user.data(), size, &size) != 0;
    CloseHandle(token);
    PACL acl = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (!known ||
        GetNamedSecurityInfoA(path.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                              nullptr, &acl, nullptr, &descriptor) != ERROR_SUCCESS) {
        return false;
    }
    const std::unique_ptr<void, HLOCAL (*)(HLOCAL)> owned(descriptor, LocalFree);
    bool alone = acl != nullptr && acl->AceCount > 0;
    for (WORD i = 0; alone && i < acl->AceCount; ++i) {
        void* entry = nullptr;
        alone = GetAce(acl, i, &entry) &&
                static_cast<ACE_HEADER*>(entry)->AceType == ACCESS_ALLOWED_ACE_TYPE &&
                EqualSid(&static_cast<ACCESS_ALLOWED_ACE*>(entry)->SidStart,
                         reinterpret_cast<TOKEN_USER*>(user.data())->User.Sid);
    }
    return alone;
}

}  // namespace qz_test
