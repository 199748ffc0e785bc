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

namespace qzdata_report_kelvo {
namespace {

using Strings = std::vector<std::string>;

std::string ReadData(const std::string& name) {
    std::ifstream file(std::string(QZ_STRATEGY_TEST_DATA) + "/" + name, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

class RecordingSink : public KeepAliveSink {
  public:
    void SetKeepAliveLimit(uint32_t milliseconds) override { limits.push_back(milliseconds); }
    std::vector<uint32_t> limits;
};

// Everything a blob may change but the switch, as one comparable value.
struct Snapshot {
    Strings fallback, postFallback, strategyFallback, configFallback, spareFallback;
    uint32_t keepAliveLimit;
    StoredStrategyFields stored;
    bool operator==(const Snapshot& o) const {
        return fallback == o.fallback && postFallback == o.postFallback &&
               strategyFallback == o.strategyFallback && configFallback == o.configFallback &&
               spareFallback == o.spareFallback && keepAliveLimit == o.keepAliveLimit &&
               stored == o.stored;
    }
};

Snapshot Take(CStrategy& s) {
    return {s.GetFallbackList().Copy(),
            s.GetPostFallbackList().Copy(),
            s.GetStrategyFallbackList().Copy(),
            s.GetConfigFallbackList().Copy(),
            s.GetSpareFallbackList().Copy(),
            s.GetKeepAliveLimit(),
            s.GetStoredFields()};
}

// A strategy whose fetch plays the server's reply, on the strategy thread.
struct Harness {
    Harness() { strategy.SetKeepAliveSink(&sink); }
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

// data/make_blobs.sh enciphers with the default profile's pass; another profile cannot decode.
class StrategyBlobTest : public ::testing::Test {
  protected:
    void SetUp() override {
        Md5Context md5;
        md5.Start(deployment::kStrategyPass);
        if (ReadData("pass.md5") != md5.HexDigest() + "\n") {
            GTEST_SKIP() << "the blobs were made with another strategy pass than this build's";
        }
    }
};

// What make_blobs.sh puts into "good" and the variants that differ from it in numbers 1 and 29.
const Strings kGoodFallback = {"10.1.1.1", "10.1.1.2", "192.168.100.200"};
StoredStrategyFields GoodStored() {
    StoredStrategyFields stored;
    stored.specialActs = {"actone", "acttwo"};
    stored.stringSet2 = {"alpha"};
    stored.intMap1 = {{"key", 7}, {"neg", -12}};
    stored.intMap2 = {{"k1", 12}, {"k2", -5}};
    stored.number3 = 250;
    stored.number5 = 7;
    stored.number6 = 4096;
    stored.stringSet3 = {"set3"};
    stored.stringSet4 = {"set4"};
    stored.stringSet6 = {"set6"};
    return stored;
}

TEST(CStrategyTest, DefaultsComeFromTheDeploymentProfile) {
    CStrategy strategy;
    EXPECT_EQ(strategy.GetCollectorHost(), deployment::kCollectorHost);
    EXPECT_EQ(strategy.GetConfigHost(), deployment::kConfigHost);
    EXPECT_EQ(strategy.GetCollectorPort(), deployment::kCollectorPort);
    EXPECT_EQ(strategy.GetStrategyPort(), deployment::kStrategyPort);
    EXPECT_EQ(strategy.GetConfigPort(), deployment::kConfigPort);
    const Snapshot s = Take(strategy);
    EXPECT_EQ(s.fallback, Strings(std::begin(deployment::kFallbackAddresses),
                                  std::end(deployment::kFallbackAddresses)));
    EXPECT_EQ(s.postFallback.size(), 8u);
    EXPECT_EQ(s.spareFallback, Strings(std::begin(deployment::kSpareFallbackAddresses),
                                       std::end(deployment::kSpareFallbackAddresses)));
    EXPECT_TRUE(s.strategyFallback.empty() && s.configFallback.empty());
    EXPECT_EQ(s.keepAliveLimit, 60000u);
    StoredStrategyFields stored;
    stored.specialActs = {"protoaudiolistener", "protoaudiospeaker", "protoaudiouserloss"};
    stored.number3 = 200;
    stored.number5 = 2;
    stored.number6 = 3072;
    EXPECT_TRUE(s.stored == stored);
}

TEST_F(StrategyBlobTest, DecodeGivesWhatOpensslEncipheredAndRefusesBadOuterLayers) {
    const struct {
        const char* name;
        bool ok;
    } cases[] = {{"good", true},      {"all_zero", true},      {"exact_blocks", true},
                 {"short", true},     {"zero_length", false},  {"hex_short", false},
                 {"hex_long", false}, {"length_letter", false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::string plain = "stale";
        EXPECT_EQ(CStrategy::DecodeStrategyBlob(ReadData(std::string(c.name) + ".blob"), plain),
                  c.ok);
        EXPECT_EQ(plain, c.ok ? ReadData(std::string(c.name) + ".plain") : "");
    }
}

TEST_F(StrategyBlobTest, GoodBlobReplacesListsStoredFieldsAndLimit) {
    Harness h;
    h.AnswerBlob("good");
    const Snapshot s = Take(h.strategy);
    EXPECT_EQ(s.fallback, kGoodFallback);
    EXPECT_EQ(s.postFallback, Strings({"10.2.2.1", "10.2.2.2"}));
    EXPECT_EQ(s.spareFallback, Strings{"10.3.3.1"});  // its empty entry counted, not kept
    EXPECT_TRUE(s.strategyFallback.empty() && s.configFallback.empty());
    EXPECT_EQ(s.keepAliveLimit, 30000u);
    EXPECT_TRUE(s.stored == GoodStored());
    EXPECT_EQ(h.sink.limits, std::vector<uint32_t>{30000});
    EXPECT_TRUE(h.stopOldSdk.load());
}

TEST_F(StrategyBlobTest, SwitchFieldAloneMayFail) {
    const struct {
        const char* name;
        bool before, after;
        uint32_t keepAliveLimit;
    } cases[] = {
        {"good", false, true, 30000},         {"switch_zero", true, false, 30000},
        {"no_switch", false, false, 31000},   {"no_switch", true, true, 31000},
        {"switch_plus", false, false, 32000}, {"switch_plus", true, true, 32000},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.name) + (c.before ? " on" : " off"));
        Harness h;
        h.stopOldSdk.store(c.before);
        h.AnswerBlob(c.name);
        EXPECT_EQ(h.stopOldSdk.load(), c.after);
        const Snapshot s = Take(h.strategy);
        EXPECT_EQ(s.fallback, kGoodFallback);
        EXPECT_EQ(s.keepAliveLimit, c.keepAliveLimit);
        EXPECT_TRUE(s.stored == GoodStored());
    }
}

TEST_F(StrategyBlobTest, RefusedBlobsChangeNothing) {
    for (const char* name :
         {"zero_length", "hex_short", "hex_long", "length_letter", "entry16", "number_letter",
          "number_blank", "count_letter", "map_blank", "short"}) {
        for (bool fromDefaults : {true, false}) {
            SCOPED_TRACE(std::string(name) + (fromDefaults ? " from defaults" : " from a blob"));
            Harness h;
            if (!fromDefaults) {
                h.AnswerBlob("switch_zero");
                ASSERT_EQ(h.strategy.GetKeepAliveLimit(), 30000u);
            }
            const Snapshot before = Take(h.strategy);
            const size_t pushes = h.sink.limits.size();
            h.AnswerBlob(name);  // each ends with switch 1
            EXPECT_TRUE(Take(h.strategy) == before);
            EXPECT_EQ(h.sink.limits.size(), pushes);
            EXPECT_FALSE(h.stopOldSdk.load());
        }
    }
}

TEST_F(StrategyBlobTest, AllCountsZeroEmptyEveryListAndSet) {
    Harness h;
    h.AnswerBlob("all_zero");
    const Snapshot s = Take(h.strategy);
    EXPECT_TRUE(s.fallback.empty() && s.postFallback.empty() && s.spareFallback.empty());
    EXPECT_EQ(s.keepAliveLimit, 0u);
    EXPECT_TRUE(s.stored == StoredStrategyFields());
    EXPECT_EQ(h.sink.limits, std::vector<uint32_t>{0});
}

TEST_F(StrategyBlobTest, SameReplyIsParsedOnceAndAnUnchangedLimitIsNotPushed) {
    Harness h;
    h.AnswerBlob("good");
    h.AnswerBlob("switch_zero");  // same keep-alive as "good"
    EXPECT_EQ(h.sink.limits, std::vector<uint32_t>{30000});
    EXPECT_FALSE(h.stopOldSdk.load());

    h.stopOldSdk.store(true);
    ASSERT_TRUE(h.strategy.SetKeepAliveLimit(99));
    h.AnswerBlob("switch_zero");
    EXPECT_EQ(h.strategy.GetKeepAliveLimit(), 99000u);
    EXPECT_TRUE(h.stopOldSdk.load());
}

TEST_F(StrategyBlobTest, FailedOrEmptyFetchKeepsTheDefaults) {
    Harness h;
    const Snapshot defaults = Take(h.strategy);
    h.strategy.StartFetch(&h.stopOldSdk);  // no fetch function installed
    h.strategy.Join();
    const std::string good = ReadData("good.blob");
    h.strategy.SetFetchFunction(
        [&good](const std::string&, uint16_t, const std::string&, std::string& out) {
            out = good;  // a body that came with a failure is not used
            return false;
        });
    h.strategy.StartFetch(&h.stopOldSdk);
    h.strategy.Join();
    h.Answer("");
    EXPECT_TRUE(Take(h.strategy) == defaults);
    EXPECT_TRUE(h.sink.limits.empty());
    EXPECT_FALSE(h.stopOldSdk.load());
}

TEST(CStrategyTest, FetchAsksTheStrategyHostOnItsPort) {
    CStrategy strategy;
    StrategyRouting routing = DefaultRouting();
    routing.strategyHost = "127.0.0.5";
    routing.strategyPort = 12345;
    routing.fallbackAddresses = {"127.0.0.7"};
    strategy.SetRoutingForTesting(routing);
    std::string address;
    strategy.GetFallbackList().PickRandom(address);
    EXPECT_EQ(address, "127.0.0.7");

    Strings requests;
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
    strategy.StartFetch(nullptr);
    ASSERT_TRUE(entered.Wait(5000));
    strategy.StartFetch(nullptr);
    release.Set();
    strategy.Join();
    EXPECT_EQ(fetches.load(), 1);
    release.Set();
    strategy.StartFetch(nullptr);  // the first has ended: fetches again
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
            const uint32_t limit = h.strategy.GetKeepAliveLimit();
            if (std::find(known.begin(), known.end(), address) == known.end() ||
                (limit != 60000 && limit != 30000 && limit != 0)) {
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
}

}  // namespace
}  // namespace qzdata_report_kelvo
