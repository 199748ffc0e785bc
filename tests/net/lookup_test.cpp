#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "net/constants.h"
#include "net/http_client.h"
#include "support/http_test_server.h"
#include "support/wait.h"

namespace qzdata_report_kelvo {
namespace {

using qz_test::HttpTestServer;
using Clock = std::chrono::steady_clock;

constexpr uint32_t kTimeoutMs = 150;
const std::string kOk = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";

long ElapsedMs(Clock::time_point start) {
    return static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
}

// A scripted resolver. Shared with the look-up threads through the resolver's capture, so it
// outlives any thread a test abandons.
struct FakeResolver {
    std::mutex mutex;
    std::condition_variable opened;
    bool gateOpen = true;
    std::atomic<bool> fail{false};
    std::atomic<uint32_t> delayMs{0};
    std::atomic<int> calls{0};
    std::atomic<int> returned{0};
    std::thread::id lastThread;

    void Close() {
        std::lock_guard<std::mutex> guard(mutex);
        gateOpen = false;
    }
    void Open() {
        {
            std::lock_guard<std::mutex> guard(mutex);
            gateOpen = true;
        }
        opened.notify_all();
    }
    std::thread::id LastThread() {
        std::lock_guard<std::mutex> guard(mutex);
        return lastThread;
    }

    int Resolve(const std::string& host, const std::string& service, port::AddrInfo** list) {
        calls.fetch_add(1);
        bool failNow;
        uint32_t delay;
        {
            std::unique_lock<std::mutex> guard(mutex);
            lastThread = std::this_thread::get_id();
            opened.wait(guard, [this] { return gateOpen; });
            failNow = fail.load();
            delay = delayMs.load();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(delay));
        const int rc = failNow ? -2 : port::GetAddrInfo(host, service, list);
        returned.fetch_add(1);
        return rc;
    }
};

net::Resolver Bind(const std::shared_ptr<FakeResolver>& fake) {
    return [fake](const std::string& host, const std::string& service, port::AddrInfo** list) {
        return fake->Resolve(host, service, list);
    };
}

class LookupTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(CHttpClient::StartupWinsock());
        ASSERT_TRUE(server.Start(HttpTestServer::RespondToEach(kOk)));
        client = MakeClient(false);
    }
    void TearDown() override {
        // No look-up thread may outlive the test that started it.
        fake->Open();
        std::weak_ptr<CAddrInfoHolder> holder = client->HolderForTesting();
        client.reset();
        EXPECT_TRUE(qz_test::WaitUntil([&] { return holder.expired(); }));
    }

    std::unique_ptr<CHttpClient> MakeClient(bool blocking) {
        auto made = std::make_unique<CHttpClient>(blocking);
        made->SetHost("127.0.0.1");
        made->SetPort(server.port());
        made->SetTimeout(kTimeoutMs);
        made->SetResolverForTesting(Bind(fake));
        return made;
    }

    int Get(CHttpClient& target) {
        uint32_t status = 0;
        bool serverKeepAlive = false;
        std::string body;
        return target.Request(false, false, "/", "", status, serverKeepAlive, false, body);
    }

    // Opens the gate from another thread after `delayMs`, while the caller waits in Connect.
    std::thread OpenLater(uint32_t delayMs) {
        return std::thread([fake = fake, delayMs] {
            std::this_thread::sleep_for(std::chrono::milliseconds(delayMs));
            fake->Open();
        });
    }

    HttpTestServer server;
    std::shared_ptr<FakeResolver> fake = std::make_shared<FakeResolver>();
    std::unique_ptr<CHttpClient> client;
};

TEST_F(LookupTest, FirstLookupOnAThreadThenDirect) {
    EXPECT_FALSE(client->IsDirectLookupForTesting());
    ASSERT_EQ(Get(*client), net::kResultOk);
    EXPECT_NE(fake->LastThread(), std::this_thread::get_id());
    EXPECT_TRUE(client->IsDirectLookupForTesting());

    ASSERT_EQ(Get(*client), net::kResultOk);
    EXPECT_EQ(fake->LastThread(), std::this_thread::get_id());
    EXPECT_EQ(fake->calls.load(), 2);
}

TEST_F(LookupTest, SlowDirectLookupSendsTheClientBackToThreads) {
    ASSERT_EQ(Get(*client), net::kResultOk);
    ASSERT_TRUE(client->IsDirectLookupForTesting());

    // A direct look-up that takes longer than the time-out still completes this request.
    fake->delayMs = kTimeoutMs + 50;
    ASSERT_EQ(Get(*client), net::kResultOk);
    EXPECT_FALSE(client->IsDirectLookupForTesting());

    fake->delayMs = 0;
    ASSERT_EQ(Get(*client), net::kResultOk);
    EXPECT_NE(fake->LastThread(), std::this_thread::get_id());
    EXPECT_TRUE(client->IsDirectLookupForTesting());
}

