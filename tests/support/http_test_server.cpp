#include "support/http_test_server.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

namespace qz_test {

namespace {

using Clock = std::chrono::steady_clock;
constexpr int kSliceMs = 20;  // a stop is noticed within one slice of every wait

int MillisecondsLeft(Clock::time_point deadline) {
    return static_cast<int>(std::max<int64_t>(
        0, std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count()));
}

}  // namespace

bool TestConnection::Stopping() const {
    return server.stopping.load();
}

long TestConnection::ReceiveSome(Clock::time_point deadline) {
    while (!Stopping() && socket != kNoSocket && MillisecondsLeft(deadline) > 0) {
        const int ready = WaitReadable(socket, std::min(MillisecondsLeft(deadline), kSliceMs));
        if (ready == 0)
            continue;
        char buffer[4096];
        const long count = ready < 0 ? -1 : ReceiveBytes(socket, buffer, sizeof(buffer));
        std::lock_guard<std::mutex> guard(server.mutex);
        if (count > 0 && record)
            record->append(buffer, count);
        pending.append(buffer, std::max(count, 0L));
        return count;
    }
    return -1;
}

std::string TestConnection::ReadRequest(uint32_t timeoutMs) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        const size_t headEnd = pending.find("\r\n\r\n");
        if (headEnd != std::string::npos) {
            // The head's Content-Length (a last one of 0 added) says how many body bytes follow it.
            std::string head = pending.substr(0, headEnd + 2) + "content-length: 0\r\n";
            std::transform(head.begin(), head.end(), head.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
            const size_t length = head.find("\r\ncontent-length:");
            const size_t total = headEnd + 4 + std::strtoul(&head[length + 17], nullptr, 10);
            if (pending.size() >= total) {
                std::string request = pending.substr(0, total);
                pending.erase(0, total);
                return request;
            }
        }
        if (ReceiveSome(deadline) <= 0)
            return std::string();
    }
}

bool TestConnection::Send(const std::string& bytes) {
    long count = 0;
    for (size_t sent = 0; sent < bytes.size(); sent += static_cast<size_t>(count))
        if ((count = SendBytes(socket, bytes.data() + sent, bytes.size() - sent)) <= 0)
            return false;
    return true;
}

void TestConnection::WaitForPeerClose(uint32_t timeoutMs) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (ReceiveSome(deadline) > 0) {
    }
}

void TestConnection::Stall(uint32_t timeoutMs) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!Stopping() && MillisecondsLeft(deadline) > 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(kSliceMs / 2));
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
    return listener == kNoSocket &&
           (listener = ListenTcp(address, port, backlog, &boundPort)) != kNoSocket;
}

bool HttpTestServer::Start(Handler newHandler, const std::string& address, uint16_t port) {
    if (!Listen(address, port, 64))
        return false;
    handler = std::move(newHandler);
    acceptThread = std::thread([this] { AcceptLoop(); });
    return true;
}

// Each connection's handler runs on a detached thread; Stop waits until none is left.
void HttpTestServer::AcceptLoop() {
    while (!stopping.load()) {
        // Pieces go out as the script sends them, not coalesced.
        const TestSocket accepted = AcceptWithin(listener, kSliceMs);
        if (accepted == kNoSocket)
            continue;
        auto record = recording.load() ? std::make_shared<std::string>() : nullptr;
        std::unique_lock<std::mutex> guard(mutex);
        if (record)
            records.push_back(record);
        openSockets.push_back(accepted);
        guard.unlock();
        ++connections;
        ++live;
        std::thread([this, accepted, record] {
            {
                TestConnection connection(accepted, *this, record);
                handler(connection);
                Forget(connection.socket);  // closed already after a Reset
            }
            ++finished;
            --live;  // the last touch of the server
        }).detach();
    }
}

void HttpTestServer::Stop() {
    if (stopping.exchange(true))
        return;
    if (acceptThread.joinable())
        acceptThread.join();
    std::unique_lock<std::mutex> guard(mutex);
    for (TestSocket open : openSockets)  // wakes handlers blocked in their own protocol
        ShutdownBoth(open);
    guard.unlock();
    while (live.load() > 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    CloseTestSocket(listener);
}

std::vector<std::string> HttpTestServer::Received() const {
    std::lock_guard<std::mutex> guard(mutex);
    std::vector<std::string> result;
    for (const auto& record : records)
        result.push_back(*record);
    return result;
}

HttpTestServer::Handler HttpTestServer::Respond(std::string reply, size_t pieceSize,
                                                uint32_t pauseMs) {
    return [=, step = pieceSize == 0 ? reply.size() : pieceSize](TestConnection& connection) {
        if (!connection.ReadRequest().empty())
            for (size_t pos = 0; pos < reply.size() && connection.Send(reply.substr(pos, step));
                 pos += step)
                std::this_thread::sleep_for(std::chrono::milliseconds(pauseMs));
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

}  // namespace qz_test
