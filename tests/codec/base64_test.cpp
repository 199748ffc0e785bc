#include "codec/base64.h"

#include <gtest/gtest.h>

#include <string>

namespace qzdata_report_kelvo {
namespace {

struct DecodeCase {
    const char* name;
    std::string text;
    std::string bytes;
};

TEST(Base64DecodeTest, DecodesAndSkips) {
    const DecodeCase cases[] = {
        {"empty", "", ""},
        {"rfc4648 f", "Zg==", "f"},
        {"rfc4648 fo", "Zm8=", "fo"},
        {"rfc4648 foo", "Zm9v", "foo"},
        {"rfc4648 foob", "Zm9vYg==", "foob"},
        {"rfc4648 foobar", "Zm9vYmFy", "foobar"},
        {"two characters without padding", "Zg", "f"},
        {"three characters without padding", "Zm8", "fo"},
        {"one leftover character gives nothing", "Zm9vY", "foo"},
        {"plus and slash", "+/+/", "\xfb\xff\xbf"},
        {"line breaks skipped", "Zm9v\r\nYmFy\n", "foobar"},
        {"non-ASCII and other bytes skipped", "Zm\xc3\xa9 9v*", "foo"},
        {"reading stops at the first =", "Zg==Zm9v", "f"},
        {"only padding", "====", ""},
        {"zero bytes", "AAA=", std::string("\0\0", 2)},
    };
    for (const DecodeCase& c : cases) {
        std::string output = "stale";
        const int written = Base64Decode(c.text, output);
        EXPECT_EQ(output, c.bytes) << c.name;
        EXPECT_EQ(written, static_cast<int>(c.bytes.size())) << c.name;
    }
}

TEST(Base64DecodeTest, BufferFormRefusesTooSmallOutput) {
    unsigned char out[8] = {1, 1, 1, 1, 1, 1, 1, 1};
    // "Zm9vYg==" may need up to 6 bytes by its length, although it holds 4.
    EXPECT_EQ(Base64Decode("Zm9vYg==", 8, out, 5), 0);
    EXPECT_EQ(out[0], 1);
    EXPECT_EQ(Base64Decode("Zm9vYg==", 8, out, 6), 4);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(out), 4), "foob");
    EXPECT_EQ(Base64Decode(nullptr, 8, out, 8), 0);
    EXPECT_EQ(Base64Decode("Zm9v", 0, out, 8), 0);
}

TEST(Base64SizeTest, DecodedAndEncodedSizes) {
    const struct {
        int32_t n;
        int32_t decoded;
        int32_t encoded;
    } cases[] = {
        {-5, 0, 0}, {0, 0, 0},  {1, 0, 4},  {2, 1, 4},    {3, 2, 4},    {4, 3, 8},    {5, 3, 8},
        {6, 4, 8},  {7, 5, 12}, {8, 6, 12}, {16, 12, 24}, {17, 12, 24}, {32, 24, 44},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Base64DecodedSize(c.n), c.decoded) << c.n;
        EXPECT_EQ(Base64EncodedSize(c.n), c.encoded) << c.n;
    }
}

}  // namespace
}  // namespace qzdata_report_kelvo
