#include "strategy/strategy.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <tuple>
#include <vector>

#include "port/env.h"
#include "runtime/event.h"
#include "strategy/field_reader.h"
#include "support/strategy_blobs.h"

namespace qzdata_report_kelvo {
namespace {

using Strings = std::vector<std::string>;
using qz_test::kGoodFallback;
using qz_test::ReadStrategyData;
using StrategyBlobTest = qz_test::StrategyBlobTest;

// Everything a blob may change but the switch: the five lists, the limit and the stored fields.
using Snapshot =
    std::tuple<Strings, Strings, Strings, Strings, Strings, uint32_t, StoredStrategyFields>;
Snapshot Take(CStrategy& s) {
    return std::make_tuple(s.GetFallbackList().Copy(), s.GetPostFallbackList().Copy(),
                           s.GetStrategyFallbackList().Copy(), s.GetConfigFallbackList().Copy(),
                           s.GetSpareFallbackList().Copy(), s.GetKeepAliveLimit(),
                           s.GetStoredFields());
}

// A strategy whose fetch plays `reply` (or fails, with `fetchOk` false) on the strategy thread,
// and records the limits it pushes and the requests it makes.
struct Harness : KeepAliveSink {
    Harness() {
        strategy.SetKeepAliveSink(this);
        strategy.SetFetchFunction([this](const std::string& host, uint16_t port,
                                         const std::string& path, std::string& out) {
            requests.push_back(host + ":" + std::to_string(port) + path);
            out = reply;
            return fetchOk;
        });
    }
    void SetKeepAliveLimit(uint32_t milliseconds) override { pushed.push_back(milliseconds); }
    void Answer(const std::string& text, bool ok = true) {
        reply = text;
        fetchOk = ok;
        strategy.StartFetch(&stopOldSdk);
        strategy.Join();
    }
    void AnswerBlob(const std::string& name) { Answer(ReadStrategyData(name + ".blob")); }

