#include "strategy/strategy.h"

#include <gtest/gtest.h>

#include "support/strategy_blobs.h"

namespace qzdata_report_kelvo {
namespace {

using Strings = std::vector<std::string>;
using namespace qz_test;  // NOLINT: the strategy blobs and their fixture

// Everything a blob may change but the switch: the five lists, the limit and the stored fields.
using Snapshot =
    std::tuple<Strings, Strings, Strings, Strings, Strings, uint32_t, StoredStrategyFields>;
Snapshot Take(CStrategy& s) {
    return std::make_tuple(s.GetFallbackList().Copy(), s.GetPostFallbackList().Copy(),
                           s.GetStrategyFallbackList().Copy(), s.GetConfigFallbackList().Copy(),
                           s.GetSpareFallbackList().Copy(), s.GetKeepAliveLimit(),
                           s.GetStoredFields());
}

// A strategy whose fetches play "<name>.blob" of the data folder (empty when there is none) as a
// reply that came with `ok`, on its thread; records the limits pushed.
struct Harness : KeepAliveSink {
    Harness() { strategy.SetKeepAliveSink(this); }
    void SetKeepAliveLimit(uint32_t milliseconds) override { pushed.push_back(milliseconds); }
    void Answer(const std::string& name, bool ok = true) {
        strategy.SetFetchFunction([name, ok](auto&, uint16_t, auto&, std::string& out) {
            return out = ReadStrategyData(name + ".blob"), ok;
        });
        strategy.StartFetch(&stopOldSdk);
        strategy.Join();
    }

    std::vector<uint32_t> pushed;
    std::atomic<bool> stopOldSdk{false};
    CStrategy strategy;
};

// Names are data files; a length prefix with a NUL byte is refused, not read with the NUL (or a
// byte behind it) as a digit that happens to give a length that fits.
TEST_F(StrategyBlobTest, DecodeGivesWhatOpensslEncipheredAndRefusesBadOuterLayers) {
    const std::string tail(32, 'a');
    int i = 0;
    for (const std::string& name :
         Strings{"good", "all_zero", "exact_blocks", "short",  // decoded
                 "zero_length", "hex_short", "hex_long", "length_letter",
                 std::string("0000006\0", 8) + tail, std::string("000006\0\xC0", 8) + tail}) {
        std::string plain = "stale";
        const bool decoded = i < 4;
        const std::string blob = i++ < 8 ? ReadStrategyData(name + ".blob") : name;
        EXPECT_EQ(CStrategy::DecodeStrategyBlob(blob, plain), decoded) << i;
        EXPECT_EQ(plain, decoded ? ReadStrategyData(name + ".plain") : "") << i;
    }
}

// Fields 1-28 apply as a whole; field 29, the switch, may fail alone and then stays as it was.
TEST_F(StrategyBlobTest, AppliedBlobsReplaceEverythingAndSetTheSwitchOnlyWhenItReads) {
    // clang-format off
    for (const auto& [name, before, after, limit] :
         std::vector<std::tuple<std::string, bool, bool, uint32_t>>{
             {"good", false, true, 30000}, {"switch_zero", true, false, 30000},
             {"no_switch", false, false, 31000}, {"no_switch", true, true, 31000},
             {"switch_plus", false, false, 32000}, {"switch_plus", true, true, 32000},
             {"all_zero", true, false, 0}}) {
        // What make_blobs.sh writes into "good" (empty spare entry dropped); 0: all-zero blob.
        const Snapshot applied{kGoodFallback, {"10.2.2.1", "10.2.2.2"}, {}, {},
            {"10.3.3.1"}, limit, {{"actone", "acttwo"}, {"alpha"}, {{"key", 7}, {"neg", -12}},
            {{"k1", 12}, {"k2", -5}}, 250, 7, 4096, {"set3"}, {"set4"}, {}, {"set6"}}};
        // clang-format on
        SCOPED_TRACE(name + (before ? " on" : " off"));
        Harness h;
        h.stopOldSdk = before;
        h.Answer(name);
        EXPECT_EQ(h.stopOldSdk.load(), after);
        EXPECT_TRUE(Take(h.strategy) == (limit == 0 ? Snapshot{} : applied));
        EXPECT_EQ(h.pushed, std::vector<uint32_t>{limit});
    }
}

// Every refused blob ends with switch 1, so that a blob applied in part would show. A failed,
// empty or repeated reply changes nothing either; a new blob with the same limit pushes none.
TEST_F(StrategyBlobTest, RefusedFailedAndRepeatedRepliesChangeNothing) {
    for (const char* name :
         {"zero_length", "hex_short", "hex_long", "length_letter", "entry16", "number_letter",
          "number_blank", "count_letter", "map_blank", "short"}) {
        Harness h;
        for (const char* state : {"from defaults", "from a blob"}) {
            SCOPED_TRACE(std::string(name) + " " + state);
            const Snapshot before = Take(h.strategy);
            h.Answer(name);
            EXPECT_TRUE(Take(h.strategy) == before);
            EXPECT_FALSE(h.stopOldSdk);
            h.Answer("switch_zero");
        }
    }
    Harness h;
    const Snapshot defaults = Take(h.strategy);
    h.Answer("good", false);
    h.Answer("none");  // no such blob: an empty reply
    EXPECT_TRUE(Take(h.strategy) == defaults);
    h.Answer("good");
    h.Answer("switch_zero");
    EXPECT_TRUE(h.pushed == std::vector<uint32_t>{30000} && !h.stopOldSdk);
    h.stopOldSdk = true;
    h.Answer("switch_zero");
    EXPECT_TRUE(h.stopOldSdk);
}

// 60 s is the default already; from 4294968 s on the limit is capped, so more is no change.
TEST(CStrategyTest, KeepAliveLimitConvertsSecondsAndPushesOnlyChanges) {
    Harness h;
    // clang-format off
    for (const auto& [seconds, changed, milliseconds] :
         std::vector<std::tuple<uint64_t, bool, uint32_t>>{
             {60, false, 60000}, {1, true, 1000}, {1, false, 1000}, {4294967, true, 4294967000u},
             {4294968, true, 4294967295u}, {99999999999ull, false, 4294967295u}}) {
        // clang-format on
        EXPECT_EQ(h.strategy.SetKeepAliveLimit(seconds), changed) << seconds;
        EXPECT_EQ(h.strategy.GetKeepAliveLimit(), milliseconds) << seconds;
    }
    EXPECT_EQ(h.pushed, (std::vector<uint32_t>{1000, 4294967000u, 4294967295u}));
}

}  // namespace
}  // namespace qzdata_report_kelvo
