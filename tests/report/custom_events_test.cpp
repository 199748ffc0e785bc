#include <gtest/gtest.h>

#include <mutex>
#include <regex>
#include <string>
#include <vector>

#include "port/debug_output.h"
#include "report/event_ids.h"
#include "report/event_text.h"
#include "report/report_fixture.h"

namespace qzdata_report_kelvo {
namespace {

std::string X(size_t count) {
    return std::string(count, 'x');
}

struct FieldCase {
    std::string eid, desc, content;
    int dur;
    bool ati;
    ReportRecord expected;
};

TEST_F(ReportObjectTest, CustomEventFieldsAndLimits) {
    ASSERT_TRUE(InitObject());
    const std::string e = "\xC3\xA9";  // two bytes: the cut ignores characters
    const std::vector<FieldCase> cases = {
        {X(100), "", "", -1, false, {{"eid", X(99)}}},
        {X(99), "", "", -1, false, {{"eid", X(99)}}},
        {"e", X(255), "", -1, false, {{"eid", "e"}, {"eid_desc", X(254)}}},
        {"e", "", X(500), -1, false, {{"eid", "e"}, {"content", X(499)}}},
        {"e", e + X(253), "", -1, false, {{"eid", "e"}, {"eid_desc", e + X(252)}}},
        {"e", "", "", 0, false, {{"eid", "e"}, {"dur", "0"}}},
        {"e", "", "", -5, false, {{"eid", "e"}}},
        {"e", "", "", -1, true, {{"eid", "e"}, {"ati", ""}}},
    };
    for (const FieldCase& c : cases) {
        SCOPED_TRACE(c.eid.size() + c.desc.size() + c.content.size() + c.dur);
        const size_t before = QueuedRecords().size();
        EXPECT_TRUE(object->PostCustomEvent(c.eid, c.desc, c.content, c.dur, c.ati));
        EXPECT_TRUE(object->SendCustomEvent(c.eid, c.desc, c.content, c.dur, c.ati));
        const std::vector<ReportRecord> records = QueuedRecords();
        ASSERT_EQ(before + 2, records.size());
        EXPECT_EQ(c.expected, Own(records[before]));
        EXPECT_EQ(c.expected, Own(records[before + 1]));
    }
    EXPECT_FALSE(object->PostCustomEvent("", "d", "c", 1, true));
    EXPECT_FALSE(object->SendCustomEvent("", "d", "c", 1, true));
}

TEST_F(ReportObjectTest, ExtendedEventAcceptsAnEmptyIdAndNeverLetsExtraOverwrite) {
    ASSERT_TRUE(InitObject());
    EXPECT_TRUE(object->SendCustomEventExt("", "", "", -1, false,
                                           {{"eid", "other"}, {"act", "x"}, {"game", "g"}}));
    const ReportRecord record = OnlyRecord();
    EXPECT_EQ("", record.at("eid"));
    EXPECT_EQ("zhwebevent", record.at("act"));
    EXPECT_EQ("g", record.at("game"));
}

TEST_F(ReportObjectTest, ErrorEventsPrefixTheIdAndTranslateTheDescription) {
    ASSERT_TRUE(InitObject());
    ASSERT_TRUE(AddEidDescriptions(
        std::vector<EidDescPair>{{"errseg", L"Error segment"}, {"error", L"Fault"}}));
    // The prefix counts towards the 99 bytes.
    EXPECT_TRUE(object->SendErrorEventEx(X(96), "", "", -1, false));
    // Any description switches eid_desc on; its value is the translated id.
    EXPECT_TRUE(object->SendErrorEventEx("errseg", "what", "ignored", 3, false));
    EXPECT_FALSE(object->SendErrorEventEx("", "c", "d", 1, true));
    EXPECT_FALSE(object->SendErrorEvent(nullptr, "c", "s"));
    EXPECT_TRUE(object->SendErrorEvent("plainerr", nullptr, ""));
    EXPECT_TRUE(object->SendErrorEvent("plainerr", "body", "sub"));
    const std::vector<ReportRecord> records = QueuedRecords();
    ASSERT_EQ(4u, records.size());
    EXPECT_EQ("error/" + X(93), records[0].at("eid"));
    EXPECT_EQ((ReportRecord{{"eid", "error/errseg"},
                            {"eid_desc", "Fault/Error segment"},
                            {"content", "what"},
                            {"dur", "3"}}),
              Own(records[1]));
    EXPECT_EQ((ReportRecord{{"eid", "error/plainerr"}, {"ati", ""}}), Own(records[2]));
    // No segment of "plainerr/sub" has a description, so the record gets none.
    EXPECT_EQ((ReportRecord{{"eid", "error/plainerr/sub"}, {"content", "body"}, {"ati", ""}}),
              Own(records[3]));
}

TEST(EventIdsTest, TranslateReplacesDescribedSegmentsOnly) {
    ASSERT_TRUE(AddEidDescriptions(std::vector<EidDescPair>{{"tb", L"D\u00e9"}}));
    const std::string d = "D\xC3\xA9";
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"ta/tb", "ta/" + d},    {"TB", d}, {"ta//tb", "ta//" + d},
        {"/tb/", "/" + d + "/"}, {"", ""},  {"tbx", "tbx"}};
    for (const auto& c : cases) {
        EXPECT_EQ(c.second, TranslateEid(c.first)) << c.first;
    }
    EXPECT_EQ("", DescribeEid("ta/tc", nullptr));
    EXPECT_EQ("ta/" + d, DescribeEid("ta/tb", ""));
    EXPECT_EQ("given", DescribeEid("ta/tb", "given"));
    EXPECT_EQ("", DescribeEid("ta/tb", "ta/tb"));
}

