#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "report/event_ids.h"
#include "report/record_builder.h"

namespace qzdata_report_kelvo {
namespace {

// A later pair overwrites an earlier one whatever its case; a null description is empty; the
// array ends at a null id. Translation replaces the described non-empty segments only.
TEST(EventIdsTest, DescriptionsReplaceSegmentsIgnoringCase) {
    const EidDescPtrPair pairs[] = {{"TB", L"first"}, {"tb", L"D\u00e9"}, {"nul", nullptr}, {}};
    EXPECT_TRUE(AddEidDescriptions(pairs));
    EXPECT_TRUE(AddEidDescriptions(static_cast<const EidDescPtrPair*>(nullptr)));
    const std::string d = "D\xC3\xA9";
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"ta/tb", "ta/" + d}, {"TB", d},  {"ta//tb", "ta//" + d}, {"/tb/", "/" + d + "/"}, {"", ""},
        {"tbx", "tbx"},       {"nul", ""}};
    for (const auto& c : cases)
        EXPECT_EQ(c.second, TranslateEid(c.first)) << c.first;
    EXPECT_EQ("ta/" + d, DescribeEid("ta/tb", ""));
    EXPECT_EQ("given", DescribeEid("ta/tb", "given"));
    EXPECT_EQ("", DescribeEid("ta/tb", "ta/tb"));
}

TEST(EventIdsTest, EscapeAndUnescape) {
    // text, whether "/" is escaped, escaped text
    const std::vector<std::tuple<std::string, bool, std::string>> cases = {
        {"a.b/c d", true, "a..b.2fc.20d"},  {"a.b/c d", false, "a..b/c.20d"},
        {"/x.y", true, ".2fx..y"},          {"Az09-()", true, "Az09-()"},
        {"_&=\xE4", false, ".5f.26.3d.e4"}, {std::string("a\0b", 3), false, "a.00b"}};
    for (const auto& [in, escapeSlash, escaped] : cases) {
        std::string out = "old", back;
        EXPECT_TRUE(EscapeEidText(in, &out, escapeSlash) && UnescapeEidText(out, &back));
        EXPECT_EQ(escaped, out);
        EXPECT_EQ(in, back);
    }
    // Upper-case digits are read too; a broken escape fails and leaves `out` as it was ("!").
    const std::vector<std::pair<std::string, std::string>> unescaped = {
        {".2e", "."},  {"..2e", ".2e"}, {".4A.4a.4F", "JJO"}, {"", ""},      {"a.2", "!"},
        {"a.zz", "!"}, {"a.", "!"},     {".g0", "!"},         {"ab.2x", "!"}};
    for (const auto& c : unescaped) {
        std::string out = "!";
        EXPECT_EQ(c.second != "!", UnescapeEidText(c.first, &out)) << c.first;
        EXPECT_EQ(c.second, out) << c.first;
    }
    EXPECT_FALSE(EscapeEidText("x", nullptr, true) || UnescapeEidText("x", nullptr));
}

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
        builder.Add("e", "xyz", 0);
    }
    EXPECT_EQ((ReportRecord{{"a", "new-a"}, {"c", "0123"}, {"d", "new-d"}, {"e", ""}}), record);
    EXPECT_EQ(bufferOfA, &record.at("a"));
    // A record with more keys than are worth reusing is emptied first.
    for (int i = 0; i < 40; ++i)
        record["key" + std::to_string(i)] = "v";
    RecordBuilder(record).Add("key1", "again");
    EXPECT_EQ((ReportRecord{{"key1", "again"}}), record);
}

}  // namespace
}  // namespace qzdata_report_kelvo
