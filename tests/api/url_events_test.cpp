#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "api/legacy_bridge.h"
#include "port/debug_output.h"
#include "qzdata_report.h"
#include "report/event_ids.h"
#include "report/report_object.h"
#include "tests/api/fake_legacy_library.h"

namespace qzdata_report_kelvo {
namespace {

// A call, what the older library hears (wide URL: "set"), its event's fields (none: refused).
using UrlCase = std::tuple<std::function<bool()>, std::vector<std::string>, ReportRecord>;
#define HEARS(call, heard, ...) UrlCase([] { return call; }, heard, ReportRecord(__VA_ARGS__))
#define AS_WRITTEN(call, ...) HEARS(call, {#call}, __VA_ARGS__)
// A narrow form reaches the older library twice: narrow, then wide once converted.
#define TWICE(call, wide, ...) HEARS(call, (std::vector<std::string>{#call, wide}), __VA_ARGS__)
// The game event is heard through SendEventWithSrc.
#define GAME(call, path) \
    HEARS(call, {"SendEventWithSrc(\"" path "\", \"\", \"\")"}, {{"eid", path}})

const UrlCase cases[] = {
    HEARS(PostOpenUrlEvent(L"http://aa.bb.cc/x/y?q=1#f"), {"PostOpenUrlEvent(set)"},
          {{"eid", "OpenUrl/cc.bb.aa/.2fx.2fy"}, {"eid_desc", "OpenUrl/Site/.2fx.2fy"}}),
    HEARS(SendOpenUrlEvent(L"chrome://settings/p"), {"SendOpenUrlEvent(set)"},
          {{"eid", "OpenUrl/local.settings/.2fp"}}),
    TWICE(PostOpenUrlEvent("http://hé.x/é", 65001), "PostOpenUrlEvent(set)",
          {{"eid", "OpenUrl/x.hé/.2f.c3.a9"}}),
    TWICE(PostReportUrlEvent("TZE://10.0.0.1/x.y", "shown", 0),
          "PostReportUrlEvent(set, \"shown\")", {{"eid", "shown/local.1.0.0.10/.2fx..y"}}),
    // No conversion, no second call.
    AS_WRITTEN(PostReportUrlEvent("http://a.b/", "k", 12345)),
    AS_WRITTEN(SendOpenUrlEvent(nullptr, 65001)),
    AS_WRITTEN(PostUrlWithDur("n", "http://aa.bb/c", "s", 5, nullptr),
               {{"eid", "n/aa.bb/.2fc/s"}, {"dur", "5"}}),
    // The host stands as written, even for a local scheme.
    AS_WRITTEN(SendUrlWithDur("n", "tze://h.x", "s", 0, "given"),
               {{"eid", "n/h.x//s"}, {"eid_desc", "given"}, {"dur", "0"}}),
    GAME(SendEventWithGameInfo("e", "s", L"1", L"2", L"a/b/c", L""),
         "e/s/GameID=1/ServerID=2/From=a_b_c"),
    HEARS(SendEventWithGameInfo("", "s", L"1", L"2", L"f", L"t"), {})};

TEST(UrlEventsTest, ExportsBuildTheirPathAndTellTheOlderLibrary) {
    static const LegacyFunctions table = MakeLinkedLegacyFunctions();
    SetLegacyFunctionsForTesting(&table);
    port::SetDebugSink([](const std::string& line) {
        qz_fake_legacy::Note("trace " + line.substr(0, line.find('[')));
    });
    ASSERT_TRUE(Init(L"http://collector.test/", "D", "P", 600000, nullptr, L"", 0, true));
    ASSERT_TRUE(AddEidDescriptions(std::vector<EidDescPair>{{"cc.bb.aa", L"Site"}}));
    qz_fake_legacy::Take();
    size_t seen = GetReportObject()->GetReportThread().QueuedPosts().size();
    for (const auto& [call, heard, fields] : cases) {
        SCOPED_TRACE(heard.empty() ? "no legacy call" : heard.front());
        EXPECT_EQ(!fields.empty(), call());
        const std::vector<ReportPost> posts = GetReportObject()->GetReportThread().QueuedPosts();
        ASSERT_EQ(seen + !fields.empty(), posts.size());
        seen = posts.size();
        std::vector<std::string> log = heard;
        if (!fields.empty()) {
            // The family's event follows the legacy calls.
            log.push_back("trace " + heard.front().substr(0, 4) + "CustomEvent");
            EXPECT_EQ(fields, qz_fake_legacy::OwnFields(posts.back().records.at(0)));
        }
        EXPECT_EQ(log, qz_fake_legacy::Take());
    }
    port::SetDebugSink(nullptr);
}

}  // namespace
}  // namespace qzdata_report_kelvo
