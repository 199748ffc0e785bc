// Strategy blobs made by an independent tool (tests/strategy/data/make_blobs.sh, with openssl),
// served by a loopback server and fetched through the engine's own direct way.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include "delivery/delivery_test_util.h"
#include "deployment_config.h"

namespace qzdata_report_kelvo {
namespace {

using qz_test::HttpTestServer;
using qz_test::ServerGroup;
using Strings = std::vector<std::string>;

// The reply of a strategy server that serves the blob `name`.
std::string Served(const std::string& name) {
    return qz_test::ReplyWithBody(qz_test::ReadStrategyData(name + ".blob"));
}

// What the engine and the report object see of a strategy.
struct Observed {
    Strings fallback, postFallback, spare;
    uint32_t keepAliveLimit;
    std::vector<uint32_t> connectionLimits;
    bool stopOldSdk;
    StoredStrategyFields stored;

    bool operator==(const Observed& o) const {
        return fallback == o.fallback && postFallback == o.postFallback && spare == o.spare &&
               keepAliveLimit == o.keepAliveLimit && connectionLimits == o.connectionLimits &&
               stopOldSdk == o.stopOldSdk && stored == o.stored;
    }
};

// Ports of two dispatchers that never send.
const uint16_t kDispatchPorts[] = {1, 2};

// An engine with two dispatchers (so two connections), whose strategy host is a loopback
// server that answers `reply`.
class StrategyFetch {
  public:
    explicit StrategyFetch(const std::string& reply, bool stopOldSdkBefore = false)
        : stopOldSdk(stopOldSdkBefore) {
        started = servers.Start({"127.0.0.1"}, HttpTestServer::Respond(reply));
        engine = std::make_unique<qz_test::Engine>(
            qz_test::LoopbackRouting("127.0.0.1", servers.port(),
                                     Strings(std::begin(deployment::kFallbackAddresses),
                                             std::end(deployment::kFallbackAddresses))));
        for (uint16_t port : kDispatchPorts) {
            engine->table.GetDispatch("127.0.0.1", port);
        }
        before = Observe();
    }

    void Fetch() {
        engine->context.GetStrategy().StartFetch(&stopOldSdk);
        engine->context.GetStrategy().Join();
    }

    Observed Observe() {
        CStrategy& strategy = engine->context.GetStrategy();
        Observed observed{strategy.GetFallbackList().Copy(),
                          strategy.GetPostFallbackList().Copy(),
                          strategy.GetSpareFallbackList().Copy(),
                          strategy.GetKeepAliveLimit(),
                          {},
                          stopOldSdk.load(),
                          strategy.GetStoredFields()};
        for (uint16_t port : kDispatchPorts) {
            auto dispatch = engine->table.GetDispatch("127.0.0.1", port);
            for (const auto& entry : dispatch->GetConnections()) {
                observed.connectionLimits.push_back(entry.second->GetKeepAliveLimit());
            }
        }
        return observed;
    }

    ServerGroup servers;
    bool started = false;
    std::atomic<bool> stopOldSdk;
    std::unique_ptr<qz_test::Engine> engine;
    Observed before;
};

class StrategyFetchTest : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!qz_test::StrategyBlobsFit()) {
            GTEST_SKIP() << "the blobs were made with another strategy pass than this build's";
        }
    }
};

TEST_F(StrategyFetchTest, AGoodBlobReplacesListsAndLimitEverywhereAndSetsTheSwitch) {
    StrategyFetch fetch(Served("good"));
    ASSERT_TRUE(fetch.started);
    EXPECT_EQ(fetch.before.connectionLimits, (std::vector<uint32_t>{60000, 60000}));
    fetch.Fetch();

    EXPECT_EQ(qz_test::RequestLines(fetch.servers.at(0)),
              Strings{"GET /zhsdkinfo.php?ver=1&EC=1 HTTP/1.1"});
    const Observed after = fetch.Observe();
    EXPECT_EQ(after.fallback, (Strings{"10.1.1.1", "10.1.1.2", "192.168.100.200"}));
    EXPECT_EQ(after.postFallback, (Strings{"10.2.2.1", "10.2.2.2"}));
    EXPECT_EQ(after.spare, Strings{"10.3.3.1"});
    EXPECT_EQ(after.keepAliveLimit, 30000u);
    EXPECT_EQ(after.connectionLimits, (std::vector<uint32_t>{30000, 30000}));
    EXPECT_TRUE(after.stopOldSdk);
    EXPECT_EQ(after.stored.number3, 250u);
}

TEST_F(StrategyFetchTest, ABlobEndingAfterField28IsAppliedAndLeavesTheSwitchAlone) {
    for (const bool switchBefore : {false, true}) {
        StrategyFetch fetch(Served("no_switch"), switchBefore);
        ASSERT_TRUE(fetch.started);
        fetch.Fetch();
        const Observed after = fetch.Observe();
        EXPECT_EQ(after.stopOldSdk, switchBefore);
        EXPECT_EQ(after.keepAliveLimit, 31000u);
        EXPECT_EQ(after.connectionLimits, (std::vector<uint32_t>{31000, 31000}));
        EXPECT_EQ(after.fallback.size(), 3u);
    }
}

TEST_F(StrategyFetchTest, EveryRefusalLeavesEverythingAsItWas) {
    const std::string kNotFound = "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n";
    struct Case {
        std::string name;
        std::string reply;
    };
    std::vector<Case> cases = {{"server error", kNotFound}, {"empty reply", qz_test::kReplyOk}};
    for (const char* blob :
         {"entry16", "number_letter", "number_blank", "count_letter", "map_blank", "short",
          "zero_length", "hex_short", "hex_long", "length_letter"}) {
        cases.push_back({blob, Served(blob)});
    }
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        StrategyFetch fetch(c.reply);
        ASSERT_TRUE(fetch.started);
        fetch.Fetch();
        EXPECT_GE(fetch.servers.ConnectionCount(), 1u);
        EXPECT_TRUE(fetch.Observe() == fetch.before);
    }
}

}  // namespace
}  // namespace qzdata_report_kelvo
