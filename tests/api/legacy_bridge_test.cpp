#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "api/legacy_bridge.h"
#include "port/debug_output.h"
#include "qzdata_report.h"
#include "report/report_object.h"
#include "tests/api/fake_legacy_library.h"

namespace qzdata_report_kelvo {
namespace {

void NoteResponse(ReportResponed&) {}
int context = 0;
const std::vector<ReportRecord> records{{{"k", "v"}}, {{"k", "w"}}};
const EidDescPtrPair descriptions[] = {{"legacyb", L"B"}, {"legacyc", L"C"}, {}};

// An export, the call its legacy function hears (AS_WRITTEN: its own arguments), and the fields
// of its event but the common ones (none: no event).
using ExportCase = std::tuple<std::function<void()>, std::string, ReportRecord>;
#define HEARS(call, heard, ...) ExportCase([] { call; }, heard, ReportRecord(__VA_ARGS__))
#define AS_WRITTEN(call, ...) HEARS(call, #call, __VA_ARGS__)

// Each export with a legacy counterpart (Init, Run and Exit aside).
const std::vector<ExportCase> cases = {
    HEARS(AddEidDescList(std::vector<EidDescPair>{{"typedseg", L"Typed"}}),
          "AddEidDescList(1 items)"),
    HEARS(AddEidDescList(descriptions), "AddEidDescList(\"legacyb\")"), AS_WRITTEN(Flush()),
    HEARS(FlushWithPriority(kPriorityLow), "FlushWithPriority(5)"), AS_WRITTEN(SetSilent(false)),
    AS_WRITTEN(SetOutputDebugString(true)),
    HEARS(SetDefaultPostPriority(kPriorityImmediate), "SetDefaultPostPriority(0)"),
    AS_WRITTEN(SetDefaultUrl(L"http://default.test/")),
    HEARS(PostWithPriority(L"", kPriorityHigh, records, &NoteResponse, &context),
          "PostWithPriority(L\"\", 1, 2 items, set, set)"),
    HEARS(PostImmediately(L"", records, nullptr, nullptr),
          "PostImmediately(L\"\", 2 items, nullptr, nullptr)"),
    AS_WRITTEN(SendErrorEvent(nullptr, "c", "s")),
    AS_WRITTEN(SendErrorEventEx("", "c", "d", 2, false)),
    AS_WRITTEN(PostCustomEvent("e", "d", "c", 4, true),
               {{"eid", "e"}, {"eid_desc", "d"}, {"content", "c"}, {"dur", "4"}}),
    AS_WRITTEN(SendCustomEvent("e", "", "", -1, true), {{"eid", "e"}}),
    AS_WRITTEN(PostEventWithDur("a", -1, "")),
    AS_WRITTEN(SendEventWithDur("a", 0, "d"), {{"eid", "a"}, {"eid_desc", "d"}, {"dur", "0"}}),
    AS_WRITTEN(PostEventWithSrc("a", "b", "d"), {{"eid", "a/b"}, {"eid_desc", "d"}}),
    // The legacy function takes no content: the fourth text stays here.
    HEARS(SendEventWithSrc("a", "b", "d", "body"), "SendEventWithSrc(\"a\", \"b\", \"d\")",
          {{"eid", "a/b"}, {"eid_desc", "d"}, {"content", "body"}}),
    AS_WRITTEN(PostEventWithInt("typedseg", -3, nullptr),
               {{"eid", "typedseg/-3"}, {"eid_desc", "Typed/-3"}}),
    // A description equal to the path is left out.
    AS_WRITTEN(SendEventWithInt("a", 7, "a/7"), {{"eid", "a/7"}}),
    AS_WRITTEN(PostSimpleEvent("a", "", "c", nullptr, -1), {{"eid", "a/c"}}),
    AS_WRITTEN(SendSimpleEvent("a", "b", "c", nullptr, 8), {{"eid", "a/b/c"}, {"dur", "8"}}),
    HEARS(PostSessionInfo(SessionInfo()), "PostSessionInfo()"), AS_WRITTEN(SetMachineId("m")),
    AS_WRITTEN(SetValue("k", "v")), AS_WRITTEN(SetWideValue("k", L"w")),
    HEARS(SetDWORD("k", 5ul), "SetDWORD(\"k\", 5)")};

// The process-wide object's whole life through the exports, with the fake as the legacy library.
// Until the server turns the older library off, each export calls its legacy function once,
// before its own work (seen by the event's trace); afterwards the older library hears nothing.
TEST(LegacyBridgeTest, ExportsCallTheLegacyLibraryFirstUntilTheSwitchIsOn) {
    static const LegacyFunctions table = MakeLinkedLegacyFunctions();
    SetLegacyFunctionsForTesting(&table);
    const auto queued = [] { return GetReportObject()->GetReportThread().QueuedPosts(); };
    port::SetDebugSink([](const std::string& line) {
        qz_fake_legacy::Note("trace " + line.substr(0, line.find('[')));
    });
    // The legacy Init answers false; the result follows the library's own object.
    EXPECT_TRUE(Init(L"http://collector.test/", "D", "P", 600000, nullptr, L"", 0, true));
    EXPECT_EQ(std::vector<std::string>{"Init(L\"http://collector.test/\", \"D\", \"P\", 600000, "
                                       "nullptr, L\"\", 0, true)"},
              qz_fake_legacy::Take());
    for (const auto& [call, heard, fields] : cases) {
        SCOPED_TRACE(heard);
        const size_t before = queued().size();
        call();
        const std::vector<ReportPost> posts = queued();
        ASSERT_EQ(before + !fields.empty(), posts.size());
        std::vector<std::string> log{heard};
        if (!fields.empty()) {
            log.push_back("trace " + heard.substr(0, 4) + "CustomEvent");
            EXPECT_EQ(fields, qz_fake_legacy::OwnFields(posts.back().records.at(0)));
            EXPECT_EQ(L"http://default.test/", posts.back().url);
        }
        EXPECT_EQ(log, qz_fake_legacy::Take());
    }

    qzdata_report_kelvo::Run();
    EXPECT_EQ(std::vector<std::string>{"Run()"}, qz_fake_legacy::Take());
    EXPECT_EQ(kRunning, GetReportObject()->GetObjectState());

    // The switch goes on: from the next call on the older library hears nothing; our work goes on.
    port::SetDebugSink([](const std::string&) {});
    GetReportObject()->SetStopOldSdk(true);
    for (const ExportCase& c : cases)
        std::get<0>(c)();
    qzdata_report_kelvo::Run();
    Exit(true, 5000);
    EXPECT_TRUE(qz_fake_legacy::Take().empty() && queued().empty() &&
                !GetReportObject()->GetReportThread().IsRunning());

    port::SetDebugSink(nullptr);
}

}  // namespace
}  // namespace qzdata_report_kelvo
