// Strategy blobs made by an independent tool, served by a loopback server and fetched through
// the engine's own direct way.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include "delivery/delivery_test_util.h"

namespace qzdata_report_kelvo {
namespace {

using Strings = std::vector<std::string>;

// What the engine and the report object see of a strategy.
struct Observed {
    Strings fallback, postFallback, spare;
    std::vector<uint32_t> limits;  // the strategy's, then each connection's
    bool stopOldSdk;
    StoredStrategyFields stored;
    bool operator==(const Observed& o) const {
        return fallback == o.fallback && postFallback == o.postFallback && spare == o.spare &&
               limits == o.limits && stopOldSdk == o.stopOldSdk && stored == o.stored;
    }
};

// An engine with two dispatchers, whose strategy host answers `blob` (a file name, or "" for
// an empty 200 reply) or, with `fail`, 404.
struct StrategyFetch {
    explicit StrategyFetch(const std::string& blob, bool stopOldSdkBefore = false,
                           bool fail = false)
        : stopOldSdk(stopOldSdkBefore) {
        const std::string reply =
            fail ? "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n"
                 : qz_test::ReplyWithBody(blob.empty() ? "" : qz_test::ReadStrategyData(blob));
        started = servers.Start({"127.0.0.1"}, {qz_test::HttpTestServer::Respond(reply)});
        engine = std::make_unique<qz_test::Engine>(
            qz_test::LoopbackRouting("127.0.0.1", servers.port(),
                                     Strings(std::begin(deployment::kFallbackAddresses),
                                             std::end(deployment::kFallbackAddresses))));
        for (uint16_t port : {1, 2}) {
            engine->table.GetDispatch("127.0.0.1", port);  // never sends
        }
        before = Observe();
        engine->context.GetStrategy().StartFetch(&stopOldSdk);
        engine->context.GetStrategy().Join();
    }

    Observed Observe() {
        CStrategy& strategy = engine->context.GetStrategy();
        Observed o{strategy.GetFallbackList().Copy(),
                   strategy.GetPostFallbackList().Copy(),
                   strategy.GetSpareFallbackList().Copy(),
                   {strategy.GetKeepAliveLimit()},
                   stopOldSdk.load(),
                   strategy.GetStoredFields()};
        for (uint16_t port : {1, 2}) {
            for (const auto& entry :
                 engine->table.GetDispatch("127.0.0.1", port)->GetConnections()) {
                o.limits.push_back(entry.second->GetKeepAliveLimit());
            }
        }
        return o;
    }

    qz_test::ServerGroup servers;
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
    StrategyFetch fetch("good.blob");
    ASSERT_TRUE(fetch.started);
    EXPECT_EQ(fetch.before.limits, (std::vector<uint32_t>{60000, 60000, 60000}));
    EXPECT_EQ(qz_test::RequestLines(fetch.servers.at(0)),
              Strings{"GET /zhsdkinfo.php?ver=1&EC=1 HTTP/1.1"});
    const Observed after = fetch.Observe();
    EXPECT_EQ(after.fallback, (Strings{"10.1.1.1", "10.1.1.2", "192.168.100.200"}));
    EXPECT_EQ(after.postFallback, (Strings{"10.2.2.1", "10.2.2.2"}));
    EXPECT_EQ(after.spare, Strings{"10.3.3.1"});
    EXPECT_EQ(after.limits, (std::vector<uint32_t>{30000, 30000, 30000}));
    EXPECT_TRUE(after.stopOldSdk);
    EXPECT_EQ(after.stored.number3, 250u);
}

TEST_F(StrategyFetchTest, ABlobEndingAfterField28IsAppliedAndLeavesTheSwitchAlone) {
    for (const bool switchBefore : {false, true}) {
        StrategyFetch fetch("no_switch.blob", switchBefore);
        const Observed after = fetch.Observe();
        EXPECT_EQ(after.stopOldSdk, switchBefore);
        EXPECT_EQ(after.limits, (std::vector<uint32_t>{31000, 31000, 31000}));
        EXPECT_EQ(after.fallback.size(), 3u);
    }
}

TEST_F(StrategyFetchTest, EveryRefusalLeavesEverythingAsItWas) {
    for (const char* blob :
         {"", "entry16.blob", "number_letter.blob", "number_blank.blob", "count_letter.blob",
          "map_blank.blob", "short.blob", "zero_length.blob", "hex_short.blob", "hex_long.blob",
          "length_letter.blob"}) {
        StrategyFetch fetch(blob);
        EXPECT_EQ(fetch.servers.ConnectionCount(), 1u) << blob;
        EXPECT_TRUE(fetch.Observe() == fetch.before) << blob;
    }
    // Attempts 1 and 2, then no fallback; the direct way counts nothing.
    StrategyFetch failed("", false, true);
    EXPECT_EQ(qz_test::AttemptsSeen({&failed.servers.at(0)}), (std::vector<int>{1, 2}));
    EXPECT_TRUE(failed.Observe() == failed.before);
    const ReportCounters counters = failed.engine->Counters();
    EXPECT_EQ(counters.first_connect + counters.retry + counters.fait + counters.fail_report, 0u);
}

}  // namespace
}  // namespace qzdata_report_kelvo