    std::string reply;
    bool fetchOk = true;
    Strings requests;
    std::vector<uint32_t> pushed;
    std::atomic<bool> stopOldSdk{false};
    CStrategy strategy;
};

// What make_blobs.sh writes into "good" (an empty spare entry and set-3 entry count, not kept).
Snapshot GoodSnapshot(uint32_t keepAliveLimit) {
    // clang-format off
    const StoredStrategyFields stored{{"actone", "acttwo"}, {"alpha"}, {{"key", 7}, {"neg", -12}},
        {{"k1", 12}, {"k2", -5}}, 250, 7, 4096, {"set3"}, {"set4"}, {}, {"set6"}};
    // clang-format on
    return {kGoodFallback, {"10.2.2.1", "10.2.2.2"}, {}, {}, {"10.3.3.1"}, keepAliveLimit, stored};
}

TEST_F(StrategyBlobTest, DecodeGivesWhatOpensslEncipheredAndRefusesBadOuterLayers) {
    const struct {
        std::string name;
        bool ok;
    } cases[] = {{"good", true},      {"all_zero", true},      {"exact_blocks", true},
                 {"short", true},     {"zero_length", false},  {"hex_short", false},
                 {"hex_long", false}, {"length_letter", false}};
    for (const auto& [name, ok] : cases) {
        std::string plain = "stale";
        EXPECT_EQ(CStrategy::DecodeStrategyBlob(ReadStrategyData(name + ".blob"), plain), ok)
            << name;
        EXPECT_EQ(plain, ok ? ReadStrategyData(name + ".plain") : "") << name;
    }
}

// Fields 1-28 apply as a whole; field 29, the switch, may fail alone and then stays as it was.
TEST_F(StrategyBlobTest, AppliedBlobsReplaceEverythingAndSetTheSwitchOnlyWhenItReads) {
    const struct {
        const char* name;
        bool before, after;
        Snapshot expected;
    } cases[] = {
        {"good", false, true, GoodSnapshot(30000)},
        {"switch_zero", true, false, GoodSnapshot(30000)},
        {"no_switch", false, false, GoodSnapshot(31000)},
        {"no_switch", true, true, GoodSnapshot(31000)},
        {"switch_plus", false, false, GoodSnapshot(32000)},
        {"switch_plus", true, true, GoodSnapshot(32000)},
        {"all_zero", true, false, Snapshot{{}, {}, {}, {}, {}, 0, {}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.name) + (c.before ? " on" : " off"));
        Harness h;
        h.stopOldSdk = c.before;
        h.AnswerBlob(c.name);
        EXPECT_EQ(h.stopOldSdk.load(), c.after);
        EXPECT_TRUE(Take(h.strategy) == c.expected);
        EXPECT_EQ(h.pushed, std::vector<uint32_t>{std::get<5>(c.expected)});
    }
}

// Every refused blob ends with switch 1, so that a blob applied in part would show.
TEST_F(StrategyBlobTest, RefusedBlobsChangeNothing) {
    for (const char* name :
         {"zero_length", "hex_short", "hex_long", "length_letter", "entry16", "number_letter",
          "number_blank", "count_letter", "map_blank", "short"}) {
        Harness h;
        for (const char* state : {"from defaults", "from a blob"}) {
            SCOPED_TRACE(std::string(name) + " " + state);
            const Snapshot before = Take(h.strategy);
            const size_t pushes = h.pushed.size();
            h.AnswerBlob(name);
            EXPECT_TRUE(Take(h.strategy) == before);
            EXPECT_EQ(h.pushed.size(), pushes);
            EXPECT_FALSE(h.stopOldSdk);
            h.AnswerBlob("switch_zero");
        }
    }
}

// A failed, empty or repeated reply changes nothing; a new blob with the same limit pushes none.
TEST_F(StrategyBlobTest, OnlyANewSuccessfulReplyIsParsed) {
    Harness h;
    StrategyRouting routing = DefaultRouting();
    routing.hosts.strategyHost = "127.0.0.5";
    routing.hosts.strategyPort = 12345;
    h.strategy.SetRoutingForTesting(routing);
    const Snapshot defaults = Take(h.strategy);
    h.Answer(ReadStrategyData("good.blob"), false);
    h.Answer("");
    EXPECT_TRUE(Take(h.strategy) == defaults);
    EXPECT_FALSE(h.stopOldSdk);
    EXPECT_EQ(h.requests, Strings(2, "127.0.0.5:12345/zhsdkinfo.php?ver=1"));

    h.AnswerBlob("good");
    h.AnswerBlob("switch_zero");
    EXPECT_EQ(h.pushed, std::vector<uint32_t>{30000});
    EXPECT_FALSE(h.stopOldSdk);
    h.stopOldSdk = true;
    ASSERT_TRUE(h.strategy.SetKeepAliveLimit(99));
    h.AnswerBlob("switch_zero");
    EXPECT_EQ(h.strategy.GetKeepAliveLimit(), 99000u);
    EXPECT_TRUE(h.stopOldSdk);
}

// A StartFetch while a fetch runs does nothing: the running fetch sets the switch it was given.
TEST_F(StrategyBlobTest, StartFetchWhileAFetchRunsDoesNothing) {
    CStrategy strategy;
    CEvent entered, release;
    const std::string good = ReadStrategyData("good.blob");
    strategy.SetFetchFunction(
        [&](const std::string&, uint16_t, const std::string&, std::string& out) {
            entered.Set();
            release.Wait(kInfinite);
            out = good;
            return true;
        });
    std::atomic<bool> first{false}, second{false};
    strategy.StartFetch(&first);
    const bool running = entered.Wait(5000);
    strategy.StartFetch(&second);
    release.Set();
    strategy.Join();
    ASSERT_TRUE(running);
    EXPECT_TRUE(first);
    EXPECT_FALSE(second);
}

TEST(CStrategyTest, KeepAliveLimitConvertsSecondsAndPushesOnlyChanges) {
    Harness h;
    std::vector<uint32_t> pushed;
    // 60 s is the default already; from 4294968 s on the limit is capped, so more is no change.
    using Step = std::tuple<uint64_t, bool, uint32_t>;
    // clang-format off
    for (const auto& [seconds, changed, milliseconds] : std::vector<Step>{
             {60, false, 60000}, {1, true, 1000}, {1, false, 1000}, {4294967, true, 4294967000u},
             {4294968, true, 4294967295u}, {99999999999ull, false, 4294967295u}}) {
        // clang-format on
        EXPECT_EQ(h.strategy.SetKeepAliveLimit(seconds), changed) << seconds;
        EXPECT_EQ(h.strategy.GetKeepAliveLimit(), milliseconds) << seconds;
        if (changed) {
            pushed.push_back(milliseconds);
        }
        EXPECT_EQ(h.pushed, pushed) << seconds;
    }
}

// A pick is the tick count modulo the size; an empty list gives an empty text.
TEST(CAddressListTest, PickIsTheTickCountModuloTheSize) {
    struct TickEnv : port::EnvWrapper {
        uint32_t GetTickCount() override { return tick; }
        uint32_t tick = 0;
    } env;
    port::Env::Install(&env);
    CAddressList list;
    std::string address = "stale";
    list.PickRandom(address);
    EXPECT_EQ(address, "");
    list.Assign({"a", "b", "c"});
    for (const auto& [tick, expected] :
         std::vector<std::pair<uint32_t, std::string>>{{0, "a"}, {5, "c"}, {4294967295u, "a"}}) {
        env.tick = tick;
        list.PickRandom(address);
        EXPECT_EQ(address, expected) << tick;
    }
    port::Env::Install(nullptr);
}

// One read from the start of `text`: 'u'nsigned, 's'igned or 't'ext. `value` is the decimal text
// of a number or the string read, null for a failed read, which leaves the cursor at 0.
TEST(StrategyFieldReaderTest, ReadsOneField) {
    const struct {
        char kind;
        std::string text;
        size_t width;
        const char* value;
    } cases[] = {
        // clang-format off
        // No sign in a one-byte field; at the end even width 0 fails; a later blank ends a number.
        {'u', "+0030", 5, "30"}, {'u', "0712", 2, "7"}, {'u', "+", 1, nullptr},
        {'u', "1+2", 3, nullptr}, {'u', "-1", 2, nullptr}, {'u', "1 ", 2, nullptr},
        {'u', "123", 4, nullptr}, {'u', "5", 0, "0"}, {'u', "", 0, nullptr},
        {'s', "-12", 3, "-12"}, {'s', "12 ", 3, "12"}, {'s', "1 2", 3, "1"},
        {'s', " 12", 3, nullptr}, {'s', "1x2", 3, nullptr},
        {'t', "abc", 2, "ab"}, {'t', "ab", 3, nullptr}, {'t', "a", 0, ""}, {'t', "", 0, nullptr},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE("\"" + c.text + "\" width " + std::to_string(c.width));
        StrategyFieldReader reader(c.text);
        uint64_t unsignedValue = 99;
        int64_t signedValue = 99;
        std::string value;
        const bool ok = c.kind == 'u'   ? reader.ReadUnsigned(c.width, unsignedValue)
                        : c.kind == 's' ? reader.ReadSigned(c.width, signedValue)
                                        : reader.ReadString(c.width, value);
        if (c.kind != 't') {
            value = c.kind == 'u' ? std::to_string(unsignedValue) : std::to_string(signedValue);
        }
        EXPECT_EQ(ok, c.value != nullptr);
        EXPECT_EQ(ok ? value : "", c.value != nullptr ? c.value : "");
        EXPECT_EQ(reader.Cursor(), ok ? c.width : 0u);
    }
}

}  // namespace
}  // namespace qzdata_report_kelvo
