#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "api/legacy_bridge.h"
#include "port/debug_output.h"
#include "qzdata_report.h"
#include "report/report_object.h"
#include "tests/api/fake_legacy_library.h"

namespace qzdata_report_kelvo {
namespace {

// Every test of this binary sees the fake as the legacy library.
class LegacyEnvironment : public ::testing::Environment {
  public:
    void SetUp() override { SetLegacyFunctionsForTesting(&table); }
    void TearDown() override { SetLegacyFunctionsForTesting(nullptr); }

  private:
    const LegacyFunctions table = MakeLinkedLegacyFunctions();
};

const ::testing::Environment* const environment =
    ::testing::AddGlobalTestEnvironment(new LegacyEnvironment);

void NoteResponse(ReportResponed&) {}
int context = 0;
const std::vector<ReportRecord> records{{{"k", "v"}}, {{"k", "w"}}};
const EidDescPtrPair descriptions[] = {{"legacyb", L"B"}, {"legacyc", L"C"}, {}};

struct ExportCase {
    std::function<void()> call;
    std::string heard;    // the call the legacy library hears
    ReportRecord fields;  // of the event reported, besides the common ones and "ati"; none: none
};

// An export whose legacy function hears the very arguments it was given.
#define AS_WRITTEN(call, ...)            \
    ExportCase {                         \
        [] { call; }, #call, __VA_ARGS__ \
    }

// Each export that has a legacy counterpart (Init, Run and Exit aside). The typed events build
// their path and description from their arguments; the Post family passes no content.
const std::vector<ExportCase> cases = {
    {[] {
         AddEidDescList(std::vector<EidDescPair>{{"typedseg", L"Typed"}});
     },
     "AddEidDescList(1 items)",
     {}},
    {[] { AddEidDescList(descriptions); }, "AddEidDescList(2 items)", {}},
    AS_WRITTEN(Init(L"", "d", "p", 6000, nullptr, L"np", 5, true), {}),
    AS_WRITTEN(Flush(), {}),
    {[] { FlushWithPriority(kPriorityLow); }, "FlushWithPriority(5)", {}},
    AS_WRITTEN(SetSilent(false), {}),
    AS_WRITTEN(SetOutputDebugString(true), {}),
    {[] { SetDefaultPostPriority(kPriorityImmediate); }, "SetDefaultPostPriority(0)", {}},
    AS_WRITTEN(SetDefaultUrl(L"http://default.test/"), {}),
    {[] { PostWithPriority(L"", kPriorityHigh, records, &NoteResponse, &context); },
     "PostWithPriority(L\"\", 1, 2 items, set, set)",
     {}},
    {[] { PostImmediately(L"", records, nullptr, nullptr); },
     "PostImmediately(L\"\", 2 items, nullptr, nullptr)",
     {}},
    AS_WRITTEN(SendErrorEvent(nullptr, "c", "s"), {}),
    AS_WRITTEN(SendErrorEventEx("", "c", "d", 2, false), {}),
    AS_WRITTEN(PostCustomEvent("e", "d", "c", 4, true),
               {{"eid", "e"}, {"eid_desc", "d"}, {"content", "c"}, {"dur", "4"}}),
    AS_WRITTEN(SendCustomEvent("e", "", "", -1, true), {{"eid", "e"}}),
    AS_WRITTEN(PostEventWithDur("a", -1, ""), {}),
    AS_WRITTEN(SendEventWithDur("", 1, "d"), {}),
    AS_WRITTEN(SendEventWithDur("a", 0, "d"), {{"eid", "a"}, {"eid_desc", "d"}, {"dur", "0"}}),
    AS_WRITTEN(PostEventWithSrc(nullptr, "s", "d"), {}),
    AS_WRITTEN(PostEventWithSrc("a", "", nullptr), {{"eid", "a"}}),
    AS_WRITTEN(PostEventWithSrc("a", "b", "d"), {{"eid", "a/b"}, {"eid_desc", "d"}}),
    // The legacy function takes no content: the fourth text stays here.
    {[] { SendEventWithSrc("a", "b", "d", "body"); },
     "SendEventWithSrc(\"a\", \"b\", \"d\")",
     {{"eid", "a/b"}, {"eid_desc", "d"}, {"content", "body"}}},
    AS_WRITTEN(PostEventWithInt("typedseg", -3, nullptr),
               {{"eid", "typedseg/-3"}, {"eid_desc", "Typed/-3"}}),
    // A description equal to the path is left out.
    AS_WRITTEN(SendEventWithInt("a", 7, "a/7"), {{"eid", "a/7"}}),
    AS_WRITTEN(PostSimpleEvent("a", "", "c", nullptr, -1), {{"eid", "a/c"}}),
    AS_WRITTEN(PostSimpleEvent("a", nullptr, nullptr, nullptr, -7), {{"eid", "a"}}),
    AS_WRITTEN(SendSimpleEvent("a", "b", "c", nullptr, 8), {{"eid", "a/b/c"}, {"dur", "8"}})};

std::vector<ReportPost> Queued() {
    return GetReportObject()->GetReportThread().QueuedPosts();
}

// The whole life of the process-wide object through the exports. Until the server turns the
// older library off, each export calls its legacy function once, before its own work (seen
// here by the event's trace); afterwards the older library hears nothing.
TEST(LegacyBridgeTest, ExportsCallTheLegacyLibraryFirstUntilTheSwitchIsOn) {
    port::SetDebugSink([](const std::string& line) {
        qz_fake_legacy::Note("trace " + line.substr(0, line.find('[')));
    });
    // The legacy Init answers false; the result follows the library's own object.
    EXPECT_TRUE(Init(L"http://collector.test/", "D", "P", 600000, nullptr, L"", 0, true));
    EXPECT_EQ(std::vector<std::string>{"Init(L\"http://collector.test/\", \"D\", \"P\", 600000, "
                                       "nullptr, L\"\", 0, true)"},
              qz_fake_legacy::Calls());
    for (const ExportCase& c : cases) {
        SCOPED_TRACE(c.heard);
        qz_fake_legacy::Clear();
        const size_t before = Queued().size();
        c.call();
        std::vector<std::string> heard{c.heard};
        if (!c.fields.empty()) {
            heard.push_back(c.heard.rfind("Post", 0) == 0 ? "trace PostCustomEvent"
                                                          : "trace SendCustomEvent");
        }
        EXPECT_EQ(heard, qz_fake_legacy::Calls());
        const std::vector<ReportPost> posts = Queued();
        ASSERT_EQ(before + (c.fields.empty() ? 0 : 1), posts.size());
        if (!c.fields.empty()) {
            ReportRecord record = posts.back().records.at(0);
            EXPECT_EQ(14u, record["ati"].size());
            for (const char* common : {"act", "session_id", "dty", "pro", "ati"}) {
                record.erase(common);
            }
            EXPECT_EQ(c.fields, record);
            EXPECT_EQ(L"http://default.test/", posts.back().url);
        }
    }

    // Exports without a legacy counterpart never call it.
    qz_fake_legacy::Clear();
    std::string escaped;
    EXPECT_TRUE(EidEscape("a/b", &escaped, false));
    EXPECT_EQ("a/b", escaped);
    qzdata_report_kelvo::Run();
    EXPECT_EQ(std::vector<std::string>{"Run()"}, qz_fake_legacy::Calls());
    EXPECT_EQ(kRunning, GetReportObject()->GetObjectState());

    // The switch goes on: the older library hears nothing from the very next call on, and the
    // library's own work goes on.
    port::SetDebugSink([](const std::string&) {});
    GetReportObject()->SetStopOldSdk(true);
    EXPECT_TRUE(IsStopOldSdk());
    qz_fake_legacy::Clear();
    for (const ExportCase& c : cases) {
        c.call();
    }
    qzdata_report_kelvo::Run();
    EXPECT_TRUE(SendCustomEvent("whileoff", "", "", -1, false));
    Exit(true, 5000);
    EXPECT_TRUE(qz_fake_legacy::Calls().empty());
    EXPECT_TRUE(Queued().empty());
    EXPECT_FALSE(GetReportObject()->GetReportThread().IsRunning());

    // After Exit the object stays: reports are accepted and go nowhere.
    GetReportObject()->SetStopOldSdk(false);
    EXPECT_TRUE(SendCustomEvent("afterexit", "", "", -1, false));
    Exit(false, 0);
    EXPECT_EQ((std::vector<std::string>{"SendCustomEvent(\"afterexit\", \"\", \"\", -1, false)",
                                        "Exit(false)"}),
              qz_fake_legacy::Calls());
    EXPECT_EQ(1u, Queued().size());
    port::SetDebugSink(nullptr);
}

}  // namespace
}  // namespace qzdata_report_kelvo
