#include "strategy/strategy.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "codec/md5.h"
#include "deployment_config.h"
#include "runtime/event.h"
#include "support/wait.h"

namespace qzdata_report_kelvo {
namespace {

using Strings = std::vector<std::string>;
using Map = std::map<std::string, int32_t>;

std::string ReadData(const std::string& name) {
    std::ifstream file(std::string(QZ_STRATEGY_TEST_DATA) + "/" + name, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// The blobs are enciphered with the default profile's pass; a build with another profile
// cannot decode them.
bool BlobsMatchThisBuild() {
    Md5Context md5;
    md5.Start(deployment::kStrategyPass);
    return ReadData("pass.md5") == md5.HexDigest() + "\n";
}

class RecordingSink : public KeepAliveSink {
  public:
    void SetKeepAliveLimit(uint32_t milliseconds) override { limits.push_back(milliseconds); }
    std::vector<uint32_t> limits;
};

// Everything a blob may change, as one comparable value.
struct Snapshot {
    Strings fallback;
    Strings postFallback;
    Strings strategyFallback;
    Strings configFallback;
    Strings spareFallback;
    uint32_t keepAliveLimit;
    StoredStrategyFields stored;

    bool operator==(const Snapshot& o) const {
        return fallback == o.fallback && postFallback == o.postFallback &&
               strategyFallback == o.strategyFallback && configFallback == o.configFallback &&
               spareFallback == o.spareFallback && keepAliveLimit == o.keepAliveLimit &&
               stored == o.stored;
    }
};

Snapshot Take(CStrategy& strategy) {
    return {strategy.GetFallbackList().Copy(),
            strategy.GetPostFallbackList().Copy(),
            strategy.GetStrategyFallbackList().Copy(),
            strategy.GetConfigFallbackList().Copy(),
            strategy.GetSpareFallbackList().Copy(),
            strategy.GetKeepAliveLimit(),
            strategy.GetStoredFields()};
}

// A strategy whose fetch plays the server's reply.
struct Harness {
    Harness() { strategy.SetKeepAliveSink(&sink); }

    // One fetch on the strategy thread that answers `reply`.
    void Answer(const std::string& reply) {
        strategy.SetFetchFunction(
            [reply](const std::string&, uint16_t, const std::string&, std::string& out) {
                out = reply;
                return true;
            });
        strategy.StartFetch(&stopOldSdk);
        strategy.Join();
    }
    void AnswerBlob(const std::string& name) { Answer(ReadData(name + ".blob")); }

    RecordingSink sink;
    std::atomic<bool> stopOldSdk{false};
    CStrategy strategy;
};

class StrategyBlobTest : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!BlobsMatchThisBuild()) {
            GTEST_SKIP() << "the blobs were made with another strategy pass than this build's";
        }
    }
};

StoredStrategyFields DefaultStored() {
    StoredStrategyFields stored;
    stored.specialActs = {"protoaudiolistener", "protoaudiospeaker", "protoaudiouserloss"};
    stored.number3 = 200;
    stored.number5 = 2;
    stored.number6 = 3072;
    return stored;
}

// What data/make_blobs.sh puts into "good" (and, with other numbers, its variants).
StoredStrategyFields GoodStored() {
    StoredStrategyFields stored;
    stored.specialActs = {"actone", "acttwo"};
    stored.stringSet2 = {"alpha"};
    stored.intMap1 = Map{{"key", 7}, {"neg", -12}};
    stored.intMap2 = Map{{"k1", 12}, {"k2", -5}};
    stored.number3 = 250;
    stored.number5 = 7;
    stored.number6 = 4096;
    stored.stringSet3 = {"set3"};
    stored.stringSet4 = {"set4"};
    stored.stringSet6 = {"set6"};
    return stored;
}

const Strings kGoodFallback = {"10.1.1.1", "10.1.1.2", "192.168.100.200"};
const Strings kGoodPostFallback = {"10.2.2.1", "10.2.2.2"};
const Strings kGoodSpareFallback = {"10.3.3.1"};

TEST(CStrategyTest, DefaultsComeFromTheDeploymentProfile) {
    CStrategy strategy;
    EXPECT_EQ(strategy.GetCollectorHost(), deployment::kCollectorHost);
    EXPECT_EQ(strategy.GetAuxHost1(), deployment::kAuxHost1);
    EXPECT_EQ(strategy.GetAuxHost2(), deployment::kAuxHost2);
    EXPECT_EQ(strategy.GetStrategyHost(), deployment::kStrategyHost);
    EXPECT_EQ(strategy.GetConfigHost(), deployment::kConfigHost);
    EXPECT_EQ(strategy.GetAuxHost3(), deployment::kAuxHost3);
    EXPECT_EQ(strategy.GetCollectorPort(), deployment::kCollectorPort);
    EXPECT_EQ(strategy.GetStrategyPort(), deployment::kStrategyPort);
    EXPECT_EQ(strategy.GetConfigPort(), deployment::kConfigPort);

    const Snapshot snapshot = Take(strategy);
    EXPECT_EQ(snapshot.fallback, Strings(std::begin(deployment::kFallbackAddresses),
                                         std::end(deployment::kFallbackAddresses)));
    EXPECT_EQ(snapshot.postFallback, Strings(std::begin(deployment::kPostFallbackAddresses),
                                             std::end(deployment::kPostFallbackAddresses)));
    EXPECT_EQ(snapshot.spareFallback, Strings(std::begin(deployment::kSpareFallbackAddresses),
                                              std::end(deployment::kSpareFallbackAddresses)));
    EXPECT_EQ(snapshot.fallback.size(), 6u);
    EXPECT_EQ(snapshot.postFallback.size(), 8u);
    EXPECT_EQ(snapshot.spareFallback.size(), 4u);
    EXPECT_TRUE(snapshot.strategyFallback.empty());
    EXPECT_TRUE(snapshot.configFallback.empty());
    EXPECT_EQ(snapshot.keepAliveLimit, 60000u);
    EXPECT_TRUE(snapshot.stored == DefaultStored());

    EXPECT_FALSE(strategy.IsLogsEnabled());
    strategy.EnableLogs();
    EXPECT_TRUE(strategy.IsLogsEnabled());
}

TEST_F(StrategyBlobTest, DecodeGivesTheTextThatOpensslEnciphered) {
    for (const char* name :
         {"good", "no_switch", "switch_plus", "switch_zero", "all_zero", "exact_blocks", "entry16",
          "number_letter", "number_blank", "count_letter", "map_blank", "short"}) {
        SCOPED_TRACE(name);
        std::string plain = "stale";
        EXPECT_TRUE(CStrategy::DecodeStrategyBlob(ReadData(std::string(name) + ".blob"), plain));
        EXPECT_EQ(plain, ReadData(std::string(name) + ".plain"));
    }
}

TEST_F(StrategyBlobTest, DecodeRefusesABadOuterLayer) {
    for (const char* name : {"zero_length", "hex_short", "hex_long", "length_letter"}) {
        SCOPED_TRACE(name);
        std::string plain = "stale";
        EXPECT_FALSE(CStrategy::DecodeStrategyBlob(ReadData(std::string(name) + ".blob"), plain));
        EXPECT_EQ(plain, "");
    }
    std::string plain = "stale";
    EXPECT_FALSE(CStrategy::DecodeStrategyBlob("", plain));
    EXPECT_EQ(plain, "");
}

TEST_F(StrategyBlobTest, GoodBlobReplacesListsStoredFieldsLimitAndSwitch) {
    Harness h;
    h.AnswerBlob("good");
    const Snapshot snapshot = Take(h.strategy);
    EXPECT_EQ(snapshot.fallback, kGoodFallback);
    EXPECT_EQ(snapshot.postFallback, kGoodPostFallback);
    // The empty entry before it counted but was not kept.
    EXPECT_EQ(snapshot.spareFallback, kGoodSpareFallback);
    EXPECT_TRUE(snapshot.strategyFallback.empty());
    EXPECT_TRUE(snapshot.configFallback.empty());
    EXPECT_EQ(snapshot.keepAliveLimit, 30000u);
    EXPECT_TRUE(snapshot.stored == GoodStored());
    EXPECT_EQ(h.sink.limits, std::vector<uint32_t>{30000});
    EXPECT_TRUE(h.stopOldSdk.load());
    // Hosts are no part of a blob.
    EXPECT_EQ(h.strategy.GetCollectorHost(), deployment::kCollectorHost);
}

TEST_F(StrategyBlobTest, RefusedBlobsChangeNothing) {
    for (const char* name :
         {"zero_length", "hex_short", "hex_long", "length_letter", "entry16", "number_letter",
          "number_blank", "count_letter", "map_blank", "short"}) {
        SCOPED_TRACE(name);
        for (bool fromDefaults : {true, false}) {
            Harness h;
            if (!fromDefaults) {
                // A state apart from the defaults, with the switch off.
                h.AnswerBlob("switch_zero");
                ASSERT_EQ(h.strategy.GetKeepAliveLimit(), 30000u);
            }
            const Snapshot before = Take(h.strategy);
            const size_t pushes = h.sink.limits.size();
            h.AnswerBlob(name);
            EXPECT_TRUE(Take(h.strategy) == before);
            EXPECT_EQ(h.sink.limits.size(), pushes);
            EXPECT_FALSE(h.stopOldSdk.load());
        }
    }
}

TEST_F(StrategyBlobTest, BlobWithoutAValidSwitchIsAppliedAndLeavesTheSwitch) {
    const struct {
        const char* name;
        uint32_t keepAliveLimit;
    } cases[] = {{"no_switch", 31000}, {"switch_plus", 32000}};
    for (const auto& c : cases) {
        for (bool switchBefore : {false, true}) {
            SCOPED_TRACE(std::string(c.name) + (switchBefore ? " switch on" : " switch off"));
            Harness h;
            h.stopOldSdk.store(switchBefore);
            h.AnswerBlob(c.name);
            EXPECT_EQ(h.stopOldSdk.load(), switchBefore);
            const Snapshot snapshot = Take(h.strategy);
            EXPECT_EQ(snapshot.fallback, kGoodFallback);
            EXPECT_EQ(snapshot.keepAliveLimit, c.keepAliveLimit);
            EXPECT_TRUE(snapshot.stored == GoodStored());
        }
    }
}

TEST_F(StrategyBlobTest, SwitchDigitZeroKeepsTheLegacyLibraryRunning) {
    Harness h;
    h.stopOldSdk.store(true);
    h.AnswerBlob("switch_zero");
    EXPECT_FALSE(h.stopOldSdk.load());
}

TEST_F(StrategyBlobTest, AllCountsZeroEmptyEveryListAndSet) {
    Harness h;
    h.stopOldSdk.store(true);
    h.AnswerBlob("all_zero");
    const Snapshot snapshot = Take(h.strategy);
    EXPECT_TRUE(snapshot.fallback.empty());
    EXPECT_TRUE(snapshot.postFallback.empty());
    EXPECT_TRUE(snapshot.spareFallback.empty());
    EXPECT_EQ(snapshot.keepAliveLimit, 0u);
    StoredStrategyFields empty;
    EXPECT_TRUE(snapshot.stored == empty);
    EXPECT_EQ(h.sink.limits, std::vector<uint32_t>{0});
    EXPECT_FALSE(h.stopOldSdk.load());
    std::string address = "stale";
    h.strategy.GetFallbackList().PickRandom(address);
    EXPECT_EQ(address, "");
}

TEST_F(StrategyBlobTest, PlainLengthOfWholeBlocksNeedsNoPaddingBlock) {
    Harness h;
    ASSERT_EQ(ReadData("exact_blocks.plain").size() % 16, 0u);
    h.AnswerBlob("exact_blocks");
    StoredStrategyFields expected = GoodStored();
    expected.stringSet2 = {"alphaxxxxx"};
    EXPECT_TRUE(h.strategy.GetStoredFields() == expected);
    EXPECT_TRUE(h.stopOldSdk.load());
}

TEST_F(StrategyBlobTest, SameReplyAgainIsNotParsedAgain) {
    Harness h;
    h.AnswerBlob("good");
    ASSERT_TRUE(h.strategy.SetKeepAliveLimit(99));
    h.stopOldSdk.store(false);
    h.AnswerBlob("good");
    EXPECT_EQ(h.strategy.GetKeepAliveLimit(), 99000u);
    EXPECT_FALSE(h.stopOldSdk.load());
    // A different reply is parsed again.
    h.AnswerBlob("no_switch");
    EXPECT_EQ(h.strategy.GetKeepAliveLimit(), 31000u);
}

TEST_F(StrategyBlobTest, UnchangedLimitFromABlobIsNotPushed) {
    Harness h;
    h.AnswerBlob("good");
    h.AnswerBlob("switch_zero");  // same keep-alive as "good"
    EXPECT_FALSE(h.stopOldSdk.load());
    EXPECT_EQ(h.sink.limits, std::vector<uint32_t>{30000});
}

TEST_F(StrategyBlobTest, FailedOrEmptyFetchKeepsTheDefaults) {
    Harness h;
    const Snapshot defaults = Take(h.strategy);
    h.strategy.StartFetch(&h.stopOldSdk);  // no fetch function installed
    h.strategy.Join();
    EXPECT_TRUE(Take(h.strategy) == defaults);

    const std::string good = ReadData("good.blob");
    h.strategy.SetFetchFunction(
        [&good](const std::string&, uint16_t, const std::string&, std::string& out) {
            out = good;  // a body that came with a failure is not used
            return false;
        });
    h.strategy.StartFetch(&h.stopOldSdk);
    h.strategy.Join();
    EXPECT_TRUE(Take(h.strategy) == defaults);

    h.Answer("");
    EXPECT_TRUE(Take(h.strategy) == defaults);
    EXPECT_TRUE(h.sink.limits.empty());
    EXPECT_FALSE(h.stopOldSdk.load());

    // The failures left no trace that would stop the good blob.
    h.AnswerBlob("good");
    EXPECT_EQ(h.strategy.GetKeepAliveLimit(), 30000u);
}

TEST(CStrategyTest, FetchAsksTheStrategyHostOnItsPort) {
    CStrategy strategy;
    StrategyRouting routing = DefaultRouting();
    routing.strategyHost = "127.0.0.5";
    routing.strategyPort = 12345;
    routing.collectorHost = "127.0.0.6";
    routing.collectorPort = 23456;
    routing.fallbackAddresses = {"127.0.0.7"};
    strategy.SetRoutingForTesting(routing);
    EXPECT_EQ(strategy.GetCollectorHost(), "127.0.0.6");
    EXPECT_EQ(strategy.GetCollectorPort(), 23456);
    std::string address;
    strategy.GetFallbackList().PickRandom(address);
    EXPECT_EQ(address, "127.0.0.7");

    std::vector<std::string> requests;
    strategy.SetFetchFunction(
        [&requests](const std::string& host, uint16_t port, const std::string& path, std::string&) {
            requests.push_back(host + ":" + std::to_string(port) + path);
            return false;
        });
    strategy.StartFetch(nullptr);
    strategy.Join();
    EXPECT_EQ(requests, Strings{"127.0.0.5:12345/zhsdkinfo.php?ver=1"});
}

TEST(CStrategyTest, StartFetchWhileAFetchRunsDoesNothing) {
    CStrategy strategy;
    CEvent entered;
    CEvent release;
    std::atomic<int> fetches{0};
    strategy.SetFetchFunction([&](const std::string&, uint16_t, const std::string&, std::string&) {
        fetches.fetch_add(1);
        entered.Set();
        release.Wait(kInfinite);
        return false;
    });
    std::atomic<bool> flag{false};
    strategy.StartFetch(&flag);
    ASSERT_TRUE(entered.Wait(5000));
    strategy.StartFetch(&flag);
    release.Set();
    strategy.Join();
    EXPECT_EQ(fetches.load(), 1);

    // Once the fetch has ended, a new start fetches again.
    release.Set();
    strategy.StartFetch(&flag);
    strategy.Join();
    EXPECT_EQ(fetches.load(), 2);
}

TEST(CStrategyTest, KeepAliveLimitConvertsSecondsAndPushesOnlyChanges) {
    Harness h;
    const struct {
        uint64_t seconds;
        bool changed;
        uint32_t milliseconds;
    } steps[] = {
        {60, false, 60000},  // the default already
        {1, true, 1000},
        {1, false, 1000},
        {0, true, 0},
        {4294967, true, 4294967000u},
        {4294968, true, 4294967295u},
        {99999999999ull, false, 4294967295u},  // caps to the same value
    };
    std::vector<uint32_t> pushed;
    for (const auto& step : steps) {
        SCOPED_TRACE(step.seconds);
        EXPECT_EQ(h.strategy.SetKeepAliveLimit(step.seconds), step.changed);
        EXPECT_EQ(h.strategy.GetKeepAliveLimit(), step.milliseconds);
        if (step.changed) {
            pushed.push_back(step.milliseconds);
        }
        EXPECT_EQ(h.sink.limits, pushed);
    }

    // Without a sink the limit is still kept.
    h.strategy.SetKeepAliveSink(nullptr);
    EXPECT_TRUE(h.strategy.SetKeepAliveLimit(5));
    EXPECT_EQ(h.strategy.GetKeepAliveLimit(), 5000u);
    EXPECT_EQ(h.sink.limits, pushed);
}

TEST_F(StrategyBlobTest, ReadersSeeWholeListsWhileBlobsAreApplied) {
    Harness h;
    Strings known = h.strategy.GetFallbackList().Copy();
    known.insert(known.end(), kGoodFallback.begin(), kGoodFallback.end());
    known.push_back("");  // the all-zero blob empties the list
    std::atomic<bool> stop{false};
    std::atomic<int> foreign{0};
    std::thread reader([&] {
        while (!stop.load()) {
            std::string address;
            h.strategy.GetFallbackList().PickRandom(address);
            if (std::find(known.begin(), known.end(), address) == known.end()) {
                foreign.fetch_add(1);
            }
            const uint32_t limit = h.strategy.GetKeepAliveLimit();
            if (limit != 60000 && limit != 30000 && limit != 0) {
                foreign.fetch_add(1);
            }
        }
    });
    for (int i = 0; i < 40; ++i) {
        h.AnswerBlob(i % 2 == 0 ? "good" : "all_zero");
    }
    stop.store(true);
    reader.join();
    EXPECT_EQ(foreign.load(), 0);
    EXPECT_TRUE(Take(h.strategy).fallback.empty());
}

}  // namespace
}  // namespace qzdata_report_kelvo
