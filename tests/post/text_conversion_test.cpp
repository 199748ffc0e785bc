#include "post/text_conversion.h"

#include <gtest/gtest.h>

#include <clocale>
#include <string>

namespace qzdata_report_kelvo {
namespace {

constexpr unsigned kUtf8 = 65001;
constexpr unsigned kSystem = 0;

TEST(TextConversionTest, Utf8BothWaysAndInvalidInput) {
    const struct {
        const char* name;
        std::string narrow;
        std::wstring wide;
        bool roundTrip;
    } cases[] = {
        {"empty", "", L"", true},
        {"two bytes", "gr\xc3\xbc\xc3\x9f", L"gr\u00fc\u00df", true},
        {"four bytes is one unit", "\xf0\x9f\x98\x80!", L"\U0001F600!", true},
        {"edges", "\x7f\xc2\x80\xef\xbf\xbf\xf4\x8f\xbf\xbf", L"\u007f\u0080\uffff\U0010FFFF",
         true},
        {"embedded zero ends the text", std::string("ab\0cd", 5), L"ab", false},
        {"lone lead at end", "a\xc3", L"a\ufffd", false},
        {"lead without continuation", "\xc3(", L"\ufffd(", false},
        {"stray continuation", "\x80x", L"\ufffdx", false},
        {"overlong slash", "\xc0\xaf", L"\ufffd\ufffd", false},
        {"surrogate", "\xed\xa0\x80", L"\ufffd\ufffd\ufffd", false},
        {"above U+10FFFF", "\xf4\x90\x80\x80", L"\ufffd\ufffd\ufffd\ufffd", false},
        {"invalid lead", "\xff!", L"\ufffd!", false},
    };
    for (const auto& c : cases) {
        std::wstring wide = L"stale";
        EXPECT_TRUE(NarrowToWide(c.narrow, wide, kUtf8)) << c.name;
        EXPECT_EQ(wide, c.wide) << c.name;
        if (c.roundTrip) {
            std::string narrow = "stale";
            EXPECT_TRUE(WideToNarrow(c.wide, narrow, kUtf8)) << c.name;
            EXPECT_EQ(narrow, c.narrow) << c.name;
            EXPECT_EQ(WideToUtf8(c.wide), c.narrow) << c.name;
            EXPECT_EQ(Utf8ToWide(c.narrow), c.wide) << c.name;
        }
    }
}

// Wide values outside Unicode become U+FFFD and a zero ends the text; unknown code pages fail.
TEST(TextConversionTest, WideOutsideUnicodeAndUnknownCodePages) {
    std::wstring wide(L"a...!\0z", 7);
    wide[1] = static_cast<wchar_t>(0xD800);
    wide[2] = static_cast<wchar_t>(0x110000);
    wide[3] = static_cast<wchar_t>(-1);
    std::string narrow;
    EXPECT_TRUE(WideToNarrow(wide, narrow, kUtf8));
    EXPECT_EQ(narrow, "a\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd!");

    wide = L"stale";
    EXPECT_FALSE(NarrowToWide("abc", wide, 1252));
    EXPECT_EQ(wide, L"");
    narrow = "stale";
    EXPECT_FALSE(WideToNarrow(L"abc", narrow, 936));
    EXPECT_EQ(narrow, "");
}

// Code page 0 is the locale's character set: the C locale is ASCII, a UTF-8 locale is 65001.
TEST(TextConversionTest, SystemCodePageFollowsTheLocale) {
    const std::string saved = std::setlocale(LC_CTYPE, nullptr);
    ASSERT_NE(std::setlocale(LC_CTYPE, "C"), nullptr);
    std::wstring wide;
    std::string narrow;
    EXPECT_TRUE(NarrowToWide("plain", wide, kSystem));
    EXPECT_EQ(wide, L"plain");
    EXPECT_TRUE(NarrowToWide("a\xe4z", wide, kSystem));
    EXPECT_EQ(wide, L"a\ufffdz");
    EXPECT_TRUE(WideToNarrow(L"a\u00e4z", narrow, kSystem));
    EXPECT_EQ(narrow, "a?z");
    if (std::setlocale(LC_CTYPE, "C.UTF-8") != nullptr) {
        EXPECT_TRUE(NarrowToWide("\xc3\xa4", wide, kSystem));
        EXPECT_EQ(wide, L"\u00e4");
        EXPECT_TRUE(WideToNarrow(L"\u00e4", narrow, kSystem));
        EXPECT_EQ(narrow, "\xc3\xa4");
    }
    std::setlocale(LC_CTYPE, saved.c_str());
}

TEST(StrReplaceTest, ReplacesLeftToRight) {
    const struct {
        const char* name;
        std::string source, from, to, expected;
    } cases[] = {
        {"several", "x.y.z", ".", "::", "x::y::z"},
        {"replaced text not searched again", "aa", "a", "aa", "aaaa"},
        {"overlapping matches taken left first", "aaa", "aa", "b", "ba"},
        {"source ends at its first zero", std::string("a-b\0-c", 6), "-", "+", "a+b"},
        {"to is taken whole", "a-b", "-", std::string("\0!", 2), std::string("a\0!b", 4)},
        {"empty from gives a copy", "abc", "", "x", "abc"},
        {"from ending at its first zero", "a-b", std::string("-\0z", 3), "+", "a+b"},
        {"from beginning with a zero gives a copy", "abc", std::string("\0a", 2), "x", "abc"},
    };
    for (const auto& c : cases) {
        std::string target = "stale";
        ReplaceText(target, c.source, c.from, c.to);
        EXPECT_EQ(target, c.expected) << c.name;
    }
}

}  // namespace
}  // namespace qzdata_report_kelvo
