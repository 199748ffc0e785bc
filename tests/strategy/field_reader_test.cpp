#include "strategy/field_reader.h"

#include <gtest/gtest.h>

#include <string>

namespace qzdata_report_kelvo {
namespace {

enum class Kind { kUnsigned, kSigned, kString };

// One read from the start of `text`; a failed read leaves the cursor at 0.
struct ReadCase {
    Kind kind;
    std::string text;
    size_t width;
    bool ok;
    std::string value;  // decimal text of a number, or the string
};

TEST(StrategyFieldReaderTest, ReadsOneField) {
    const ReadCase cases[] = {
        {Kind::kUnsigned, "+0030", 5, true, "30"},
        {Kind::kUnsigned, "0712", 2, true, "7"},
        {Kind::kUnsigned, "+", 1, false, ""},  // no sign in a one-byte field
        {Kind::kUnsigned, "1+2", 3, false, ""},
        {Kind::kUnsigned, "-1", 2, false, ""},
        {Kind::kUnsigned, "1 ", 2, false, ""},
        {Kind::kUnsigned, "123", 4, false, ""},
        {Kind::kUnsigned, "5", 0, true, "0"},
        {Kind::kUnsigned, "", 0, false, ""},  // at the end even width 0 fails
        {Kind::kSigned, "-12", 3, true, "-12"},
        {Kind::kSigned, "12 ", 3, true, "12"},
        {Kind::kSigned, "1 2", 3, true, "1"},  // a later blank ends the number
        {Kind::kSigned, " 12", 3, false, ""},
        {Kind::kSigned, "1x2", 3, false, ""},
        {Kind::kString, "abc", 2, true, "ab"},
        {Kind::kString, "ab", 3, false, ""},
        {Kind::kString, "a", 0, true, ""},
        {Kind::kString, "", 0, false, ""},
    };
    for (const ReadCase& c : cases) {
        SCOPED_TRACE("\"" + c.text + "\" width " + std::to_string(c.width));
        StrategyFieldReader reader(c.text);
        bool ok = false;
        std::string value;
        if (c.kind == Kind::kUnsigned) {
            uint64_t number = 99;
            ok = reader.ReadUnsigned(c.width, number);
            value = std::to_string(number);
        } else if (c.kind == Kind::kSigned) {
            int64_t number = 99;
            ok = reader.ReadSigned(c.width, number);
            value = std::to_string(number);
        } else {
            ok = reader.ReadString(c.width, value);
        }
        EXPECT_EQ(ok, c.ok);
        if (c.ok) {
            EXPECT_EQ(value, c.value);
        }
        EXPECT_EQ(reader.Cursor(), c.ok ? c.width : 0u);
    }
}

}  // namespace
}  // namespace qzdata_report_kelvo
