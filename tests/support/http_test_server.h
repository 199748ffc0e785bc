// A scripted loopback HTTP server for tests that play a collector or any other peer of the
// network client. It binds 127.0.0.1 or any other 127.x.y.z address, on a free port or a given
// one, and runs a handler for each accepted connection on a thread of its own. Scripted handlers
// answer with fixed bytes, in pieces, stay silent, or close early; a custom handler gets the
// connection itself. Every byte the server receives is recorded per connection.
//
// All members may be called from any thread. Handlers run on the server's threads and must end
// when the connection's reads report the server stopping (all blocking helpers here do).
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace qz_test {

class HttpTestServer;

// One accepted connection, as its handler sees it. Used by that handler's thread only.
class TestConnection {
  public:
    // Reads until one whole request has arrived (the head up to its empty line, then as many
    // body bytes as its Content-Length says) and returns it. Bytes that arrived behind it are
    // kept for the next call. Empty when the peer closed, the server stops, or `timeoutMs` passed.
    std::string ReadRequest(uint32_t timeoutMs = 5000);
    // Reads until at least `count` bytes arrived in total on this connection; false on close,
    // stop or time-out.
    bool ReadAtLeast(size_t count, uint32_t timeoutMs = 5000);
    // Sends all of `bytes`; false when the peer is gone.
    bool Send(const std::string& bytes);
    // Sends `bytes` in pieces of `pieceSize` with `pauseMs` between them.
    bool SendInPieces(const std::string& bytes, size_t pieceSize, uint32_t pauseMs);
    // Stays silent and reads (recording) until the peer closes, the server stops or `timeoutMs`
    // passed.
    void WaitForPeerClose(uint32_t timeoutMs = 10000);
    // Holds the connection without reading until the server stops or `timeoutMs` passed.
    void Stall(uint32_t timeoutMs = 10000);
    // Shuts the sending direction: the peer reads the end of the stream.
    void CloseSending();
    // Closes at once with a reset (no orderly end); the connection is unusable afterwards.
    void Reset();

    // The socket, for handlers that run a protocol of their own over it (TLS). Blocking.
    int fd() const { return socket; }
    bool Stopping() const;

  private:
    friend class HttpTestServer;
    struct Record;
    TestConnection(int socket, HttpTestServer& server, std::shared_ptr<Record> record);
    // Waits for readability in short slices so that a stop is noticed; recv result or -1.
    long ReceiveSome(char* buffer, size_t size, uint32_t timeoutMs);

    int socket;
    HttpTestServer& server;
    std::shared_ptr<Record> record;
    std::string pending;
};

class HttpTestServer {
  public:
    using Handler = std::function<void(TestConnection&)>;

    HttpTestServer() = default;
    // Stops the server: wakes and joins every thread.
    ~HttpTestServer();
    HttpTestServer(const HttpTestServer&) = delete;
    HttpTestServer& operator=(const HttpTestServer&) = delete;

    // Binds `address` (a 127.x.y.z text) and `port` (0: any free port), listens, and runs
    // `handler` for each accepted connection. False when the server could not listen.
    bool Start(Handler handler, const std::string& address = "127.0.0.1", uint16_t port = 0);
    // Binds and listens with `backlog` but never accepts: later connections wait in the backlog
    // until it is full and are left unanswered after that.
    bool ListenOnly(int backlog, const std::string& address = "127.0.0.1", uint16_t port = 0);
    // Stops accepting, ends every connection and joins the threads. Idempotent.
    void Stop();

    uint16_t port() const { return boundPort; }
    const std::string& address() const { return boundAddress; }

    // Connections accepted so far.
    size_t ConnectionCount() const;
    // Connections whose handler has returned (and whose socket is closed).
    size_t FinishedCount() const;
    // The bytes received on each connection, in the order of acceptance.
    std::vector<std::string> Received() const;
    // The bytes received on connection `index` (empty when there is none).
    std::string ReceivedOn(size_t index) const;

    // Scripted handlers.
    // Reads one request, sends `reply`, closes the sending side, then waits for the peer to close.
    static Handler Respond(std::string reply);
    // Answers every request on the connection with `reply` until the peer closes.
    static Handler RespondToEach(std::string reply);
    // As Respond, sending the reply in pieces of `pieceSize` with `pauseMs` between them.
    static Handler RespondInPieces(std::string reply, size_t pieceSize, uint32_t pauseMs);
    // Never answers: records what arrives until the peer closes.
    static Handler Silent();
    // Holds the connection without reading or answering: the peer's sends stall once the
    // socket buffers are full.
    static Handler Stall();
    // Accepts and closes at once with a reset.
    static Handler ResetAtOnce();

  private:
    friend class TestConnection;
    bool Listen(const std::string& address, uint16_t port, int backlog);
    void AcceptLoop();

    Handler handler;
    std::string boundAddress;
    uint16_t boundPort = 0;
    int listener = -1;
    std::atomic<bool> stopping{false};
    std::thread acceptThread;

    mutable std::mutex mutex;
    std::vector<std::shared_ptr<TestConnection::Record>> records;
    std::vector<std::thread> connectionThreads;
    std::vector<int> openSockets;
    size_t finished = 0;
};

}  // namespace qz_test
