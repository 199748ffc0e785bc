// The byte codecs against known answers: MD5, base64, the AES blob cipher and the DES decoder.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <tuple>
#include <vector>

#include "codec/aes_blob_cipher.h"
#include "codec/base64.h"
#include "codec/crypto_library.h"
#include "codec/des_block.h"
#include "codec/md5.h"
#include "codec/text.h"

namespace qzdata_report_kelvo {
namespace {

// The blank-separated fields of vectors made by the openssl tool (data/make_vectors.sh).
std::vector<std::string> ReadFields(const std::string& name) {
    std::ifstream file(std::string(QZ_CODEC_TEST_DATA) + "/" + name);
    return {std::istream_iterator<std::string>(file), std::istream_iterator<std::string>()};
}

std::string Hex(const std::string& bytes) {
    return text::HexEncode(bytes.data(), bytes.size(), text::HexCase::kLower);
}

AesBlobPlain DecodeBlob(const std::string& pass, const std::string& blob, bool base64 = false) {
    CAesBlobCipher cipher(base64);
    cipher.SetPassString(pass);
    cipher.SetDirection(crypto::kDecrypt);
    return cipher.Decode(blob);
}

// Whole, and in pieces with a digest after each: a digest leaves the running state as it was.
TEST(Md5ContextTest, KnownDigestsWholeAndInPieces) {
    // clang-format off
    const std::pair<std::string, const char*> suite[] = {
        // RFC 1321, appendix A.5
        {"", "d41d8cd98f00b204e9800998ecf8427e"}, {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        // 56 and 64 bytes: the padding no longer fits the last block, or needs a block of its own.
        {std::string(56, 'a'), "3b0c8ac703f828b04c6c197006d17218"},
        {std::string(64, 'a'), "014842d480b571495a4a0363793f7367"}};
    // clang-format on
    Md5Context whole;  // one context throughout: Start drops whatever came before
    for (const auto& [input, digest] : suite) {
        whole.Start(input);
        EXPECT_EQ(whole.HexDigest(), digest) << input.size() << " bytes";
        for (size_t piece : {1u, 3u, 63u, 64u, 65u}) {
            Md5Context context;
            for (size_t at = 0; at < input.size(); at += piece) {
                context.Update(input.data() + at, std::min(piece, input.size() - at));
                context.HexDigest();
            }
            EXPECT_EQ(context.HexDigest(), digest) << input.size() << " bytes in " << piece;
        }
    }
}

TEST(Base64Test, DecodesAndSkips) {
    // One leftover character gives nothing, bytes outside the alphabet are skipped, and reading
    // stops at the first '='.
    // clang-format off
    const std::pair<std::string, std::string> cases[] = {{"", ""}, {"Zg==", "f"}, {"Zm8", "fo"},
        {"Zm9vY", "foo"}, {"Zm\xc3\xa9 9v\r\n*YmFy", "foobar"}, {"Zg==Zm9v", "f"}};
    // clang-format on
    for (const auto& [text, bytes] : cases) {
        std::string output = "stale";
        EXPECT_EQ(Base64Decode(text, output), static_cast<int>(bytes.size()));
        EXPECT_EQ(output, bytes) << testing::PrintToString(text);
    }
    // The buffer form needs room for what the length may hold: "Zm9vYg==" 6 bytes, not 4.
    unsigned char out[8] = {1, 1, 1, 1, 1, 1, 1, 1};
    EXPECT_EQ(Base64Decode("Zm9vYg==", 8, out, 5) + out[0], 1);
    EXPECT_EQ(Base64Decode("Zm9vYg==", 8, out, 6), 4);
    // Decoded and encoded sizes, from a negative count up to 32 characters or bytes.
    const std::tuple<int32_t, int32_t, int32_t> sizes[] = {
        {-5, 0, 0}, {0, 0, 0},  {1, 0, 4},  {2, 1, 4},    {3, 2, 4},    {4, 3, 8},   {5, 3, 8},
        {6, 4, 8},  {7, 5, 12}, {8, 6, 12}, {16, 12, 24}, {17, 12, 24}, {32, 24, 44}};
    for (const auto& [n, decoded, encoded] : sizes)
        EXPECT_TRUE(Base64DecodedSize(n) == decoded && Base64EncodedSize(n) == encoded) << n;
}

// A malformed length field, or cipher text of the wrong size for it, gives the empty result.
TEST(CAesBlobCipherTest, RefusesMalformedOuterLayer) {
    // The length field, the number of cipher text characters after it, and the text form.
    const std::tuple<const char*, size_t, bool> cases[] = {
        {"0000000", 0, false},   {"00000000", 0, false},  {"00000000", 0, true},
        {"00000000", 32, false}, {"00000016", 64, false}, {"00000017", 32, false},
        {"00000005", 33, false}, {"00000005", 31, false}, {"0000001a", 32, false},
        {"-0000016", 32, false}, {"      16", 32, false}, {"+0000016", 32, false},
        {"00000005", 23, true},  {"00000005", 32, true}};
    for (const auto& [length, size, base64] : cases) {
        const auto r = DecodeBlob("VectorPass", length + std::string(size, 'a'), base64);
        EXPECT_EQ(r.plain + std::to_string(r.plainLength + r.cipherLength), "0")
            << '"' << length << "\" + " << size << (base64 ? " base64" : "");
    }
}

TEST(CipherVectorsTest, AesInHexAndBase64AndDes) {
    if (crypto::CryptoLibrary::Instance().EVP_md5() == nullptr)
        GTEST_SKIP() << "libcrypto cannot be loaded";
    const auto aes = ReadFields("aes_vectors.txt"), des = ReadFields("des_vectors.txt");
    ASSERT_EQ(aes.size() + des.size(), 5u * 5 + 6u * 4);
    for (const std::string* v = aes.data(); v < aes.data() + aes.size(); v += 5) {
        // Name, pass string, plain text in hex, blob with hex text, blob with base64 text.
        for (bool base64 : {false, true}) {
            const AesBlobPlain result = DecodeBlob(v[1], v[base64 ? 4 : 3], base64);
            EXPECT_EQ(Hex(result.plain), v[2]) << v[0] << (base64 ? " base64" : " hex");
            EXPECT_EQ(result.plainLength * 2, static_cast<int32_t>(v[2].size())) << v[0];
            EXPECT_EQ(result.cipherLength, (result.plainLength + 15) / 16 * 16) << v[0];
        }
    }
    for (const std::string* v = des.data(); v < des.data() + des.size(); v += 4) {
        // Name, key, cipher text in base64, plain text in hex.
        std::string cipher, plain, longKey;
        ASSERT_GT(Base64Decode(v[2], cipher), 0) << v[0];
        // Key characters beyond the eighth play no part; a trailing part below 8 bytes is ignored.
        DecodeDesBlock(v[1], cipher + "xyz", plain);
        DecodeDesBlock(v[1] + "ignored", cipher, longKey);
        EXPECT_EQ(Hex(plain) + " " + Hex(longKey), v[3] + " " + v[3]) << v[0];
    }
}

}  // namespace
}  // namespace qzdata_report_kelvo
