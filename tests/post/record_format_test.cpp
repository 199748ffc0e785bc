#include "post/record_format.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "codec/md5.h"
#include "deployment_config.h"
#include "post/constants.h"
#include "post/report_thread.h"

namespace qzdata_report_kelvo {
namespace {

std::string HardwareIdK() {
    return "K";
}

std::string NoHardwareId() {
    return std::string();
}

// A worker that never runs: the record format is exercised directly.
class RecordFormatTest : public ::testing::Test {
  protected:
    RecordFormatTest() : impl(&stopOldSdk) { impl.SetHardwareIdSourceForTesting(&HardwareIdK); }

    std::string Query(const ReportRecord& record, int expectedResult = 0) {
        std::string query;
        std::string action;
        EXPECT_EQ(expectedResult, impl.BuildRecordQuery(record, query, action));
        lastAction = action;
        return query;
    }

    std::atomic<bool> stopOldSdk{false};
    ReportThreadImpl impl;
    std::string lastAction;
};

// The target the delivery layer sends on a first attempt of a record: the path, the attempt
// count, the record id, the version, then the signed query.
std::string FirstAttemptTarget(const BuiltRecord& built) {
    return built.path + "&EC=1&action=" + built.recordId + "&sdkver=" + post::kSdkVersion +
           built.signedQuery;
}

TEST_F(RecordFormatTest, WorkedExampleByteForByte) {
    impl.SetCommonParams({{"mid", "ABC"}, {"pro", "demo"}});
    const ReportRecord record{{"act", "zhwebevent"}, {"eid", "click"}, {"eid_desc", "a b"}};

    const std::string query = Query(record);
    EXPECT_EQ(
        "kelvo_mid=K&mid=ABC&pro=demo&extra=eid%3Dclick%26eid_desc%3Da%2Bb%26sdk_ver%3Dvs-nat-2.2."
        "5",
        query);
    EXPECT_EQ("zhwebevent", lastAction);

    std::vector<BuiltRecord> built;
    impl.SetRecordObserverForTesting([&built](const BuiltRecord& r) { built.push_back(r); });
    impl.PostRecord(lastAction, query);
    ASSERT_EQ(1u, built.size());
    const BuiltRecord& request = built[0];
    EXPECT_EQ("/c.gif?act=zhwebevent&smkdata=0", request.path);
    EXPECT_TRUE(std::regex_match(request.recordId, std::regex("[0-9a-f]{32}")));

    std::smatch parts;
    ASSERT_TRUE(std::regex_match(request.signedQuery, parts,
                                 std::regex("&key=([0-9a-f]{32})&time=([0-9]+)&(.*)")));
    EXPECT_EQ(query, parts[3].str());
    EXPECT_EQ(std::to_string(request.recordTime), parts[2].str());
    Md5Context md5;
    md5.Start(std::string("zhwebevent") + parts[2].str() + deployment::kRequestSalt);
    EXPECT_EQ(md5.HexDigest(), parts[1].str());

    const std::string expectedTarget =
        "/c.gif?act=zhwebevent&smkdata=0&EC=1&action=" + request.recordId +
        "&sdkver=vs-nat-2.2.5&key=" + parts[1].str() + "&time=" + parts[2].str() +
        "&kelvo_mid=K&mid=ABC&pro=demo&extra=eid%3Dclick%26eid_desc%3Da%2Bb%26sdk_ver%3Dvs-nat-"
        "2.2.5";
    EXPECT_EQ(expectedTarget, FirstAttemptTarget(request));
}

struct QueryCase {
    const char* name;
    ReportRecord record;
    std::string expectedQuery;
    std::string expectedAction;
};

TEST_F(RecordFormatTest, QueryCases) {
    const std::string sdk = "%26sdk_ver%3Dvs-nat-2.2.5";
    const std::vector<QueryCase> cases = {
        {"no action key falls back",
         {{"eid", "e"}},
         "kelvo_mid=K&extra=eid%3De" + sdk,
         "zhwebevent"},
        {"long action names the path and leaves the query",
         {{"action", "x"}, {"eid", "e"}},
         "kelvo_mid=K&extra=eid%3De" + sdk,
         "x"},
        {"capital ACT is a known field, not the action",
         {{"ACT", "y"}, {"eid", "e"}},
         "ACT=y&kelvo_mid=K&extra=eid%3De" + sdk,
         "zhwebevent"},
        {"capital Extra is an ordinary member of extra",
         {{"Extra", "q"}},
         "kelvo_mid=K&extra=Extra%3Dq" + sdk,
         "zhwebevent"},
        {"exact extra starts the catch-all text",
         {{"extra", "pre=1"}, {"zz", "2"}},
         "kelvo_mid=K&extra=pre%3D1" + sdk + "%26zz%3D2",
         "zhwebevent"},
        {"known values travel raw",
         {{"pro", "a&b=c d"}},
         "kelvo_mid=K&pro=a&b=c d&extra=sdk_ver%3Dvs-nat-2.2.5",
         "zhwebevent"},
        {"known names match without regard to case",
         {{"Pro", "p"}, {"CITY", "c"}},
         "CITY=c&Pro=p&kelvo_mid=K&extra=sdk_ver%3Dvs-nat-2.2.5",
         "zhwebevent"},
        {"param travels inside extra under its short name",
         {{"param", "v"}},
         "kelvo_mid=K&extra=par%3Dv" + sdk,
         "zhwebevent"},
        {"caller's sdk_ver replaces the version",
         {{"sdk_ver", "mine"}},
         "kelvo_mid=K&extra=sdk_ver%3Dmine",
         "zhwebevent"},
        {"caller's kelvo_mid replaces the hardware id",
         {{"kelvo_mid", "own"}},
         "kelvo_mid=own&extra=sdk_ver%3Dvs-nat-2.2.5",
         "zhwebevent"},
        {"escaped names are escaped twice",
         {{"content", "50% off"}},
         "kelvo_mid=K&extra=content%3D50%2525%2Boff" + sdk,
         "zhwebevent"},
        {"non-ASCII bytes in an escaped name come out as %25XX",
         {{"eid_desc", "\xC3\xA9"}},
         "kelvo_mid=K&extra=eid_desc%3D%25C3%25A9" + sdk,
         "zhwebevent"},
        {"non-ASCII bytes elsewhere are escaped once",
         {{"note", "\xC3\xA9"}},
         "kelvo_mid=K&extra=note%3D%C3%A9" + sdk,
         "zhwebevent"},
        {"atime beats ati (later in key order)",
         {{"ati", "1"}, {"atime", "2"}},
         "ati=2&kelvo_mid=K&extra=sdk_ver%3Dvs-nat-2.2.5",
         "zhwebevent"},
        {"sre beats screen_resolution",
         {{"screen_resolution", "1x1"}, {"sre", "2x2"}},
         "kelvo_mid=K&sre=2x2&extra=sdk_ver%3Dvs-nat-2.2.5",
         "zhwebevent"},
    };
    for (const QueryCase& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.expectedQuery, Query(c.record));
        EXPECT_EQ(c.expectedAction, lastAction);
    }
}

TEST_F(RecordFormatTest, EmptyHardwareIdStillSendsTheKey) {
    impl.SetHardwareIdSourceForTesting(&NoHardwareId);
    EXPECT_EQ("kelvo_mid=&extra=sdk_ver%3Dvs-nat-2.2.5", Query({}));
}

TEST_F(RecordFormatTest, EmptyEscapedValueDropsTheRecord) {
    for (const char* key : {"eid_desc", "CONTENT", "rso_desc", "channel_desc", "ref_desc"}) {
        SCOPED_TRACE(key);
        Query({{"eid", "e"}, {key, ""}}, post::kRecordQueryDropped);
    }
    // An empty value of any other unknown key is harmless.
    EXPECT_EQ("kelvo_mid=K&extra=eid%3De%26other%3D" + std::string("%26sdk_ver%3Dvs-nat-2.2.5"),
              Query({{"eid", "e"}, {"other", ""}}));
}

TEST_F(RecordFormatTest, CommonParamsMergeUnderTheRecord) {
    impl.SetCommonParams({{"pro", "common"}, {"product", "long"}, {"cha", "c1"}});
    // The record's own value stands; only the record's keys are translated, so the common
    // "product" travels long inside extra.
    EXPECT_EQ("cha=c1&kelvo_mid=K&pro=mine&extra=product%3Dlong%26sdk_ver%3Dvs-nat-2.2.5",
              Query({{"product", "mine"}}));
}

TEST_F(RecordFormatTest, SetCommonParamsKeepsDeviceIdAndDropsPerRecordKeys) {
    impl.SetCommonParams({{"mid", "M1"}, {"act", "a"}, {"ati", "t"}, {"pro", "p"}});
    EXPECT_EQ((ReportRecord{{"mid", "M1"}, {"pro", "p"}}), impl.CommonParamsForTesting());

    impl.SetCommonParams({{"pro", "q"}});
    EXPECT_EQ((ReportRecord{{"mid", "M1"}, {"pro", "q"}}), impl.CommonParamsForTesting());

    impl.SetCommonParams({{"mid", "M2"}});
    EXPECT_EQ((ReportRecord{{"mid", "M2"}}), impl.CommonParamsForTesting());

    // An empty device id given explicitly replaces the old one.
    impl.SetCommonParams({{"mid", ""}});
    impl.SetCommonParams({{"pro", "r"}});
    EXPECT_EQ((ReportRecord{{"pro", "r"}}), impl.CommonParamsForTesting());
}

TEST_F(RecordFormatTest, LongValuesGrowTheEscapeBuffer) {
    // 400 two-byte characters: 800 source bytes, far beyond the first buffer, escaped twice.
    std::string value;
    std::string once;
    for (int i = 0; i < 400; ++i) {
        value += "\xC3\xA9";
        once += "%C3%A9";
    }
    std::string twice;
    for (int i = 0; i < 400; ++i) {
        twice += "%25C3%25A9";
    }
    EXPECT_EQ("kelvo_mid=K&extra=content%3D" + twice + "%26sdk_ver%3Dvs-nat-2.2.5",
              Query({{"content", value}}));
    // And the grown buffer still serves a short record afterwards.
    EXPECT_EQ("kelvo_mid=K&extra=a%3Dy%26sdk_ver%3Dvs-nat-2.2.5", Query({{"a", "y"}}));
}

TEST_F(RecordFormatTest, TranslateParamNamesRewritesOnlyLongKeys) {
    ReportRecord record{{"duration", "5"}, {"brower_version", "b"}, {"browser_version", "c"}};
    impl.TranslateParamNames(record);
    EXPECT_EQ((ReportRecord{{"browser_version", "c"}, {"bve", "b"}, {"dur", "5"}}), record);

    ReportRecord untouched{{"Duration", "5"}, {"eid", "e"}};
    impl.TranslateParamNames(untouched);
    EXPECT_EQ((ReportRecord{{"Duration", "5"}, {"eid", "e"}}), untouched);

    ReportRecord clash{{"game_server", "long"}, {"gse", "short"}};
    impl.TranslateParamNames(clash);
    EXPECT_EQ((ReportRecord{{"gse", "short"}}), clash);
}

TEST(ParamNamesTest, KnownAndEscapedSetsIgnoreCase) {
    EXPECT_EQ(31u, sizeof(post::kKnownParamNames) / sizeof(post::kKnownParamNames[0]));
    for (const char* name : post::kKnownParamNames) {
        EXPECT_TRUE(IsKnownParamName(name)) << name;
    }
    EXPECT_TRUE(IsKnownParamName("KELVO_MID"));
    EXPECT_TRUE(IsKnownParamName("Province"));
    EXPECT_FALSE(IsKnownParamName("par"));
    EXPECT_FALSE(IsKnownParamName("eid"));
    EXPECT_FALSE(IsKnownParamName("mid2"));
    EXPECT_TRUE(IsEscapedParamName("Eid_Desc"));
    EXPECT_FALSE(IsEscapedParamName("eid"));
    EXPECT_FALSE(IsEscapedParamName("desc"));
}

struct EscapeCase {
    const char* name;
    std::string source;
    uint32_t targetSize;
    bool spaceToPlus;
    bool lenient;
    std::string expected;
};

TEST(EscapeParamValueTest, Cases) {
    const std::vector<EscapeCase> cases = {
        {"strict keeps the unreserved marks", "aZ09-_.!~*'()", 64, true, false, "aZ09-_.!~*'()"},
        {"strict escapes reserved bytes", "a=b&c/d", 64, true, false, "a%3Db%26c%2Fd"},
        {"blank becomes plus", "a b", 64, true, false, "a+b"},
        {"blank without plus", "a b", 64, false, false, "a%20b"},
        {"high bytes escaped upper-case in strict mode", "\xE4\xFF", 64, true, false, "%E4%FF"},
        {"lenient copies high bytes and reserved marks", "\xE4/=?", 64, false, true, "\xE4/=?"},
        {"lenient escapes its unsafe set", "\\\"^&`<>[]{}", 64, false, true,
         "%5C%22%5E%26%60%3C%3E%5B%5D%7B%7D"},
        {"lenient ignores plus for blanks", "a b\x01", 64, true, true, "a%20b%01"},
        {"empty source", "", 64, true, false, ""},
        {"stops before an escape that does not fit", "ab=c", 5, true, false, "ab"},
        {"an escape fits with its terminator", "=", 4, true, false, "%3D"},
        {"an escape without room for the terminator stops", "=", 3, true, false, ""},
        {"copies stop with room for the terminator", "abcdef", 4, true, false, "abc"},
    };
    for (const EscapeCase& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<char> target(c.targetSize + 8, '#');
        const uint32_t written = EscapeParamValue(c.source.c_str(), target.data(), c.targetSize,
                                                  c.spaceToPlus, c.lenient);
        EXPECT_EQ(c.expected.size(), written);
        EXPECT_EQ(c.expected, std::string(target.data()));
        // Nothing is written past the buffer.
        for (size_t i = c.targetSize; i < target.size(); ++i) {
            EXPECT_EQ('#', target[i]) << "byte " << i;
        }
    }
}

TEST(EscapeParamValueTest, ZeroSizeWritesNothing) {
    char target[4] = {'#', '#', '#', '#'};
    EXPECT_EQ(0u, EscapeParamValue("abc", target, 0, true, false));
    EXPECT_EQ('#', target[0]);
}

}  // namespace
}  // namespace qzdata_report_kelvo