TEST_F(LookupTest, BlockingClientAlwaysResolvesOnTheCallingThread) {
    std::unique_ptr<CHttpClient> blocking = MakeClient(true);
    fake->delayMs = kTimeoutMs + 50;
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(Get(*blocking), net::kResultOk);
        EXPECT_EQ(fake->LastThread(), std::this_thread::get_id());
        EXPECT_TRUE(blocking->IsDirectLookupForTesting());
    }
}

TEST_F(LookupTest, OverrunGives5AndTheNextConnectWaitsForTheSameThread) {
    fake->Close();
    const auto start = Clock::now();
    EXPECT_EQ(Get(*client), net::kResultLookupTimedOut);
    const long elapsed = ElapsedMs(start);
    EXPECT_GE(elapsed, static_cast<long>(kTimeoutMs) - 10);
    EXPECT_LT(elapsed, static_cast<long>(kTimeoutMs) + 1000);

    EXPECT_EQ(Get(*client), net::kResultLookupTimedOut);
    EXPECT_EQ(fake->calls.load(), 1);
    EXPECT_FALSE(client->IsDirectLookupForTesting());

    // The third call finds the same thread still running and uses what it stores.
    client->SetTimeout(3000);
    std::thread opener = OpenLater(50);
    EXPECT_EQ(Get(*client), net::kResultOk);
    opener.join();
    EXPECT_EQ(fake->calls.load(), 1);
    EXPECT_FALSE(client->IsDirectLookupForTesting());
}

TEST_F(LookupTest, FailedLookupGives4AndTheNextConnectStartsAnotherThread) {
    fake->Close();
    fake->fail = true;
    EXPECT_EQ(Get(*client), net::kResultLookupTimedOut);
    client->SetTimeout(3000);
    std::thread opener = OpenLater(50);
    EXPECT_EQ(Get(*client), net::kResultLookupEmpty);
    opener.join();
    EXPECT_EQ(fake->calls.load(), 1);

    // Not started by that call, so the mode stays: a new thread, which then switches it.
    EXPECT_EQ(Get(*client), net::kResultLookupEmpty);
    EXPECT_EQ(fake->calls.load(), 2);
    EXPECT_NE(fake->LastThread(), std::this_thread::get_id());
    EXPECT_TRUE(client->IsDirectLookupForTesting());
    EXPECT_EQ(Get(*client), net::kResultResolveFailed);
}

TEST_F(LookupTest, DestroyingTheClientDuringALookupIsClean) {
    fake->Close();
    EXPECT_EQ(Get(*client), net::kResultLookupTimedOut);
    std::weak_ptr<CAddrInfoHolder> holder = client->HolderForTesting();

    const auto start = Clock::now();
    client.reset();
    EXPECT_LT(ElapsedMs(start), static_cast<long>(kTimeoutMs));
    // The abandoned thread still holds its share and finishes on its own.
    EXPECT_FALSE(holder.expired());
    fake->Open();
    EXPECT_TRUE(qz_test::WaitUntil([&] { return holder.expired(); }));
    EXPECT_EQ(fake->returned.load(), 1);
    client = MakeClient(false);
}

TEST_F(LookupTest, EmptyHostNeverReachesALookup) {
    client->SetHost("");
    EXPECT_EQ(Get(*client), net::kResultEmptyHost);
    EXPECT_EQ(fake->calls.load(), 0);

    // The thread function skips an empty host by itself as well.
    auto holder = std::make_shared<CAddrInfoHolder>();
    DnsThreadProc<PlainTransport>(new _DnsThreadData{"", 80, holder, Bind(fake)});
    EXPECT_EQ(fake->calls.load(), 0);
    EXPECT_EQ(holder->Head(), nullptr);
}

TEST_F(LookupTest, ThreadFunctionStoresOnlyASuccessfulList) {
    auto holder = std::make_shared<CAddrInfoHolder_https>();
    DnsThreadProc<TlsTransport>(new _DnsThreadData_https{"127.0.0.1", 443, holder, Bind(fake)});
    ASSERT_NE(holder->Head(), nullptr);

    // A failed look-up clears what was there and stores nothing.
    fake->fail = true;
    DnsThreadProc<TlsTransport>(new _DnsThreadData_https{"127.0.0.1", 443, holder, Bind(fake)});
    EXPECT_EQ(holder->Head(), nullptr);
}

}  // namespace
}  // namespace qzdata_report_kelvo
