#include "support/http_test_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdlib>

namespace qz_test {

namespace {

using Clock = std::chrono::steady_clock;

// Stop is noticed within one slice of every wait.
constexpr int kSliceMs = 20;

int MillisecondsLeft(Clock::time_point deadline) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

// Content-Length of a request head, 0 when it has none.
size_t ContentLengthOf(const std::string& head) {
    std::string lower(head);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    const size_t pos = lower.find("\r\ncontent-length:");
    if (pos == std::string::npos) {
        return 0;
    }
    return static_cast<size_t>(std::strtoul(lower.c_str() + pos + 17, nullptr, 10));
}

}  // namespace

struct TestConnection::Record {
    std::string bytes;
};

TestConnection::TestConnection(int socket, HttpTestServer& server, std::shared_ptr<Record> record)
    : socket(socket), server(server), record(std::move(record)) {}

bool TestConnection::Stopping() const {
    return server.stopping.load();
}

long TestConnection::ReceiveSome(char* buffer, size_t size, uint32_t timeoutMs) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!Stopping() && socket >= 0) {
        const int left = MillisecondsLeft(deadline);
        if (left == 0) {
            return -1;
        }
        pollfd entry{socket, POLLIN, 0};
        const int ready = poll(&entry, 1, std::min(left, kSliceMs));
        if (ready < 0) {
            return -1;
        }
        if (ready == 0) {
            continue;
        }
        const ssize_t count = recv(socket, buffer, size, 0);
        if (count > 0) {
            std::lock_guard<std::mutex> guard(server.mutex);
            record->bytes.append(buffer, static_cast<size_t>(count));
        }
        return count < 0 ? -1 : static_cast<long>(count);
    }
    return -1;
}

std::string TestConnection::ReadRequest(uint32_t timeoutMs) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        const size_t headEnd = pending.find("\r\n\r\n");
        if (headEnd != std::string::npos) {
            const size_t total = headEnd + 4 + ContentLengthOf(pending.substr(0, headEnd + 2));
            if (pending.size() >= total) {
                std::string request = pending.substr(0, total);
                pending.erase(0, total);
                return request;
            }
        }
        const int left = MillisecondsLeft(deadline);
        char buffer[4096];
        const long count = left == 0 ? -1 : ReceiveSome(buffer, sizeof(buffer), left);
        if (count <= 0) {
            return std::string();
        }
        pending.append(buffer, static_cast<size_t>(count));
    }
}

bool TestConnection::ReadAtLeast(size_t count, uint32_t timeoutMs) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        {
            std::lock_guard<std::mutex> guard(server.mutex);
            if (record->bytes.size() >= count) {
                return true;
            }
        }
        const int left = MillisecondsLeft(deadline);
        char buffer[4096];
        const long received = left == 0 ? -1 : ReceiveSome(buffer, sizeof(buffer), left);
        if (received <= 0) {
            return false;
        }
        pending.append(buffer, static_cast<size_t>(received));
    }
}

bool TestConnection::Send(const std::string& bytes) {
    size_t sent = 0;
    while (sent < bytes.size() && socket >= 0) {
        const ssize_t count = send(socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count <= 0) {
            return false;
        }
        sent += static_cast<size_t>(count);
    }
    return sent == bytes.size();
}

bool TestConnection::SendInPieces(const std::string& bytes, size_t pieceSize, uint32_t pauseMs) {
    for (size_t pos = 0; pos < bytes.size(); pos += pieceSize) {
        if (pos > 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(pauseMs));
        }
        if (!Send(bytes.substr(pos, pieceSize))) {
            return false;
        }
    }
    return true;
}

void TestConnection::WaitForPeerClose(uint32_t timeoutMs) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    char buffer[4096];
    for (;;) {
        const int left = MillisecondsLeft(deadline);
        if (left == 0 || ReceiveSome(buffer, sizeof(buffer), left) <= 0) {
            return;
        }
    }
}

void TestConnection::Stall(uint32_t timeoutMs) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!Stopping() && MillisecondsLeft(deadline) > 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(kSliceMs / 2));
    }
}

void TestConnection::CloseSending() {
    if (socket >= 0) {
        shutdown(socket, SHUT_WR);
    }
}

void TestConnection::Reset() {
    if (socket < 0) {
        return;
    }
    linger hard{1, 0};
    setsockopt(socket, SOL_SOCKET, SO_LINGER, &hard, sizeof(hard));
    std::lock_guard<std::mutex> guard(server.mutex);
    auto& open = server.openSockets;
    open.erase(std::remove(open.begin(), open.end(), socket), open.end());
    close(socket);
    socket = -1;
}

HttpTestServer::~HttpTestServer() {
    Stop();
}

