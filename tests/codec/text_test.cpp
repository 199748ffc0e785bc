#include "codec/text.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstring>
#include <string>
#include <tuple>

#include "port/env.h"

namespace qzdata_report_kelvo {
namespace {

using namespace text;

TEST(TextTest, HexDigitValuesAtTheBoundaries) {
    const std::pair<char, int> cases[] = {{'0', 0},  {'9', 9},  {'a', 10},  {'f', 15},   {'A', 10},
                                          {'F', 15}, {'g', -1}, {'G', -1},  {'/', -1},   {':', -1},
                                          {'@', -1}, {'`', -1}, {'\0', -1}, {'\xe1', -1}};
    for (const auto& [c, value] : cases)
        EXPECT_EQ(HexDigitValue(c), value) << testing::PrintToString(c);
    for (char c : std::string("09af"))
        EXPECT_EQ(HexDigitValue(c, HexInput::kLowerUnchecked), HexDigitValue(c)) << c;
}

// Wire text must not change with the host's locale: compare under one that folds more, if any
// (in Turkish, 'I' folds to a dotless i; in Latin-1, 0xC4 to 0xE4).
TEST(TextTest, CaseFoldingIgnoresTheLocale) {
    const std::string saved = std::setlocale(LC_ALL, nullptr);
    static_cast<void>(std::setlocale(LC_ALL, "tr_TR.ISO-8859-9") ||
                      std::setlocale(LC_ALL, "de_DE.ISO-8859-1") ||
                      std::setlocale(LC_ALL, "C.UTF-8"));
    // clang-format off
    const std::tuple<std::string, std::string, int> cases[] = {
        {"Keep-Alive", "kEEP-aLIVE", 0}, {"I", "i", 0}, {"AZ", "az", 0}, {"@[", "`{", -1},
        {"\xC4", "\xE4", -1}, {"\xE4", "z", 1}, {"a", "B", -1}, {"ab", "ABC", -1}, {"abc", "AB", 1},
        {"", "", 0}, {"", "\x01", -1}};
    // clang-format on
    for (const auto& [left, right, order] : cases) {
        SCOPED_TRACE(testing::PrintToString(left) + " | " + testing::PrintToString(right));
        const int compared = CompareNoCase(left, right);
        EXPECT_EQ((compared > 0) - (compared < 0), order);
        EXPECT_EQ(EqualsNoCase(left, right), order == 0);
    }
    const std::string blanks = " \t\n\v\f\r";
    for (int c = 0; c < 256; ++c)
        EXPECT_EQ(IsAsciiSpace(static_cast<char>(c)), blanks.find(c) != blanks.npos) << c;
    std::setlocale(LC_ALL, saved.c_str());
}

// The random source answers the bytes 0xFF, 0xEE, ..., 0x00, 0xFF, ...; zeros when failing.
struct WithFixedEnv : ::testing::Test, port::EnvWrapper {
    void SetUp() override { port::Env::Install(this); }
    void TearDown() override { port::Env::Install(nullptr); }
    bool RandomBytes(void* buffer, size_t size) override {
        for (size_t i = 0; i < size; ++i)
            static_cast<uint8_t*>(buffer)[i] = static_cast<uint8_t>(randomFails ? 0 : ~(0x11 * i));
        return !randomFails;
    }
    bool randomFails = false;
};

// The random bytes hold ones and zeros around the version and variant bits.
TEST_F(WithFixedEnv, Uuid4ShapesTheRandomBytesOrGivesZeros) {
    uint8_t bytes[16];
    EXPECT_TRUE(NewUuid4(bytes));
    EXPECT_EQ(UuidText(bytes, UuidForm::kDashed) + UuidText(bytes, UuidForm::kPlain),
              "ffeeddcc-bbaa-4988-b766-554433221100ffeeddccbbaa4988b766554433221100");
    randomFails = true;
    EXPECT_FALSE(NewUuid4(bytes));
    EXPECT_EQ(UuidText(bytes, UuidForm::kDashed), "00000000-0000-0000-0000-000000000000");
    // The platform's own generator (UuidCreate on Windows): version 4, variant 10, never repeated.
    uint8_t other[16];
    ASSERT_TRUE(port::Env::Default()->NewUuid(bytes) && port::Env::Default()->NewUuid(other));
    const std::string text = UuidText(bytes, UuidForm::kDashed);
    EXPECT_TRUE(text[14] == '4' && std::strchr("89ab", text[19]) &&
                text != UuidText(other, UuidForm::kDashed))
        << text;
}

}  // namespace
}  // namespace qzdata_report_kelvo
