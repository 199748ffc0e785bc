#include "api/typed_events.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "port/debug_output.h"
#include "qzdata_report.h"
#include "report/event_ids.h"

namespace qzdata_report_kelvo {
namespace {

// A report object of its own, initialised and never run: every report stays in the queue, and
// its traces are written on the calling thread.
class TypedEventsTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(object.Init(L"http://collector.test/", "D", "P", 5000, nullptr, L"", 0, true));
        port::SetDebugSink(
            [this](const std::string& line) { traces.push_back(line.substr(0, line.find('['))); });
    }
    void TearDown() override { port::SetDebugSink(nullptr); }

    std::vector<ReportRecord> Records() {
        std::vector<ReportRecord> records;
        for (const ReportPost& post : object.GetReportThread().QueuedPostsForTesting()) {
            records.insert(records.end(), post.records.begin(), post.records.end());
        }
        return records;
    }
    ReportObject object;
    std::vector<std::string> traces;
};

using O = ReportObject&;
using F = EventFamily;

struct TypedCase {
    const char* name;
    std::function<bool(O, F)> call;
    bool accepted;
    ReportRecord fields;  // besides the four common ones and "ati"
};

TEST_F(TypedEventsTest, FamiliesBuildPathsAndDescriptions) {
    ASSERT_TRUE(AddEidDescriptions(std::vector<EidDescPair>{{"typedseg", L"Typed"}}));
    const std::vector<TypedCase> cases = {
        {"dur -1 is refused",
         [](O o, F f) { return ReportEventWithDur(o, f, "a", -1, ""); },
         false,
         {}},
        {"dur 0 is sent",
         [](O o, F f) { return ReportEventWithDur(o, f, "a", 0, "d"); },
         true,
         {{"eid", "a"}, {"eid_desc", "d"}, {"dur", "0"}}},
        {"empty eid is refused",
         [](O o, F f) { return ReportEventWithDur(o, f, "", 1, "d"); },
         false,
         {}},
        {"null eid is refused",
         [](O o, F f) { return ReportEventWithSrc(o, f, nullptr, "s", "d", nullptr); },
         false,
         {}},
        {"empty src leaves the path alone",
         [](O o, F f) { return ReportEventWithSrc(o, f, "a", "", nullptr, nullptr); },
         true,
         {{"eid", "a"}}},
        {"src extends the path",
         [](O o, F f) { return ReportEventWithSrc(o, f, "a", "b", "d", nullptr); },
         true,
         {{"eid", "a/b"}, {"eid_desc", "d"}}},
        {"description equal to the path is left out",
         [](O o, F f) { return ReportEventWithSrc(o, f, "a", "b", "a/b", nullptr); },
         true,
         {{"eid", "a/b"}}},
        {"missing description comes from the table",
         [](O o, F f) { return ReportEventWithInt(o, f, "typedseg", -3, nullptr); },
         true,
         {{"eid", "typedseg/-3"}, {"eid_desc", "Typed/-3"}}},
        {"signed value in the path",
         [](O o, F f) { return ReportEventWithInt(o, f, "a", -3, ""); },
         true,
         {{"eid", "a/-3"}}},
        {"simple event skips an empty first part",
         [](O o, F f) { return ReportSimpleEvent(o, f, "a", "", "c", nullptr, -1); },
         true,
         {{"eid", "a/c"}}},
        {"simple event with both parts and a duration",
         [](O o, F f) { return ReportSimpleEvent(o, f, "a", "b", "c", nullptr, 8); },
         true,
         {{"eid", "a/b/c"}, {"dur", "8"}}},
        {"simple event turns a negative duration into none",
         [](O o, F f) { return ReportSimpleEvent(o, f, "a", nullptr, nullptr, nullptr, -7); },
         true,
         {{"eid", "a"}}},
    };
    for (EventFamily family : {EventFamily::kPost, EventFamily::kSend}) {
        for (const TypedCase& c : cases) {
            SCOPED_TRACE(std::string(c.name) +
                         (family == EventFamily::kPost ? " (post)" : " (send)"));
            const size_t before = Records().size();
            EXPECT_EQ(c.accepted, c.call(object, family));
            const std::vector<ReportRecord> records = Records();
            ASSERT_EQ(before + (c.accepted ? 1 : 0), records.size());
            if (!c.accepted) {
                continue;
            }
            ReportRecord record = records.back();
            EXPECT_EQ(14u, record.at("ati").size());
            for (const char* common : {"act", "session_id", "dty", "pro", "ati"}) {
                record.erase(common);
            }
            EXPECT_EQ(c.fields, record);
        }
    }
}

TEST_F(TypedEventsTest, SendWithSrcCarriesItsContent) {
    EXPECT_TRUE(ReportEventWithSrc(object, EventFamily::kSend, "a", "b", nullptr, "body"));
    EXPECT_TRUE(ReportEventWithSrc(object, EventFamily::kSend, "a", nullptr, nullptr, ""));
    const std::vector<ReportRecord> records = Records();
    ASSERT_EQ(2u, records.size());
    EXPECT_EQ("body", records[0].at("content"));
    EXPECT_EQ(0u, records[1].count("content"));
}

TEST_F(TypedEventsTest, EachFamilyEndsInItsOwnOperation) {
    ReportEventWithDur(object, EventFamily::kPost, "a", 1, nullptr);
    ReportEventWithDur(object, EventFamily::kSend, "a", 1, nullptr);
    ReportSimpleEvent(object, EventFamily::kPost, "a", nullptr, nullptr, nullptr, 1);
    ReportSimpleEvent(object, EventFamily::kSend, "a", nullptr, nullptr, nullptr, 1);
    EXPECT_EQ((std::vector<std::string>{"PostCustomEvent", "SendCustomEvent", "PostCustomEvent",
                                        "SendCustomEvent"}),
              traces);
}

TEST(RawExportsTest, EmptyUrlIsRefused) {
    const std::vector<ReportRecord> records{{{"k", "v"}}};
    EXPECT_FALSE(PostWithPriority(L"", kPriorityImmediate, records, nullptr, nullptr));
    EXPECT_FALSE(PostImmediately(L"", records, nullptr, nullptr));
}

}  // namespace
}  // namespace qzdata_report_kelvo