TEST(EventIdsTest, DescriptionsIgnoreCaseAndKeepTheFirstSpelling) {
    const EidDescPtrPair pairs[] = {
        {"CaseKey", L"first"}, {"casekey", L"second"}, {"nulldesc", nullptr}, {nullptr, L"x"}};
    EXPECT_TRUE(AddEidDescriptions(pairs));
    EXPECT_EQ("second", TranslateEid("CASEKEY"));
    EXPECT_EQ("", TranslateEid("nulldesc"));
    EXPECT_TRUE(AddEidDescriptions(static_cast<const EidDescPtrPair*>(nullptr)));
    EXPECT_TRUE(AddEidDescriptions(std::vector<EidDescPair>{}));
}

struct EscapeCase {
    std::string in;
    bool escapeSlash;
    std::string escaped;
};

TEST(EventIdsTest, EscapeAndUnescapeRoundTrip) {
    const std::vector<EscapeCase> cases = {
        {"a.b/c d", true, "a..b.2fc.20d"},
        {"a.b/c d", false, "a..b/c.20d"},
        {"/x.y", true, ".2fx..y"},
        {"Az09-()", true, "Az09-()"},
        {"_&=\xE4", false, ".5f.26.3d.e4"},
        {std::string("a\0b", 3), false, "a.00b"},
        {"", true, ""},
    };
    for (const EscapeCase& c : cases) {
        SCOPED_TRACE(c.in);
        std::string out = "old";
        EXPECT_TRUE(EscapeEidText(c.in, &out, c.escapeSlash));
        EXPECT_EQ(c.escaped, out);
        std::string back;
        EXPECT_TRUE(UnescapeEidText(out, &back));
        EXPECT_EQ(c.in, back);
    }
    EXPECT_FALSE(EscapeEidText("x", nullptr, true));
}

TEST(EventIdsTest, UnescapeRefusesBrokenEscapesAndLeavesOutAlone) {
    for (const char* broken : {"a.2", "a.zz", "a.", ".g0", "ab.2x"}) {
        std::string out = "untouched";
        EXPECT_FALSE(UnescapeEidText(broken, &out)) << broken;
        EXPECT_EQ("untouched", out);
    }
    const std::vector<std::pair<std::string, std::string>> good = {
        {".2e", "."}, {"..2e", ".2e"}, {".4A.4a", "JJ"}};
    for (const auto& c : good) {
        std::string out;
        EXPECT_TRUE(UnescapeEidText(c.first, &out));
        EXPECT_EQ(c.second, out);
    }
    EXPECT_FALSE(UnescapeEidText("x", nullptr));
}

// Collects the trace lines written while it lives.
struct TraceCapture {
    TraceCapture() {
        port::SetDebugSink([this](const std::string& line) {
            std::lock_guard<std::mutex> guard(mutex);
            lines.push_back(line);
        });
    }
    ~TraceCapture() { port::SetDebugSink(nullptr); }
    std::vector<std::string> Lines() {
        std::lock_guard<std::mutex> guard(mutex);
        return lines;
    }
    std::mutex mutex;
    std::vector<std::string> lines;
};

TEST_F(ReportObjectTest, TraceWritesEachEventBeforeItIsQueued) {
    TraceCapture capture;
    ASSERT_TRUE(InitObject(7, true));
    const std::string session = object->GetSessionId();
    object->SendCustomEvent("e1", "d\xC3\xA9", "c", 5, false);
    object->PostCustomEvent("e2", "", "", -1, false);
    object->SendCustomEventExt("e3", "", "", -1, false, {{"aaa", "x"}});
    object->SendErrorEventEx("e4", "", "", -1, false);
    object->PostHeartBeatEvent();
    object->SetOutputDebugString(false);
    object->SendCustomEvent("silent-trace", "", "", -1, false);

    const std::vector<std::string> lines = capture.Lines();
    ASSERT_EQ(5u, lines.size());
    const std::string tail = "session_id: " + session + ", dty: D, pro: P]\n";
    EXPECT_EQ(
        "SendCustomEvent[act: zhwebevent, eid: e1, eid_desc: d\xC3\xA9, content: c, dur: 5, " +
            tail,
        lines[0]);
    EXPECT_EQ("PostCustomEvent[act: zhwebevent, eid: e2, " + tail, lines[1]);
    EXPECT_EQ("SendCustomEventExt[act: zhwebevent, eid: e3, session_id: " + session +
                  ", dty: D, pro: P, aaa: x]\n",
              lines[2]);
    EXPECT_EQ("SendErrorEventEx[act: zhwebevent, eid: error/e4, " + tail, lines[3]);
    EXPECT_TRUE(std::regex_match(
        lines[4], std::regex("PostHeartBeatEvent\\[act: zhwebevent, eid: heartbeat, dur: -?[0-9]+, "
                             "session_id: [-0-9a-f]{36}, dty: D, pro: P, ati: [0-9]{14}\\]\n")))
        << lines[4];
}

TEST_F(ReportObjectTest, LifecycleTracesNameTheirEvents) {
    TraceCapture capture;
    ASSERT_TRUE(InitObject(7, true));
    object->Run();
    object->Exit(false, 5000);
    std::vector<std::string> names;
    for (const std::string& line : capture.Lines()) {
        names.push_back(line.substr(0, line.find('[')));
    }
    EXPECT_EQ(
        (std::vector<std::string>{"PostStartUpEvent", "PostHeartBeatEvent", "PostEndUpEvent"}),
        names);
}

}  // namespace
}  // namespace qzdata_report_kelvo