bool HttpTestServer::Listen(const std::string& address, uint16_t port, int backlog) {
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(port);
    if (inet_pton(AF_INET, address.c_str(), &local.sin_addr) != 1) {
        return false;
    }
    listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listener < 0) {
        return false;
    }
    const int on = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    socklen_t length = sizeof(local);
    if (bind(listener, reinterpret_cast<sockaddr*>(&local), sizeof(local)) != 0 ||
        listen(listener, backlog) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr*>(&local), &length) != 0) {
        close(listener);
        listener = -1;
        return false;
    }
    boundAddress = address;
    boundPort = ntohs(local.sin_port);
    return true;
}

bool HttpTestServer::Start(Handler newHandler, const std::string& address, uint16_t port) {
    if (listener >= 0 || !Listen(address, port, 64)) {
        return false;
    }
    handler = std::move(newHandler);
    acceptThread = std::thread([this] { AcceptLoop(); });
    return true;
}

bool HttpTestServer::ListenOnly(int backlog, const std::string& address, uint16_t port) {
    return listener < 0 && Listen(address, port, backlog);
}

void HttpTestServer::AcceptLoop() {
    while (!stopping.load()) {
        pollfd entry{listener, POLLIN, 0};
        if (poll(&entry, 1, kSliceMs) <= 0) {
            continue;
        }
        const int accepted = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (accepted < 0) {
            continue;
        }
        // Pieces go out as the script sends them, not held back for coalescing.
        const int on = 1;
        setsockopt(accepted, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
        auto record = std::make_shared<TestConnection::Record>();
        std::lock_guard<std::mutex> guard(mutex);
        records.push_back(record);
        openSockets.push_back(accepted);
        connectionThreads.emplace_back([this, accepted, record] {
            TestConnection connection(accepted, *this, record);
            handler(connection);
            std::lock_guard<std::mutex> guard(mutex);
            if (connection.socket >= 0) {
                openSockets.erase(
                    std::remove(openSockets.begin(), openSockets.end(), connection.socket),
                    openSockets.end());
                close(connection.socket);
            }
            ++finished;
        });
    }
}

void HttpTestServer::Stop() {
    if (stopping.exchange(true)) {
        return;
    }
    if (acceptThread.joinable()) {
        acceptThread.join();
    }
    std::vector<std::thread> threads;
    {
        std::lock_guard<std::mutex> guard(mutex);
        // Wakes handlers blocked in a protocol of their own (a TLS accept or read).
        for (int open : openSockets) {
            shutdown(open, SHUT_RDWR);
        }
        threads.swap(connectionThreads);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    if (listener >= 0) {
        close(listener);
        listener = -1;
    }
}

size_t HttpTestServer::ConnectionCount() const {
    std::lock_guard<std::mutex> guard(mutex);
    return records.size();
}

size_t HttpTestServer::FinishedCount() const {
    std::lock_guard<std::mutex> guard(mutex);
    return finished;
}

std::vector<std::string> HttpTestServer::Received() const {
    std::lock_guard<std::mutex> guard(mutex);
    std::vector<std::string> result;
    for (const auto& record : records) {
        result.push_back(record->bytes);
    }
    return result;
}

std::string HttpTestServer::ReceivedOn(size_t index) const {
    std::lock_guard<std::mutex> guard(mutex);
    return index < records.size() ? records[index]->bytes : std::string();
}

HttpTestServer::Handler HttpTestServer::Respond(std::string reply) {
    return [reply](TestConnection& connection) {
        if (!connection.ReadRequest().empty()) {
            connection.Send(reply);
        }
        connection.CloseSending();
        connection.WaitForPeerClose();
    };
}

HttpTestServer::Handler HttpTestServer::RespondToEach(std::string reply) {
    return [reply](TestConnection& connection) {
        while (!connection.ReadRequest(10000).empty()) {
            if (!connection.Send(reply)) {
                return;
            }
        }
    };
}

HttpTestServer::Handler HttpTestServer::RespondInPieces(std::string reply, size_t pieceSize,
                                                        uint32_t pauseMs) {
    return [reply, pieceSize, pauseMs](TestConnection& connection) {
        if (!connection.ReadRequest().empty()) {
            connection.SendInPieces(reply, pieceSize, pauseMs);
        }
        connection.CloseSending();
        connection.WaitForPeerClose();
    };
}

HttpTestServer::Handler HttpTestServer::Silent() {
    return [](TestConnection& connection) { connection.WaitForPeerClose(); };
}

HttpTestServer::Handler HttpTestServer::Stall() {
    return [](TestConnection& connection) { connection.Stall(); };
}

HttpTestServer::Handler HttpTestServer::ResetAtOnce() {
    return [](TestConnection& connection) { connection.Reset(); };
}

}  // namespace qz_test
