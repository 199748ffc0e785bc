#include "strategy/field_reader.h"

#include <gtest/gtest.h>

#include <string>

namespace qzdata_report_kelvo {
namespace {

enum class Kind { kUnsigned, kSigned, kString };

struct ReadCase {
    const char* name;
    Kind kind;
    std::string text;
    size_t width;
    bool ok;
    int64_t number;      // kUnsigned, kSigned
    std::string string;  // kString
    size_t cursorAfter;
};

TEST(StrategyFieldReaderTest, ReadsOneFieldFromTheStart) {
    const ReadCase cases[] = {
        {"unsigned plain", Kind::kUnsigned, "12345", 5, true, 12345, "", 5},
        {"unsigned leading plus", Kind::kUnsigned, "+0030", 5, true, 30, "", 5},
        {"unsigned leaves the rest", Kind::kUnsigned, "0712", 2, true, 7, "", 2},
        {"unsigned one digit", Kind::kUnsigned, "7", 1, true, 7, "", 1},
        {"unsigned plus of width one", Kind::kUnsigned, "+", 1, false, 0, "", 0},
        {"unsigned plus twice", Kind::kUnsigned, "++1", 3, false, 0, "", 0},
        {"unsigned plus inside", Kind::kUnsigned, "1+2", 3, false, 0, "", 0},
        {"unsigned minus", Kind::kUnsigned, "-1", 2, false, 0, "", 0},
        {"unsigned letter", Kind::kUnsigned, "1a", 2, false, 0, "", 0},
        {"unsigned trailing blank", Kind::kUnsigned, "1 ", 2, false, 0, "", 0},
        {"unsigned too few bytes", Kind::kUnsigned, "123", 4, false, 0, "", 0},
        {"unsigned width zero", Kind::kUnsigned, "5", 0, true, 0, "", 0},
        {"unsigned width zero at end", Kind::kUnsigned, "", 0, false, 0, "", 0},
        {"signed negative", Kind::kSigned, "-12", 3, true, -12, "", 3},
        {"signed plus", Kind::kSigned, "+07", 3, true, 7, "", 3},
        {"signed trailing blank", Kind::kSigned, "12 ", 3, true, 12, "", 3},
        {"signed inner blank ends the number", Kind::kSigned, "1 2", 3, true, 1, "", 3},
        {"signed blank after minus", Kind::kSigned, "- 1", 3, true, 0, "", 3},
        {"signed leading blank", Kind::kSigned, " 12", 3, false, 0, "", 0},
        {"signed letter", Kind::kSigned, "1x2", 3, false, 0, "", 0},
        {"signed minus of width one", Kind::kSigned, "-", 1, false, 0, "", 0},
        {"signed too few bytes", Kind::kSigned, "-1", 3, false, 0, "", 0},
        {"string part", Kind::kString, "abc", 2, true, 0, "ab", 2},
        {"string whole", Kind::kString, "a c", 3, true, 0, "a c", 3},
        {"string too few bytes", Kind::kString, "ab", 3, false, 0, "", 0},
        {"string width zero", Kind::kString, "a", 0, true, 0, "", 0},
        {"string width zero at end", Kind::kString, "", 0, false, 0, "", 0},
    };
    for (const ReadCase& c : cases) {
        SCOPED_TRACE(c.name);
        StrategyFieldReader reader(c.text);
        bool ok = false;
        if (c.kind == Kind::kUnsigned) {
            uint64_t value = 99;
            ok = reader.ReadUnsigned(c.width, value);
            if (c.ok) {
                EXPECT_EQ(value, static_cast<uint64_t>(c.number));
            }
        } else if (c.kind == Kind::kSigned) {
            int64_t value = 99;
            ok = reader.ReadSigned(c.width, value);
            if (c.ok) {
                EXPECT_EQ(value, c.number);
            }
        } else {
            std::string value = "stale";
            ok = reader.ReadString(c.width, value);
            if (c.ok) {
                EXPECT_EQ(value, c.string);
            }
        }
        EXPECT_EQ(ok, c.ok);
        EXPECT_EQ(reader.Cursor(), c.cursorAfter);
    }
}

TEST(StrategyFieldReaderTest, ReadsConsecutiveFieldsAndStopsAtTheEnd) {
    const std::string text = "0205hello-07+12";
    StrategyFieldReader reader(text);
    uint64_t count = 0;
    uint64_t length = 0;
    std::string word;
    int64_t signedValue = 0;
    uint64_t number = 0;
    ASSERT_TRUE(reader.ReadUnsigned(2, count));
    ASSERT_TRUE(reader.ReadUnsigned(2, length));
    ASSERT_TRUE(reader.ReadString(length, word));
    ASSERT_TRUE(reader.ReadSigned(3, signedValue));
    ASSERT_TRUE(reader.ReadUnsigned(3, number));
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(word, "hello");
    EXPECT_EQ(signedValue, -7);
    EXPECT_EQ(number, 12u);
    EXPECT_EQ(reader.Cursor(), text.size());
    EXPECT_FALSE(reader.ReadUnsigned(0, number));
    EXPECT_FALSE(reader.ReadString(0, word));
    EXPECT_EQ(reader.Cursor(), text.size());
}

}  // namespace
}  // namespace qzdata_report_kelvo
