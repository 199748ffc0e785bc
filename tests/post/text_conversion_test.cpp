#include "post/text_conversion.h"

#include <gtest/gtest.h>

#include <clocale>
#include <string>

namespace qzdata_report_kelvo {
namespace {

using qzdata_report_kelvo_internal::QZA2W;
using qzdata_report_kelvo_internal::QZW2A;
using qzdata_report_kelvo_internal::StrReplace;

constexpr unsigned kUtf8 = 65001;
constexpr unsigned kSystem = 0;

TEST(TextConversionTest, Utf8RoundTrips) {
    const struct {
        const char* name;
        std::string narrow;
        std::wstring wide;
    } cases[] = {
        {"empty", "", L""},
        {"ascii", "hello, world", L"hello, world"},
        {"two bytes", "gr\xc3\xbc\xc3\x9f", L"gr\u00fc\u00df"},
        {"three bytes", "\xe4\xb8\xad\xe6\x96\x87", L"\u4e2d\u6587"},
        {"four bytes is one unit", "\xf0\x9f\x98\x80!", L"\U0001F600!"},
        {"edges", "\x7f\xc2\x80\xef\xbf\xbf\xf4\x8f\xbf\xbf", L"\u007f\u0080\uffff\U0010FFFF"},
    };
    for (const auto& c : cases) {
        std::wstring wide = L"stale";
        EXPECT_TRUE(QZA2W(c.narrow, wide, kUtf8)) << c.name;
        EXPECT_EQ(wide, c.wide) << c.name;
        std::string narrow = "stale";
        EXPECT_TRUE(QZW2A(c.wide, narrow, kUtf8)) << c.name;
        EXPECT_EQ(narrow, c.narrow) << c.name;
    }
}

TEST(TextConversionTest, InvalidUtf8BecomesReplacement) {
    const struct {
        const char* name;
        std::string narrow;
        std::wstring wide;
    } cases[] = {
        {"lone lead at end", "a\xc3", L"a\ufffd"},
        {"lead without continuation", "\xc3(", L"\ufffd("},
        {"stray continuation", "\x80x", L"\ufffdx"},
        {"overlong slash", "\xc0\xaf", L"\ufffd\ufffd"},
        {"surrogate", "\xed\xa0\x80", L"\ufffd\ufffd\ufffd"},
        {"above U+10FFFF", "\xf4\x90\x80\x80", L"\ufffd\ufffd\ufffd\ufffd"},
        {"invalid lead",
         "\xff"
         "a",
         L"\ufffd"
         L"a"},
    };
    for (const auto& c : cases) {
        std::wstring wide;
        EXPECT_TRUE(QZA2W(c.narrow, wide, kUtf8)) << c.name;
        EXPECT_EQ(wide, c.wide) << c.name;
    }
}

TEST(TextConversionTest, WideValuesOutsideUnicodeBecomeReplacement) {
    const std::wstring wide = {L'a', static_cast<wchar_t>(0xD800), static_cast<wchar_t>(0x110000),
                               static_cast<wchar_t>(-1), L'b'};
    std::string narrow;
    EXPECT_TRUE(QZW2A(wide, narrow, kUtf8));
    EXPECT_EQ(narrow,
              "a\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd"
              "b");
}

TEST(TextConversionTest, EmbeddedZeroEndsTheText) {
    std::wstring wide;
    EXPECT_TRUE(QZA2W(std::string("ab\0cd", 5), wide, kUtf8));
    EXPECT_EQ(wide, L"ab");
    std::string narrow;
    EXPECT_TRUE(QZW2A(std::wstring(L"xy\0z", 4), narrow, kUtf8));
    EXPECT_EQ(narrow, "xy");
    EXPECT_TRUE(QZA2W(std::string("\0tail", 5), wide, kUtf8));
    EXPECT_EQ(wide, L"");
}

TEST(TextConversionTest, UnknownCodePageFails) {
    std::wstring wide = L"stale";
    EXPECT_FALSE(QZA2W("abc", wide, 1252));
    EXPECT_EQ(wide, L"");
    std::string narrow = "stale";
    EXPECT_FALSE(QZW2A(L"abc", narrow, 936));
    EXPECT_EQ(narrow, "");
}

// Code page 0 is the locale's character set: the plain C locale is ASCII (through iconv), a
// UTF-8 locale decodes like 65001.
TEST(TextConversionTest, SystemCodePageFollowsTheLocale) {
    const std::string saved = std::setlocale(LC_CTYPE, nullptr);

    ASSERT_NE(std::setlocale(LC_CTYPE, "C"), nullptr);
    std::wstring wide;
    EXPECT_TRUE(QZA2W("plain", wide, kSystem));
    EXPECT_EQ(wide, L"plain");
    EXPECT_TRUE(QZA2W("a\xe4z", wide, kSystem));
    EXPECT_EQ(wide, L"a\ufffdz");
    std::string narrow;
    EXPECT_TRUE(QZW2A(L"a\u00e4z", narrow, kSystem));
    EXPECT_EQ(narrow, "a?z");

    if (std::setlocale(LC_CTYPE, "C.UTF-8") != nullptr) {
        EXPECT_TRUE(QZA2W("\xc3\xa4", wide, kSystem));
        EXPECT_EQ(wide, L"\u00e4");
        EXPECT_TRUE(QZW2A(L"\u00e4", narrow, kSystem));
        EXPECT_EQ(narrow, "\xc3\xa4");
    }
    std::setlocale(LC_CTYPE, saved.c_str());
}

TEST(TextConversionTest, Utf8Shorthands) {
    EXPECT_EQ(WideToUtf8(L"\u00fc"), "\xc3\xbc");
    EXPECT_EQ(Utf8ToWide("\xc3\xbc"), L"\u00fc");
    EXPECT_EQ(WideToUtf8(L""), "");
}

TEST(StrReplaceTest, ReplacesLeftToRight) {
    const struct {
        const char* name;
        std::string source;
        std::string from;
        std::string to;
        std::string expected;
    } cases[] = {
        {"one match", "a+b", "+", "%2B", "a%2Bb"},
        {"several", "x.y.z", ".", "::", "x::y::z"},
        {"at both ends", "-ab-", "-", "", "ab"},
        {"no match", "abc", "d", "e", "abc"},
        {"replaced text not searched again", "aa", "a", "aa", "aaaa"},
        {"overlapping matches taken left first", "aaa", "aa", "b", "ba"},
        {"case-sensitive", "Aa", "a", "b", "Ab"},
        {"whole text", "abc", "abc", "", ""},
        {"empty source", "", "a", "b", ""},
        {"source ends at its first zero", std::string("a-b\0-c", 6), "-", "+", "a+b"},
        {"to is taken whole", "a-b", "-", std::string("\0!", 2), std::string("a\0!b", 4)},
        {"empty from gives a copy", "abc", "", "x", "abc"},
        {"from ending at its first zero", "a-b", std::string("-\0z", 3), "+", "a+b"},
        {"from beginning with a zero gives a copy", "abc", std::string("\0a", 2), "x", "abc"},
    };
    for (const auto& c : cases) {
        std::string target = "stale";
        StrReplace(target, c.source, c.from, c.to);
        EXPECT_EQ(target, c.expected) << c.name;
    }
}

}  // namespace
}  // namespace qzdata_report_kelvo
