// Shared pieces of the network client tests: canned replies, one request with everything it
// gave, and a fixture that aims a client at a loopback server of its own.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "net/http_client.h"
#include "port/env.h"
#include "support/http_test_server.h"
#include "support/wait.h"

namespace qzdata_report_kelvo {
namespace net_test {

using Clock = std::chrono::steady_clock;
using qz_test::HttpTestServer;
using qz_test::WaitUntil;

inline long ElapsedMs(Clock::time_point start) {
    return static_cast<long>((Clock::now() - start) / std::chrono::milliseconds(1));
}

inline const std::string kOk = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";

template <class Client>
void Aim(Client& client, uint16_t port, uint32_t timeoutMs) {
    client.SetHost("127.0.0.1");
    client.SetPort(port);
    client.SetTimeout(timeoutMs);
}

// One Request (body wanted) and everything it gave.
struct Reply {
    template <class Client>
    explicit Reply(Client& client, bool keepAlive = false, bool post = false,
                   const std::string& path = "/", const std::string& text = "")
        : code(client.Request(HttpRequest{path, text, post, keepAlive, true}, status,
                              serverKeepAlive, body)) {}
    uint32_t status = 0;
    bool serverKeepAlive = false;
    std::string body;
    int code;  // last: set by the request that fills the members above
};

// A client (look-ups on the calling thread) that Serve aims at a new loopback server. The
// fixture is the env while it lives: its tick count is the platform's until a test sets `now`.
template <class Client>
class ClientTest : public ::testing::Test, public port::EnvWrapper {
  protected:
    static constexpr uint32_t kTimeoutMs = 300;
    ClientTest() { port::Env::Install(this); }
    ~ClientTest() override { port::Env::Install(nullptr); }
    void SetUp() override { ASSERT_TRUE(CHttpClient::StartupWinsock()); }
    uint32_t GetTickCount() override {
        return now >= 0 ? static_cast<uint32_t>(now) : EnvWrapper::GetTickCount();
    }
    void Serve(HttpTestServer::Handler handler) {
        server = std::make_unique<HttpTestServer>();
        ASSERT_TRUE(server->Start(std::move(handler)));
        Aim(client, server->port(), kTimeoutMs);
    }
    // A peer that resets the connection fails the first send with `failed`; one that stops
    // reading times a large request out with `timedOut`.
    void ExpectSendFailures(HttpTestServer::Handler reset, HttpTestServer::Handler stall,
                            int failed, int timedOut) {
        Serve(std::move(reset));
        ASSERT_EQ(client.Connect(false), 0);
        ASSERT_TRUE(WaitUntil([&] { return server->FinishedCount() == 1; }));
        EXPECT_EQ(client.SendRequest(HttpRequest{"/", "", false, false, false}), failed);
        client.Disconnect();
        Serve(std::move(stall));
        EXPECT_EQ(Reply(client, false, true, "/up", std::string(32u << 20, 'p')).code, timedOut);
    }
    std::atomic<int64_t> now{-1};
    std::unique_ptr<HttpTestServer> server;
    Client client{true};
};

}  // namespace net_test
}  // namespace qzdata_report_kelvo
