#include "post/text_conversion.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

namespace qzdata_report_kelvo {
namespace {

constexpr unsigned kUtf8 = 65001;

TEST(TextConversionTest, Utf8BothWaysInvalidInputAndUnknownCodePages) {
    // name, UTF-8 text, its wide form, whether the wide form converts back to it
    const std::tuple<const char*, std::string, std::wstring, bool> cases[] = {
        {"empty", "", L"", true},
        {"edges", "\x7f\xc2\x80\xef\xbf\xbf\xf4\x8f\xbf\xbf", L"\x7f\u0080\uffff\U0010FFFF", true},
        {"embedded zero ends the text", std::string("ab\0cd", 5), L"ab", false},
        {"lone lead at end", "a\xc3", L"a\ufffd", false},
        {"lead without continuation", "\xc3(", L"\ufffd(", false},
        {"stray continuation", "\x80x", L"\ufffdx", false},
        {"overlong slash", "\xc0\xaf", L"\ufffd\ufffd", false},
        {"invalid lead", "\xff!", L"\ufffd!", false},
    };
    for (const auto& [name, utf8, utf16, roundTrip] : cases) {
        std::wstring wide = L"stale";
        std::string narrow = "stale";
        EXPECT_TRUE(NarrowToWide(utf8, wide, kUtf8) && wide == utf16) << name;
        if (roundTrip) {
            EXPECT_TRUE(WideToNarrow(utf16, narrow, kUtf8) && narrow == utf8 &&
                        WideToUtf8(utf16) == utf8 && Utf8ToWide(utf8) == utf16)
                << name;
        }
    }
    // An encoded surrogate or a value above U+10FFFF decodes to replacements only; how many is the
    // platform's (one a byte on Linux, fewer from some Windows decoders).
    for (const std::string utf8 : {"\xed\xa0\x80", "\xf4\x90\x80\x80"}) {
        std::wstring wide;
        EXPECT_TRUE(NarrowToWide(utf8, wide, kUtf8) && !wide.empty() &&
                    wide.size() <= utf8.size() &&
                    wide.find_first_not_of(L'\ufffd') == std::wstring::npos)
            << wide.size();
    }
    // Unknown code pages fail and empty the output (wide values outside Unicode: the fuzz target).
    std::wstring stale = L"stale";
    std::string narrow = "stale";
    EXPECT_FALSE(NarrowToWide("abc", stale, 1252) || WideToNarrow(L"abc", narrow, 936));
    EXPECT_EQ(std::make_pair(stale, narrow), std::make_pair(std::wstring(), std::string()));
}

}  // namespace
}  // namespace qzdata_report_kelvo
