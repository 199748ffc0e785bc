#include "support/test_platform.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>

#include "support/wait.h"

namespace qz_test {

// Nothing arrives as a message here: timers run on a thread of their own.
void PumpMessagesFor(uint32_t milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

std::string MakeTempFolder(const std::string& prefix) {
    std::string pattern = testing::TempDir() + prefix + "-XXXXXX";
    if (mkdtemp(&pattern[0]) != nullptr)
        return pattern;
    ADD_FAILURE() << "no temporary folder " << pattern;
    return std::string();
}

void SetEnv(const std::string& name, const char* value) {
    value != nullptr ? setenv(name.c_str(), value, 1) : unsetenv(name.c_str());
}

std::string SelfPath() {
    char self[4096] = {};
    return readlink("/proc/self/exe", self, sizeof(self) - 1) > 0 ? self : "";
}

double ThreadCpuMicros() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return now.tv_sec * 1e6 + now.tv_nsec / 1e3;
}

size_t HeapInUse() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

TestSocket ListenTcp(const std::string& address, uint16_t port, int backlog, uint16_t* boundPort) {
    sockaddr_in local{AF_INET, htons(port), {}, {}};
    socklen_t length = sizeof(local);
    const int on = 1;
    int listener = -1;
    if (inet_pton(AF_INET, address.c_str(), &local.sin_addr) != 1 ||
        (listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) < 0)
        return kNoSocket;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    if (bind(listener, reinterpret_cast<sockaddr*>(&local), sizeof(local)) != 0 ||
        (backlog >= 0 && listen(listener, backlog) != 0) ||
        getsockname(listener, reinterpret_cast<sockaddr*>(&local), &length) != 0) {
        close(listener);
        return kNoSocket;
    }
    *boundPort = ntohs(local.sin_port);
    return listener;
}

TestSocket AcceptWithin(TestSocket listener, int timeoutMs) {
    if (WaitReadable(listener, timeoutMs) <= 0)
        return kNoSocket;
    const int accepted = accept4(static_cast<int>(listener), nullptr, nullptr, SOCK_CLOEXEC);
    const int on = 1;
    if (accepted >= 0)
        setsockopt(accepted, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    return accepted < 0 ? kNoSocket : accepted;
}

int WaitReadable(TestSocket socket, int timeoutMs) {
    pollfd entry{static_cast<int>(socket), POLLIN, 0};
    const int ready = poll(&entry, 1, timeoutMs);
    return ready < 0 ? -1 : ready > 0 ? 1 : 0;
}

long ReceiveBytes(TestSocket socket, char* buffer, size_t size) {
    return recv(static_cast<int>(socket), buffer, size, 0);
}

long SendBytes(TestSocket socket, const char* data, size_t size) {
    return send(static_cast<int>(socket), data, size, MSG_NOSIGNAL);
}

void ShutdownSending(TestSocket socket) {
    shutdown(static_cast<int>(socket), SHUT_WR);
}

void ShutdownBoth(TestSocket socket) {
    shutdown(static_cast<int>(socket), SHUT_RDWR);
}

void ResetOnClose(TestSocket socket) {
    linger hard{1, 0};
    setsockopt(static_cast<int>(socket), SOL_SOCKET, SO_LINGER, &hard, sizeof(hard));
}

void CloseTestSocket(TestSocket socket) {
    if (socket != kNoSocket)
        close(static_cast<int>(socket));
}

int SpoilStreamEntry(void* list) {
    static_cast<addrinfo*>(list)->ai_protocol = IPPROTO_UDP;
    return EPROTONOSUPPORT;
}

namespace {

// The test's own home, and the variables it replaced (nullopt: unset), while one is in place.
struct StoreHome {
    std::string folder;
    std::optional<std::string> home, configHome;
};
std::optional<StoreHome> storeHome;

std::optional<std::string> GetEnv(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

std::string ValuePath(const std::string& path, const std::string& name) {
    std::string file = storeHome ? storeHome->folder + "/.config/" : std::string();
    for (char c : path + '\\' + name)
        file += c == '\\' ? '/' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return file;
}

}  // namespace

void IsolateUserStore() {
    RestoreUserStore();
    storeHome = StoreHome{MakeTempFolder("store"), GetEnv("HOME"), GetEnv("XDG_CONFIG_HOME")};
    SetEnv("HOME", storeHome->folder.c_str());
    SetEnv("XDG_CONFIG_HOME", nullptr);
}

void RestoreUserStore() {
    if (storeHome) {
        std::error_code ignored;
        std::filesystem::remove_all(storeHome->folder, ignored);
        SetEnv("HOME", storeHome->home ? storeHome->home->c_str() : nullptr);
        SetEnv("XDG_CONFIG_HOME", storeHome->configHome ? storeHome->configHome->c_str() : nullptr);
        storeHome.reset();
    }
}

bool ReadUserStoreValue(const std::string& path, const std::string& name, std::string* bytes) {
    std::ifstream in(ValuePath(path, name), std::ios::binary);
    *bytes = in ? std::string(std::istreambuf_iterator<char>(in), {}) : std::string();
    return static_cast<bool>(in);
}

void WriteUserStoreValue(const std::string& path, const std::string& name,
                         const std::string& bytes) {
    const std::string file = ValuePath(path, name);
    std::filesystem::create_directories(std::filesystem::path(file).parent_path());
    std::ofstream(file, std::ios::binary) << bytes;
}

bool FileAccessIsKept() {
    return true;
}

bool IsPrivateToUser(const std::string& path) {
    struct stat info;
    return ::stat(path.c_str(), &info) == 0 &&
           (info.st_mode & 0777) == (S_ISDIR(info.st_mode) ? 0700u : 0600u);
}

}  // namespace qz_test
