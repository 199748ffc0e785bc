#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "net/http_client.h"
#include "net/net_test_util.h"
#include "support/http_test_server.h"
#include "support/wait.h"

namespace qzdata_report_kelvo {
namespace {

using namespace net_test;
using qz_test::HttpTestServer;

constexpr uint32_t kTimeoutMs = 150;

// A scripted resolver behind a gate. Look-up threads share it through the resolver's capture,
// so it outlives any thread a test abandons.
struct FakeResolver {
    std::atomic<bool> gateOpen{true}, fail{false};
    std::atomic<uint32_t> delayMs{0};
    std::atomic<int> calls{0};
    std::atomic<std::thread::id> lastThread{};

    int Resolve(const std::string& host, const std::string& service, port::AddrInfo** list) {
        calls.fetch_add(1);
        lastThread = std::this_thread::get_id();
        while (!gateOpen) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(delayMs.load()));
        return fail ? -2 : port::GetAddrInfo(host, service, list);
    }
};

class LookupTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(CHttpClient::StartupWinsock());
        ASSERT_TRUE(server.Start(HttpTestServer::RespondToEach(kOk)));
        client = MakeClient(false);
    }
    void TearDown() override {
        // No look-up thread may outlive the test that started it.
        fake->gateOpen = true;
        std::weak_ptr<CAddrInfoHolder> holder = client->HolderForTesting();
        client.reset();
        EXPECT_TRUE(qz_test::WaitUntil([&] { return holder.expired(); }));
    }
    std::unique_ptr<CHttpClient> MakeClient(bool blocking) {
        auto made = std::make_unique<CHttpClient>(blocking);
        Aim(*made, server.port(), kTimeoutMs);
        made->SetResolverForTesting(
            [fake = fake](const std::string& host, const std::string& service,
                          port::AddrInfo** list) { return fake->Resolve(host, service, list); });
        return made;
    }
    // Runs a request with a long time-out while the gate opens 50 ms later.
    int FetchWhileGateOpens() {
        client->SetTimeout(3000);
        std::thread opener([fake = fake] {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            fake->gateOpen = true;
        });
        const int code = Fetch(*client).code;
        opener.join();
        client->SetTimeout(kTimeoutMs);
        return code;
    }
    bool LastLookupOnThisThread() { return fake->lastThread.load() == std::this_thread::get_id(); }

    HttpTestServer server;
    std::shared_ptr<FakeResolver> fake = std::make_shared<FakeResolver>();
    std::unique_ptr<CHttpClient> client;
};

TEST_F(LookupTest, ModeFollowsHowLongLookupsTake) {
    // Thread first; direct once a thread finished in time; threads again after a slow direct one.
    ASSERT_EQ(Fetch(*client).code, 0);
    EXPECT_FALSE(LastLookupOnThisThread());
    fake->delayMs = kTimeoutMs + 50;
    ASSERT_EQ(Fetch(*client).code, 0);
    EXPECT_TRUE(LastLookupOnThisThread());
    fake->delayMs = 0;
    ASSERT_EQ(Fetch(*client).code, 0);
    EXPECT_FALSE(LastLookupOnThisThread());

    // A blocking client never leaves the calling thread, however slow the resolver.
    std::unique_ptr<CHttpClient> blocking = MakeClient(true);
    fake->delayMs = kTimeoutMs + 50;
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(Fetch(*blocking).code, 0);
        EXPECT_TRUE(LastLookupOnThisThread());
    }
}

TEST_F(LookupTest, OverrunGives5AndTheNextConnectWaitsForTheSameThread) {
    fake->gateOpen = false;
    const auto start = Clock::now();
    EXPECT_EQ(Fetch(*client).code, net::kResultLookupTimedOut);
    EXPECT_GE(ElapsedMs(start), static_cast<long>(kTimeoutMs) - 10);
    EXPECT_LT(ElapsedMs(start), static_cast<long>(kTimeoutMs) + 1000);

    EXPECT_EQ(Fetch(*client).code, net::kResultLookupTimedOut);
    EXPECT_EQ(FetchWhileGateOpens(), 0);
    EXPECT_EQ(fake->calls.load(), 1);
    EXPECT_FALSE(client->IsDirectLookupForTesting());
}

TEST_F(LookupTest, FailedLookupGives4AndTheNextConnectStartsAnotherThread) {
    fake->fail = true;
    fake->gateOpen = false;
    EXPECT_EQ(Fetch(*client).code, net::kResultLookupTimedOut);
    EXPECT_EQ(FetchWhileGateOpens(), net::kResultLookupEmpty);
    EXPECT_EQ(fake->calls.load(), 1);

    // That call did not start the thread, so the mode stays: a new thread, which switches it.
    EXPECT_EQ(Fetch(*client).code, net::kResultLookupEmpty);
    EXPECT_EQ(fake->calls.load(), 2);
    EXPECT_FALSE(LastLookupOnThisThread());
    EXPECT_EQ(Fetch(*client).code, net::kResultResolveFailed);
}

TEST_F(LookupTest, DestroyingTheClientDuringALookupIsClean) {
    fake->gateOpen = false;
    EXPECT_EQ(Fetch(*client).code, net::kResultLookupTimedOut);
    std::weak_ptr<CAddrInfoHolder> holder = client->HolderForTesting();
    const auto start = Clock::now();
    client.reset();
    EXPECT_LT(ElapsedMs(start), static_cast<long>(kTimeoutMs));

    // The abandoned thread keeps its share, stores its list, and lets go when it ends.
    EXPECT_FALSE(holder.expired());
    fake->gateOpen = true;
    EXPECT_TRUE(qz_test::WaitUntil([&] { return holder.expired(); }));
    client = MakeClient(false);
}

}  // namespace
}  // namespace qzdata_report_kelvo
