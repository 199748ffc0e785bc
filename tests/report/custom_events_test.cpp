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

std::string Bytes(size_t count) {
    return std::string(count, 'x');
}

struct FieldCase {
    const char* name;
    std::string eid;
    std::string desc;
    std::string content;
    int dur;
    bool ati;
    ReportRecord expected;  // the event's own keys; "ati" checked for presence only
};

TEST_F(ReportObjectTest, CustomEventFieldsAndLimits) {
    ASSERT_TRUE(InitObject());
    const std::vector<FieldCase> cases = {
        {"eid of 100 bytes is cut to 99", Bytes(100), "", "", -1, false, {{"eid", Bytes(99)}}},
        {"eid of 99 bytes stays whole", Bytes(99), "", "", -1, false, {{"eid", Bytes(99)}}},
        {"desc cut to 254",
         "e",
         Bytes(255),
         "",
         -1,
         false,
         {{"eid", "e"}, {"eid_desc", Bytes(254)}}},
        {"content cut to 499",
         "e",
         "",
         Bytes(500),
         -1,
         false,
         {{"eid", "e"}, {"content", Bytes(499)}}},
        {"cut ignores characters",
         "e",
         "\xC3\xA9" + Bytes(253),
         "",
         -1,
         false,
         {{"eid", "e"}, {"eid_desc", "\xC3\xA9" + Bytes(252)}}},
        {"dur 0 is sent", "e", "", "", 0, false, {{"eid", "e"}, {"dur", "0"}}},
        {"dur -5 is not", "e", "", "", -5, false, {{"eid", "e"}}},
        {"time stamp on request", "e", "", "", -1, true, {{"eid", "e"}, {"ati", ""}}},
    };
    for (const FieldCase& c : cases) {
        SCOPED_TRACE(c.name);
        const size_t before = QueuedRecords().size();
        EXPECT_TRUE(object->PostCustomEvent(c.eid, c.desc, c.content, c.dur, c.ati));
        EXPECT_TRUE(object->SendCustomEvent(c.eid, c.desc, c.content, c.dur, c.ati));
        const std::vector<ReportRecord> records = QueuedRecords();
        ASSERT_EQ(before + 2, records.size());
        for (size_t i = before; i < records.size(); ++i) {
            ReportRecord own = records[i];
            EXPECT_EQ("zhwebevent", own["act"]);
            EXPECT_EQ("D", own["dty"]);
            EXPECT_EQ("P", own["pro"]);
            EXPECT_EQ(object->GetSessionId(), own["session_id"]);
            for (const char* common : {"act", "dty", "pro", "session_id"}) {
                own.erase(common);
            }
            if (own.count("ati") != 0) {
                EXPECT_TRUE(std::regex_match(own["ati"], std::regex("[0-9]{14}")));
                own["ati"] = "";
            }
            EXPECT_EQ(c.expected, own);
        }
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
    EXPECT_TRUE(object->SendErrorEventEx(Bytes(96), "", "", -1, false));
    EXPECT_EQ("error/" + Bytes(93), OnlyRecord().at("eid"));
    object.reset(new ReportObject());
    ASSERT_TRUE(InitObject());

    // Any description switches eid_desc on; its value is the translated id.
    EXPECT_TRUE(object->SendErrorEventEx("errseg", "what", "ignored", 3, false));
    ReportRecord record = OnlyRecord();
    EXPECT_EQ("error/errseg", record.at("eid"));
    EXPECT_EQ("Fault/Error segment", record.at("eid_desc"));
    EXPECT_EQ("what", record.at("content"));
    EXPECT_EQ("3", record.at("dur"));
    EXPECT_FALSE(object->SendErrorEventEx("", "c", "d", 1, true));
}

TEST_F(ReportObjectTest, SendErrorEventBuildsItsIdFromTheParts) {
    ASSERT_TRUE(InitObject());
    EXPECT_FALSE(object->SendErrorEvent(nullptr, "c", "s"));
    EXPECT_TRUE(object->SendErrorEvent("plainerr", nullptr, ""));
    EXPECT_TRUE(object->SendErrorEvent("plainerr", "body", "sub"));
    const std::vector<ReportRecord> records = QueuedRecords();
    ASSERT_EQ(2u, records.size());
    EXPECT_EQ("error/plainerr", records[0].at("eid"));
    EXPECT_EQ(0u, records[0].count("content"));
    EXPECT_EQ(1u, records[0].count("ati"));
    EXPECT_EQ(0u, records[0].count("dur"));
    EXPECT_EQ("error/plainerr/sub", records[1].at("eid"));
    EXPECT_EQ("body", records[1].at("content"));
    // No segment of "plainerr/sub" has a description, so the record gets none.
    EXPECT_EQ(0u, records[1].count("eid_desc"));
}

struct TranslateCase {
    std::string path;
    std::string expected;
};

TEST(EventIdsTest, TranslateReplacesDescribedSegmentsOnly) {
    ASSERT_TRUE(AddEidDescriptions(std::vector<EidDescPair>{{"tb", L"D\u00e9"}}));
    const std::vector<TranslateCase> cases = {
        {"ta/tb", "ta/D\xC3\xA9"},
        {"TB", "D\xC3\xA9"},
        {"ta//tb", "ta//D\xC3\xA9"},
        {"/tb/", "/D\xC3\xA9/"},
        {"", ""},
        {"tbx", "tbx"},
    };
    for (const TranslateCase& c : cases) {
        EXPECT_EQ(c.expected, TranslateEid(c.path)) << c.path;
    }
    EXPECT_EQ("", DescribeEid("ta/tc", nullptr));
    EXPECT_EQ("ta/D\xC3\xA9", DescribeEid("ta/tb", ""));
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
    std::string out;
    EXPECT_TRUE(UnescapeEidText(".2e", &out));
    EXPECT_EQ(".", out);
    EXPECT_TRUE(UnescapeEidText("..2e", &out));
    EXPECT_EQ(".2e", out);
    EXPECT_TRUE(UnescapeEidText(".4A.4a", &out));
    EXPECT_EQ("JJ", out);
    EXPECT_FALSE(UnescapeEidText("x", nullptr));
}

class TraceCapture {
  public:
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

  private:
    std::mutex mutex;
    std::vector<std::string> lines;
};

TEST(EventTextTest, TraceLineListsTheFixedKeysFirst) {
    const char* const keys[] = {"act", "eid", "dur"};
    const ReportRecord record{{"zz", "1"}, {"dur", "5"}, {"act", "a"}, {"b", "2"}};
    EXPECT_EQ("Name[act: a, dur: 5, b: 2, zz: 1]\n", FormatTraceLine("Name", keys, 3, record));
    EXPECT_EQ("Name[]\n", FormatTraceLine("Name", keys, 3, ReportRecord()));
}

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
