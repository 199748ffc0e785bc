#include "support/http_test_server.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

namespace qz_test {

namespace {

using Clock = std::chrono::steady_clock;

// Stop is noticed within one slice of every wait.
constexpr int kSliceMs = 20;

Clock::time_point After(uint32_t ms) {
    return Clock::now() + std::chrono::milliseconds(ms);
}

int MillisecondsLeft(Clock::time_point deadline) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

// Content-Length of a request head, 0 when it has none.
size_t ContentLengthOf(std::string head) {
    std::transform(head.begin(), head.end(), head.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    const size_t pos = head.find("\r\ncontent-length:");
    return pos == std::string::npos ? 0 : std::strtoul(head.c_str() + pos + 17, nullptr, 10);
}

}  // namespace

bool TestConnection::Stopping() const {
    return server.stopping.load();
}

long TestConnection::ReceiveSome(Clock::time_point deadline) {
    while (!Stopping() && socket != kNoSocket) {
        const int left = MillisecondsLeft(deadline);
        const int ready = left == 0 ? -1 : WaitReadable(socket, std::min(left, kSliceMs));
        if (ready < 0) {
            return -1;
        }
        if (ready > 0) {
            char buffer[4096];
            const long count = ReceiveBytes(socket, buffer, sizeof(buffer));
            if (count <= 0) {
                return count < 0 ? -1 : 0;
            }
            pending.append(buffer, static_cast<size_t>(count));
            if (record) {
                std::lock_guard<std::mutex> guard(server.mutex);
                record->append(buffer, static_cast<size_t>(count));
            }
            return count;
        }
    }
    return -1;
}

std::string TestConnection::ReadRequest(uint32_t timeoutMs) {
    const auto deadline = After(timeoutMs);
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
        if (ReceiveSome(deadline) <= 0) {
            return std::string();
        }
    }
}

bool TestConnection::Send(const std::string& bytes) {
    for (size_t sent = 0; sent < bytes.size();) {
        const long count = SendBytes(socket, bytes.data() + sent, bytes.size() - sent);
        if (count <= 0) {
            return false;
        }
        sent += static_cast<size_t>(count);
    }
    return true;
}

void TestConnection::WaitForPeerClose(uint32_t timeoutMs) {
    const auto deadline = After(timeoutMs);
    while (ReceiveSome(deadline) > 0) {
    }
}

void TestConnection::Stall(uint32_t timeoutMs) {
    const auto deadline = After(timeoutMs);
    while (!Stopping() && MillisecondsLeft(deadline) > 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(kSliceMs / 2));
    }
}

void TestConnection::CloseSending() {
    ShutdownSending(socket);
}

void TestConnection::Reset() {
    ResetOnClose(socket);
    server.Forget(socket);
    socket = kNoSocket;
}

// Closes `socket` and drops it from the sockets that Stop shuts.
void HttpTestServer::Forget(TestSocket socket) {
    std::lock_guard<std::mutex> guard(mutex);
    openSockets.erase(std::remove(openSockets.begin(), openSockets.end(), socket),
                      openSockets.end());
    CloseTestSocket(socket);
}

bool HttpTestServer::Listen(const std::string& address, uint16_t port, int backlog) {
    if (listener != kNoSocket) {
        return false;
    }
    listener = ListenTcp(address, port, backlog, &boundPort);
    return listener != kNoSocket;
}

bool HttpTestServer::Start(Handler newHandler, const std::string& address, uint16_t port) {
    if (!Listen(address, port, 64)) {
        return false;
    }
    handler = std::move(newHandler);
    acceptThread = std::thread([this] { AcceptLoop(); });
    return true;
}

bool HttpTestServer::ListenOnly(int backlog) {
    return Listen("127.0.0.1", 0, backlog);
}

void HttpTestServer::AcceptLoop() {
    while (!stopping.load()) {
        // Pieces go out as the script sends them, not held back for coalescing.
        const TestSocket accepted = AcceptWithin(listener, kSliceMs);
        if (accepted == kNoSocket) {
            continue;
        }
        auto record = recording.load() ? std::make_shared<std::string>() : nullptr;
        std::lock_guard<std::mutex> guard(mutex);
        ++connections;
        if (record) {
            records.push_back(record);
        }
        openSockets.push_back(accepted);
        // Threads of ended connections are joined as new ones come, so that a long run holds
        // only the threads of the connections still open.
        for (auto done = connectionThreads.begin(); done != connectionThreads.end();) {
            if (*done->ended) {
                done->thread.join();
                done = connectionThreads.erase(done);
            } else {
                ++done;
            }
        }
        auto ended = std::make_shared<std::atomic<bool>>(false);
        connectionThreads.push_back({std::thread([this, accepted, record, ended] {
                                         TestConnection connection(accepted, *this, record);
                                         handler(connection);
                                         if (connection.socket != kNoSocket) {
                                             Forget(connection.socket);
                                         }
                                         std::lock_guard<std::mutex> guard(mutex);
                                         ++finished;
                                         *ended = true;
                                     }),
                                     ended});
    }
}

void HttpTestServer::Stop() {
    if (stopping.exchange(true)) {
        return;
    }
    if (acceptThread.joinable()) {
        acceptThread.join();
    }
    std::vector<ConnectionThread> threads;
    {
        std::lock_guard<std::mutex> guard(mutex);
        // Wakes handlers blocked in a protocol of their own (a TLS accept or read).
        for (TestSocket open : openSockets) {
            ShutdownBoth(open);
        }
        threads.swap(connectionThreads);
    }
    for (ConnectionThread& connection : threads) {
        connection.thread.join();
    }
    CloseTestSocket(listener);
}

size_t HttpTestServer::ConnectionCount() const {
    std::lock_guard<std::mutex> guard(mutex);
    return connections;
}

size_t HttpTestServer::FinishedCount() const {
    std::lock_guard<std::mutex> guard(mutex);
    return finished;
}

std::vector<std::string> HttpTestServer::Received() const {
    std::lock_guard<std::mutex> guard(mutex);
    std::vector<std::string> result;
    for (const auto& record : records) {
        result.push_back(*record);
    }
    return result;
}

HttpTestServer::Handler HttpTestServer::Respond(std::string reply, size_t pieceSize,
                                                uint32_t pauseMs) {
    return [=](TestConnection& connection) {
        if (!connection.ReadRequest().empty()) {
            const size_t step = pieceSize == 0 ? reply.size() : pieceSize;
            for (size_t pos = 0; pos < reply.size() && connection.Send(reply.substr(pos, step));
                 pos += step) {
                std::this_thread::sleep_for(std::chrono::milliseconds(pauseMs));
            }
        }
        connection.CloseSending();
        connection.WaitForPeerClose();
    };
}

HttpTestServer::Handler HttpTestServer::RespondToEach(std::string reply) {
    return [reply](TestConnection& connection) {
        while (!connection.ReadRequest(10000).empty() && connection.Send(reply)) {
        }
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
