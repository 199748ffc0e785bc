#include "post/text_conversion.h"

#include <gtest/gtest.h>

#include <clocale>
#include <string>
#include <tuple>

namespace qzdata_report_kelvo {
namespace {

constexpr unsigned kUtf8 = 65001;
constexpr unsigned kSystem = 0;

TEST(TextConversionTest, Utf8BothWaysInvalidInputAndUnknownCodePages) {
    // name, UTF-8 text, its wide form, whether the wide form converts back to it
    const std::tuple<const char*, std::string, std::wstring, bool> cases[] = {
        {"empty", "", L"", true},
        {"two bytes", "gr\xc3\xbc\xc3\x9f", L"gr\u00fc\u00df", true},
        {"edges", "\x7f\xc2\x80\xef\xbf\xbf\xf4\x8f\xbf\xbf", L"\x7f\u0080\uffff\U0010FFFF", true},
        {"embedded zero ends the text", std::string("ab\0cd", 5), L"ab", false},
        {"lone lead at end", "a\xc3", L"a\ufffd", false},
        {"lead without continuation", "\xc3(", L"\ufffd(", false},
        {"stray continuation", "\x80x", L"\ufffdx", false},
        {"overlong slash", "\xc0\xaf", L"\ufffd\ufffd", false},
        {"surrogate", "\xed\xa0\x80", L"\ufffd\ufffd\ufffd", false},
        {"above U+10FFFF", "\xf4\x90\x80\x80", L"\ufffd\ufffd\ufffd\ufffd", false},
        {"invalid lead", "\xff!", L"\ufffd!", false},
    };
    for (const auto& [name, utf8, utf16, roundTrip] : cases) {
        std::wstring wide = L"stale";
        std::string narrow = "stale";
        EXPECT_TRUE(NarrowToWide(utf8, wide, kUtf8) && wide == utf16) << name;
        if (roundTrip) {
            EXPECT_TRUE(WideToNarrow(utf16, narrow, kUtf8) && narrow == utf8) << name;
            EXPECT_TRUE(WideToUtf8(utf16) == utf8 && Utf8ToWide(utf8) == utf16) << name;
        }
    }
    // Wide values outside Unicode become U+FFFD and a zero ends the text; unknown code pages fail.
    const std::wstring wide{L'a', 0xD800, 0x110000, static_cast<wchar_t>(-1), L'!', 0, L'z'};
    std::string narrow;
    EXPECT_TRUE(WideToNarrow(wide, narrow, kUtf8));
    EXPECT_EQ(narrow, "a\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd!");
    std::wstring stale = L"stale";
    narrow = "stale";
    EXPECT_FALSE(NarrowToWide("abc", stale, 1252) || WideToNarrow(L"abc", narrow, 936));
    EXPECT_EQ(std::make_pair(stale, narrow), std::make_pair(std::wstring(), std::string()));
}

// Code page 0 is the locale's character set: the C locale is ASCII, a UTF-8 locale is 65001.
TEST(TextConversionTest, SystemCodePageFollowsTheLocale) {
    const std::string saved = std::setlocale(LC_CTYPE, nullptr);
    ASSERT_NE(std::setlocale(LC_CTYPE, "C"), nullptr);
    std::wstring wide;
    std::string narrow;
    EXPECT_TRUE(NarrowToWide("a\xe4z", wide, kSystem) &&
                WideToNarrow(L"a\u00e4z", narrow, kSystem));
    EXPECT_EQ(std::make_pair(wide, narrow),
              std::make_pair(std::wstring(L"a\ufffdz"), std::string("a?z")));
    if (std::setlocale(LC_CTYPE, "C.UTF-8") != nullptr) {
        EXPECT_TRUE(NarrowToWide("\xc3\xa4", wide, kSystem) &&
                    WideToNarrow(L"\u00e4", narrow, kSystem));
        EXPECT_EQ(std::make_pair(wide, narrow),
                  std::make_pair(std::wstring(L"\u00e4"), std::string("\xc3\xa4")));
    }
    std::setlocale(LC_CTYPE, saved.c_str());
}

TEST(StrReplaceTest, ReplacesLeftToRight) {
    // name, source, from, to, result
    const std::tuple<const char*, std::string, std::string, std::string, std::string> cases[] = {
        {"several", "x.y.z", ".", "::", "x::y::z"},
        {"replaced text not searched again", "aa", "a", "aa", "aaaa"},
        {"overlapping matches taken left first", "aaa", "aa", "b", "ba"},
        {"source ends at its first zero", std::string("a-b\0-c", 6), "-", "+", "a+b"},
        {"to is taken whole", "a-b", "-", std::string("\0!", 2), std::string("a\0!b", 4)},
        {"empty from gives a copy", "abc", "", "x", "abc"},
        {"from ending at its first zero", "a-b", std::string("-\0z", 3), "+", "a+b"},
        {"from beginning with a zero gives a copy", "abc", std::string("\0a", 2), "x", "abc"},
    };
    for (const auto& [name, source, from, to, expected] : cases) {
        std::string target = "stale";
        ReplaceText(target, source, from, to);
        EXPECT_EQ(target, expected) << name;
    }
}

}  // namespace
}  // namespace qzdata_report_kelvo
