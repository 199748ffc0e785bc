#include "report/record_builder.h"

#include <gtest/gtest.h>

#include <string>

#include "report/report_fixture.h"
#include "support/wait.h"

namespace qzdata_report_kelvo {
namespace {

TEST(RecordBuilderTest, ReusesOldKeysAndDropsTheOnesNotSetAgain) {
    ReportRecord record{{"a", "old-a"}, {"b", "old-b"}, {"c", "old-c"}};
    const std::string* bufferOfA = &record.at("a");
    {
        RecordBuilder builder(record);
        builder.Add("a", "new-a");
        builder.Add("d", "new-d");
        builder.Add("a", "second value is ignored");
        builder.Add("d", "second value of a new key too");
        builder.Add("c", "0123456789", 4);
        builder.Add("e", "");
    }
    EXPECT_EQ((ReportRecord{{"a", "new-a"}, {"c", "0123"}, {"d", "new-d"}, {"e", ""}}), record);
    EXPECT_EQ(bufferOfA, &record.at("a"));
}

TEST(RecordBuilderTest, ALargeOldRecordIsEmptiedFirst) {
    ReportRecord record;
    for (int i = 0; i < 40; ++i) {
        record["key" + std::to_string(i)] = "v";
    }
    {
        RecordBuilder builder(record);
        builder.Add("key1", "again");
        builder.Add("key1", "ignored");
    }
    EXPECT_EQ((ReportRecord{{"key1", "again"}}), record);
}

// Events built in the memory of earlier, richer events carry nothing of them.
TEST_F(ReportObjectTest, EventsBuiltInReusedMemoryHoldOnlyTheirOwnKeys) {
    ASSERT_TRUE(InitObject(0));
    object->Run();
    EXPECT_TRUE(
        object->SendCustomEventExt("rich", "desc", "content", 5, true, {{"x1", "1"}, {"x2", "2"}}));
    EXPECT_TRUE(qz_test::WaitUntil([&] { return BuiltQueries().size() == 1; }));
    // The drained post is kept for reuse once the worker has sent it.
    EXPECT_TRUE(qz_test::WaitUntil([&] { return Queued().empty(); }));
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(object->SendCustomEvent("bare", "", "", -1, false));
    }
    object->Exit(false, 5000);
    const std::vector<std::string> queries = BuiltQueries();
    ASSERT_EQ(4u, queries.size());
    for (size_t i = 1; i < queries.size(); ++i) {
        const std::string& query = queries[i];
        EXPECT_NE(std::string::npos, query.find("eid%3Dbare")) << query;
        for (const char* gone : {"x1", "x2", "content", "eid_desc", "dur", "ati"}) {
            EXPECT_EQ(std::string::npos, query.find(gone)) << gone << " in " << query;
        }
    }
}

}  // namespace
}  // namespace qzdata_report_kelvo
