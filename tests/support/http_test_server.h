// A scripted loopback HTTP server for tests that play a collector or any other peer of the
// network client. It binds 127.0.0.1 or any other 127.x.y.z address, on a free port or a given
// one, and runs a handler for each accepted connection on a thread of its own. Every byte the
// server receives is recorded per connection.
//
// All members may be called from any thread. Handlers run on the server's threads and must end
// when the connection's reads report the server stopping (all blocking helpers here do).
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/test_platform.h"

namespace qz_test {

class HttpTestServer;

// One accepted connection, as its handler sees it. Used by that handler's thread only.
class TestConnection {
  public:
    // Reads until one whole request has arrived (head, then Content-Length body bytes) and
    // returns it; bytes behind it are kept for the next call. Empty on close, stop or time-out.
    std::string ReadRequest(uint32_t timeoutMs = 5000);
    // Sends all of `bytes`; false when the peer is gone.
    bool Send(const std::string& bytes);
    // Reads (recording) until the peer closes, the server stops or `timeoutMs` passed.
    void WaitForPeerClose(uint32_t timeoutMs = 10000);
    // Holds the connection without reading until the server stops or `timeoutMs` passed.
    void Stall(uint32_t timeoutMs = 10000);
    // Shuts the sending direction: the peer reads the end of the stream.
    void CloseSending() { ShutdownSending(socket); }
    // Closes at once with a reset; the connection is unusable afterwards.
    void Reset();

    // The (blocking) socket, for handlers that run a protocol of their own over it (TLS).
    int fd() const { return static_cast<int>(socket); }
    bool Stopping() const;

  private:
    friend class HttpTestServer;
    TestConnection(TestSocket socket, HttpTestServer& server, std::shared_ptr<std::string> record)
        : socket(socket), server(server), record(std::move(record)) {}
    // Waits for readability in short slices so that a stop is noticed; recv result or -1.
    long ReceiveSome(std::chrono::steady_clock::time_point deadline);

    TestSocket socket;
    HttpTestServer& server;
    std::shared_ptr<std::string> record;
    std::string pending;
};

class HttpTestServer {
  public:
    using Handler = std::function<void(TestConnection&)>;

    ~HttpTestServer() { Stop(); }  // not copyable: holds a mutex and a thread

    // Binds `address` (a 127.x.y.z text) and `port` (0: any free port), listens, and runs
    // `handler` for each accepted connection. False when the server could not listen.
    bool Start(Handler handler, const std::string& address = "127.0.0.1", uint16_t port = 0);
    // Listens with `backlog` but never accepts: once the backlog is full, connections go
    // unanswered.
    bool ListenOnly(int backlog) { return Listen("127.0.0.1", 0, backlog); }
    // Stops accepting, ends every connection and waits until every handler has returned.
    // Idempotent.
    void Stop();

    uint16_t port() const { return boundPort; }
    size_t ConnectionCount() const { return connections; }
    // Connections whose handler has returned (and whose socket is closed).
    size_t FinishedCount() const { return finished; }
    // The bytes received on each connection, in the order of acceptance.
    std::vector<std::string> Received() const;
    // Off: connections accepted from now on are not recorded (for long runs whose handler keeps
    // what it needs). Call before Start.
    void SetRecording(bool on) { recording.store(on); }

    // Reads one request, sends `reply` (in pieces of `pieceSize` with `pauseMs` between them
    // when `pieceSize` is given), closes the sending side, then waits for the peer to close.
    static Handler Respond(std::string reply, size_t pieceSize = 0, uint32_t pauseMs = 0);
    // Answers every request on the connection with `reply` until the peer closes.
    static Handler RespondToEach(std::string reply);
    // Never answers: records what arrives until the peer closes.
    static Handler Silent() {
        return [](TestConnection& connection) { connection.WaitForPeerClose(); };
    }
    // Holds the connection without reading: the peer's sends stall once the buffers are full.
    static Handler Stall() {
        return [](TestConnection& connection) { connection.Stall(); };
    }
    // Accepts and closes at once with a reset.
    static Handler ResetAtOnce() {
        return [](TestConnection& connection) { connection.Reset(); };
    }

  private:
    friend class TestConnection;
    bool Listen(const std::string& address, uint16_t port, int backlog);
    void AcceptLoop();
    void Forget(TestSocket socket);

    Handler handler;
    uint16_t boundPort = 0;
    TestSocket listener = kNoSocket;
    std::atomic<bool> stopping{false}, recording{true};
    std::atomic<size_t> connections{0}, finished{0}, live{0};  // live: handler threads running
    std::thread acceptThread;
    mutable std::mutex mutex;  // guards the records and the open sockets
    std::vector<std::shared_ptr<std::string>> records;
    std::vector<TestSocket> openSockets;
};

}  // namespace qz_test
