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
        {"overlong slash", "\xc0\xaf", L"\ufffd\ufffd", false},
    };
    for (const auto& [name, utf8, utf16, roundTrip] : cases) {
        std::wstring wide = L"stale";
        std::string narrow = "stale";
        EXPECT_TRUE(NarrowToWide(utf8, wide, kUtf8) && wide == utf16) << name;
        EXPECT_TRUE(!roundTrip || (WideToNarrow(utf16, narrow, kUtf8) && narrow == utf8 &&
                                   WideToUtf8(utf16) == utf8 && Utf8ToWide(utf8) == utf16))
            << name;
    }
    // Unknown code pages fail and empty the output (wide values outside Unicode: the fuzz target).
    std::wstring stale = L"stale";
    std::string narrow = "stale";
    EXPECT_FALSE(NarrowToWide("abc", stale, 1252) || WideToNarrow(L"abc", narrow, 936));
    EXPECT_EQ(std::make_pair(stale, narrow), std::make_pair(std::wstring(), std::string()));
}

}  // namespace
}  // namespace qzdata_report_kelvo
