#include "post/record_format.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "identity/hardware_id_store.h"

namespace qzdata_report_kelvo {
namespace {

const std::string kSdk = "%26sdk_ver%3Dvs-nat-2.2.5";
const std::string kSdkOnly = "extra=sdk_ver%3Dvs-nat-2.2.5";
// The hardware id of this machine as every record carries it.
const std::string kMid = "kelvo_mid=" + [] {
    std::string id;
    return HardwareIdStore::Instance().Get(id), id;
}();
const std::string kBare = kMid + "&" + kSdkOnly;

struct RecordFormatTest : ::testing::Test {
    std::string Query(const ReportRecord& record) {
        std::string query;
        EXPECT_EQ(RecordQueryResult::kOk, formatter.BuildRecordQuery(record, query, lastAction));
        return query;
    }

    RecordFormatter formatter;
    std::string lastAction;
};

const auto X = [](const std::string& extra) { return kMid + "&extra=" + extra + kSdk; };

TEST_F(RecordFormatTest, QueryCases) {
    std::string e400, escaped;
    for (int i = 0; i < 400; ++i)
        e400 += "\xC3\xA9", escaped += "%25C3%25A9";
    const struct {
        const char* name;
        ReportRecord record;
        std::string query, action = "zhwebevent";
    } cases[] = {
        // 800 bytes, far beyond the first escape buffer, escaped twice; later rows reuse it.
        {"long values grow the buffer", {{"content", e400}}, X("content%3D" + escaped)},
        {"long action names the path", {{"action", "x"}, {"eid", "e"}}, X("eid%3De"), "x"},
        {"capital ACT is a known field", {{"ACT", "y"}, {"eid", "e"}}, "ACT=y&" + X("eid%3De")},
        {"extra leads the text", {{"extra", "pre=1"}, {"zz", "2"}}, X("pre%3D1") + "%26zz%3D2"},
        {"known values travel raw", {{"pro", "a&b=c d"}}, kMid + "&pro=a&b=c d&" + kSdkOnly},
        {"param goes short into extra", {{"param", "v"}}, X("par%3Dv")},
        {"caller's sdk_ver wins", {{"sdk_ver", "mine"}}, kMid + "&extra=sdk_ver%3Dmine"},
        {"caller's kelvo_mid wins", {{"kelvo_mid", "own"}}, "kelvo_mid=own&" + kSdkOnly},
        {"escaped names escaped twice", {{"content", "50% off"}}, X("content%3D50%2525%2Boff")},
        {"long names exact", {{"duration", "5"}, {"Duration", "6"}}, "dur=5&" + X("Duration%3D6")},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.query, Query(c.record));
        EXPECT_EQ(c.action, lastAction);
    }
    EXPECT_EQ(kBare, Query({}));
}

// The worked example byte for byte; common params merge under the record.
TEST_F(RecordFormatTest, CommonParamsMergeUnderTheRecord) {
    formatter.SetCommonParams({{"mid", "ABC"}, {"pro", "demo"}});
    EXPECT_EQ(
        kMid + "&mid=ABC&pro=demo&extra=eid%3Dclick%26eid_desc%3Da%2Bb%26sdk_ver%3Dvs-nat-2.2.5",
        Query({{"act", "zhwebevent"}, {"eid", "click"}, {"eid_desc", "a b"}}));
    EXPECT_EQ("zhwebevent", lastAction);
    // Only the record's keys are translated: the common "product" travels long inside extra.
    formatter.SetCommonParams({{"pro", "common"}, {"product", "long"}, {"cha", "c1"}});
    EXPECT_EQ("cha=c1&" + kMid + "&mid=ABC&pro=mine&extra=product%3Dlong" + kSdk,
              Query({{"product", "mine"}}));

    formatter.SetCommonParams({{"mid", "M1"}, {"act", "a"}, {"ati", "t"}, {"pro", "p"}});
    EXPECT_EQ((ReportRecord{{"mid", "M1"}, {"pro", "p"}}), formatter.GetCommonParams());
    formatter.SetCommonParams({{"pro", "q"}});
    EXPECT_EQ((ReportRecord{{"mid", "M1"}, {"pro", "q"}}), formatter.GetCommonParams());
    formatter.SetCommonParams({{"mid", "M2"}});
    EXPECT_EQ((ReportRecord{{"mid", "M2"}}), formatter.GetCommonParams());
    formatter.SetCommonParams({{"mid", ""}});  // an explicit empty device id replaces the old one
    formatter.SetCommonParams({{"pro", "r"}});
    EXPECT_EQ((ReportRecord{{"pro", "r"}}), formatter.GetCommonParams());
}

TEST(EscapeParamValueTest, Cases) {
    constexpr ParamEscape P = ParamEscape::kStrictBlankAsPlus;
    constexpr ParamEscape S = ParamEscape::kStrict;
    constexpr ParamEscape L = ParamEscape::kLenient;
    // name, source, buffer size, mode, text written
    const std::tuple<const char*, std::string, uint32_t, ParamEscape, std::string> cases[] = {
        {"strict keeps unreserved marks", "aZ09-_.!~*'()", 64, P, "aZ09-_.!~*'()"},
        {"blank without plus", "a b", 64, S, "a%20b"},
        {"strict high bytes upper-case", "\xE4\xFF", 64, P, "%E4%FF"},
        {"lenient copies high and reserved", "\xE4/=?", 64, L, "\xE4/=?"},
        {"lenient unsafe set", "\\\"^&`<>[]{}", 64, L, "%5C%22%5E%26%60%3C%3E%5B%5D%7B%7D"},
        {"lenient ignores plus", "a b\x01", 64, L, "a%20b%01"},
        {"escape that does not fit stops", "ab=c", 5, P, "ab"},
        {"escape fits with terminator", "=", 4, P, "%3D"},
        {"copies leave room for terminator", "abcdef", 4, P, "abc"},
    };
    for (const auto& [name, source, size, mode, expected] : cases) {
        SCOPED_TRACE(name);
        std::vector<char> target(size + 8, '#');
        EXPECT_EQ(expected.size(), EscapeParamValue(source.c_str(), target.data(), size, mode));
        EXPECT_EQ(expected, std::string(target.data()));
        EXPECT_EQ(std::string(8, '#'), std::string(target.data() + size, 8));  // nothing past it
    }
    char target[1] = {'#'};
    EXPECT_EQ(0u, EscapeParamValue("abc", target, 0, ParamEscape::kStrictBlankAsPlus));
    EXPECT_EQ('#', target[0]);
}

}  // namespace
}  // namespace qzdata_report_kelvo
