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

// One Request (body wanted; a POST when `text` is not empty), everything it gave, and the
// milliseconds it took.
struct Reply {
    template <class Client>
    explicit Reply(Client& client, bool keepAlive = false, const std::string& text = "")
        : code(client.Request(HttpRequest{"/", text, !text.empty(), keepAlive, true}, status,
                              serverKeepAlive, body)),
          ms(static_cast<long>((Clock::now() - start) / std::chrono::milliseconds(1))) {}
    const Clock::time_point start = Clock::now();  // first: before the request
    uint32_t status = 0;
    bool serverKeepAlive = false;
    std::string body;
    int code;  // set by the request that fills the members above
    long ms;
};

// A client (look-ups on the calling thread) that Serve aims at a new loopback server. The
// fixture is the env while it lives: its tick count is the platform's until a test sets `now`.
template <class Client>
struct ClientTest : ::testing::Test, port::EnvWrapper {
    static constexpr long kTimeoutMs = 300;
    ClientTest() { port::Env::Install(this); }
    ~ClientTest() override { port::Env::Install(nullptr); }
    void SetUp() override { ASSERT_TRUE(CHttpClient::StartupWinsock()); }
    uint32_t GetTickCount() override {
        return now >= 0 ? static_cast<uint32_t>(now) : EnvWrapper::GetTickCount();
    }
    static void Aim(Client& c, uint16_t p) {
        c.SetHost("127.0.0.1"), c.SetPort(p), c.SetTimeout(kTimeoutMs);
    }
    void Serve(HttpTestServer::Handler handler) {
        server = std::make_unique<HttpTestServer>();
        ASSERT_TRUE(server->Start(std::move(handler)));
        Aim(client, server->port());
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
        EXPECT_EQ(Reply(client, false, std::string(32u << 20, 'p')).code, timedOut);
    }
    std::atomic<int64_t> now{-1};
    std::unique_ptr<HttpTestServer> server;
    Client client{true};
};

}  // namespace net_test
}  // namespace qzdata_report_kelvo
