#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <mutex>
#include <regex>
#include <string>
#include <vector>

#include "api/legacy_bridge.h"
#include "port/debug_output.h"
#include "qzdata_report.h"
#include "report/report_object.h"
#include "support/wait.h"
#include "tests/api/fake_legacy_library.h"

namespace qzdata_report_kelvo {
namespace {

// Every test of this binary sees the fake as the legacy library, with the switch off.
class LegacyEnvironment : public ::testing::Environment {
  public:
    void SetUp() override {
        table = MakeLinkedLegacyFunctions();
        SetLegacyFunctionsForTesting(&table);
    }
    void TearDown() override { SetLegacyFunctionsForTesting(nullptr); }

  private:
    LegacyFunctions table;
};

const ::testing::Environment* const environment =
    ::testing::AddGlobalTestEnvironment(new LegacyEnvironment);

class LegacyBridgeTest : public ::testing::Test {
  protected:
    void SetUp() override {
        GetReportObject()->SetStopOldSdk(false);
        qz_fake_legacy::Clear();
    }
    void TearDown() override {
        GetReportObject()->SetStopOldSdk(false);
        port::SetDebugSink(nullptr);
    }
};

struct ForwardCase {
    std::function<void()> call;
    std::string expected;
};

void NoteResponse(ReportResponed&) {}

// Each export that has a legacy counterpart (Exit aside), with the call the legacy library hears.
std::vector<ForwardCase> ForwardCases() {
    static const std::vector<ReportRecord> records{{{"k", "v"}}, {{"k", "w"}}};
    static const std::vector<EidDescPair> pairs{{"legacyseg", L"L"}};
    static const EidDescPtrPair array[] = {
        {"legacyb", L"B"}, {"legacyc", L"C"}, {nullptr, nullptr}};
    static int context = 0;
    const std::wstring url = GetDefaultUrl();
    return {
        {[] { Init(L"", "d", "p", 6000, nullptr, L"np", 5, false); },
         "Init(L'', 'd', 'p', 6000, nullptr, L'np', 5, false)"},
        {[] { Flush(); }, "Flush()"},
        {[] { FlushWithPriority(kPriorityLow); }, "FlushWithPriority(priority 5)"},
        {[] { SetSilent(false); }, "SetSilent(false)"},
        {[] { SetOutputDebugString(false); }, "SetOutputDebugString(false)"},
        {[] { SetDefaultPostPriority(kPriorityImmediate); }, "SetDefaultPostPriority(priority 0)"},
        {[url] { SetDefaultUrl(url); },
         "SetDefaultUrl(L'" + std::string(url.begin(), url.end()) + "')"},
        {[] { PostCustomEvent("e", "d", "c", 4, true); },
         "PostCustomEvent('e', 'd', 'c', 4, true)"},
        {[] { SendCustomEvent("e", "", "", -1, false); },
         "SendCustomEvent('e', '', '', -1, false)"},
        {[] { SendErrorEvent("e", nullptr, "s"); }, "SendErrorEvent('e', null, 's')"},
        {[] { SendErrorEventEx("e", "c", "d", 2, false); },
         "SendErrorEventEx('e', 'c', 'd', 2, false)"},
        {[] { PostEventWithDur("e", 3, nullptr); }, "PostEventWithDur('e', 3, null)"},
        {[] { SendEventWithDur("e", -1, "d"); }, "SendEventWithDur('e', -1, 'd')"},
        {[] { PostEventWithSrc("e", "s", "d"); }, "PostEventWithSrc('e', 's', 'd')"},
        // The legacy function has no content: the fourth text stays here.
        {[] { SendEventWithSrc("e", "s", "d", "content"); }, "SendEventWithSrc('e', 's', 'd')"},
        {[] { PostEventWithInt("e", -3, nullptr); }, "PostEventWithInt('e', -3, null)"},
        {[] { SendEventWithInt("e", 7, "d"); }, "SendEventWithInt('e', 7, 'd')"},
        {[] { PostSimpleEvent("e", "", "b", nullptr, -1); },
         "PostSimpleEvent('e', '', 'b', null, -1)"},
        {[] { SendSimpleEvent("e", "a", nullptr, "d", 9); },
         "SendSimpleEvent('e', 'a', null, 'd', 9)"},
        {[] { PostWithPriority(L"u", kPriorityHigh, records, &NoteResponse, &context); },
         "PostWithPriority(L'u', priority 1, 2 records, callback, pointer)"},
        {[] { PostImmediately(L"", records, nullptr, nullptr); },
         "PostImmediately(L'', 2 records, no callback, nullptr)"},
        {[] { AddEidDescList(pairs); }, "AddEidDescList(1 pairs)"},
        {[] { AddEidDescList(array); }, "AddEidDescList(2 pairs)"},
    };
}

TEST_F(LegacyBridgeTest, ForwardedExportsPassTheirArgumentsToTheLegacyFunction) {
    for (const ForwardCase& c : ForwardCases()) {
        qz_fake_legacy::Clear();
        c.call();
        EXPECT_EQ(std::vector<std::string>{c.expected}, qz_fake_legacy::Calls());
    }
}

TEST_F(LegacyBridgeTest, LegacyCallComesBeforeTheLibrarysOwnWork) {
    // The trace of the event is written by the library's own operation.
    port::SetDebugSink([](const std::string& line) {
        qz_fake_legacy::Note("trace " + line.substr(0, line.find('[')));
    });
    const bool traced = GetOutputDebugString();
    GetReportObject()->SetOutputDebugString(true);
    SendCustomEvent("order", "", "", -1, false);
    PostCustomEvent("order", "", "", -1, false);
    GetReportObject()->SetOutputDebugString(traced);
    EXPECT_EQ((std::vector<std::string>{
                  "SendCustomEvent('order', '', '', -1, false)", "trace SendCustomEvent",
                  "PostCustomEvent('order', '', '', -1, false)", "trace PostCustomEvent"}),
              qz_fake_legacy::Calls());
}

TEST_F(LegacyBridgeTest, ExportsWithoutLegacyCounterpartNeverCallIt) {
    std::string out;
    GetSDKVersion();
    GetSessionId();
    GetOutputDebugString();
    IsSilent();
    IsStopOldSdk();
    GetDefaultPostPriority();
    GetDefaultUrl();
    EidEscape("a b", &out, true);
    EidUnescape(out, &out);
    EXPECT_TRUE(qz_fake_legacy::Calls().empty());
}

std::string EidOf(const std::string& query) {
    std::smatch m;
    return std::regex_search(query, m, std::regex("(?:extra=|%26)eid%3D([a-z]+)")) ? m[1].str()
                                                                                   : "?";
}

// The whole life of the process-wide object through the exports: the only test here that runs it.
TEST_F(LegacyBridgeTest, LifecycleWithTheSwitchTurnedOnMidway) {
    std::mutex mutex;
    std::vector<std::string> eids;
    GetReportObject()->GetReportThread().SetRecordObserverForTesting([&](const BuiltRecord& built) {
        std::lock_guard<std::mutex> guard(mutex);
        eids.push_back(EidOf(built.signedQuery));
    });

    // The legacy Init answers false; the result follows the library's own object.
    EXPECT_TRUE(Init(L"http://collector.test/", "D", "P", 5000, nullptr, L"", 7, false));
    EXPECT_EQ(36u, GetSessionId().size());
    EXPECT_TRUE(SendCustomEvent("beforerun", "", "", -1, false));
    qzdata_report_kelvo::Run();
    EXPECT_EQ((std::vector<std::string>{
                  "Init(L'http://collector.test/', 'D', 'P', 5000, nullptr, L'', 7, false)",
                  "SendCustomEvent('beforerun', '', '', -1, false)", "Run()"}),
              qz_fake_legacy::Calls());

    // The server turns the older library off: from the very next call on it hears nothing.
    qz_fake_legacy::Clear();
    GetReportObject()->SetStopOldSdk(true);
    EXPECT_TRUE(IsStopOldSdk());
    for (const ForwardCase& c : ForwardCases()) {
        c.call();
    }
    qzdata_report_kelvo::Run();
    EXPECT_TRUE(SendCustomEvent("whileoff", "", "", -1, false));
    Exit(true, 5000);
    EXPECT_TRUE(qz_fake_legacy::Calls().empty());

    {
        std::lock_guard<std::mutex> guard(mutex);
        ASSERT_GE(eids.size(), 4u);
        EXPECT_EQ("beforerun", eids.front());
        EXPECT_EQ("heartbeat", eids[eids.size() - 2]);
        EXPECT_EQ("endup", eids.back());
        EXPECT_NE(eids.end(), std::find(eids.begin(), eids.end(), "whileoff"));
        EXPECT_NE(eids.end(), std::find(eids.begin(), eids.end(), "startup"));
    }
    GetReportObject()->GetReportThread().SetRecordObserverForTesting(nullptr);

    // After Exit the object stays: reports are accepted and go nowhere.
    GetReportObject()->SetStopOldSdk(false);
    EXPECT_TRUE(SendCustomEvent("afterexit", "", "", -1, false));
    Exit(false, 0);
    EXPECT_EQ((std::vector<std::string>{"SendCustomEvent('afterexit', '', '', -1, false)",
                                        "Exit(false)"}),
              qz_fake_legacy::Calls());
}

}  // namespace
}  // namespace qzdata_report_kelvo
