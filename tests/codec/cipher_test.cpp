#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "codec/aes_blob_cipher.h"
#include "codec/base64.h"
#include "codec/crypto_library.h"
#include "codec/des_block.h"

namespace qzdata_report_kelvo {
namespace {

using Rows = std::vector<std::vector<std::string>>;

// Vectors made by the openssl command-line tool (data/make_vectors.sh).
Rows ReadVectors(const std::string& name) {
    Rows rows;
    std::ifstream file(std::string(QZ_CODEC_TEST_DATA) + "/" + name);
    for (std::string line; std::getline(file, line);) {
        std::istringstream fields(line);
        std::vector<std::string> row{std::istream_iterator<std::string>(fields), {}};
        if (!row.empty()) {
            rows.push_back(row);
        }
    }
    return rows;
}

std::string FromHex(const std::string& hex) {
    std::string bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    }
    return bytes;
}

AesBlobPlain DecodeBlob(const std::string& pass, const std::string& blob, bool base64 = false) {
    CAesBlobCipher cipher(base64);
    cipher.SetPassString(pass);
    cipher.SetDirection(crypto::kDecrypt);
    return cipher.Decode(blob);
}

class WithCrypto : public ::testing::Test {
  protected:
    void SetUp() override {
        if (crypto::CryptoLibrary::Instance().EVP_md5() == nullptr) {
            GTEST_SKIP() << "libcrypto cannot be loaded";
        }
    }
};

TEST_F(WithCrypto, AesOpensslVectorsInHexAndBase64) {
    const Rows vectors = ReadVectors("aes_vectors.txt");
    ASSERT_GE(vectors.size(), 5u);
    for (const auto& v : vectors) {
        ASSERT_EQ(v.size(), 5u);
        const std::string plain = FromHex(v[2]);
        for (bool base64 : {false, true}) {
            const AesBlobPlain result = DecodeBlob(v[1], base64 ? v[4] : v[3], base64);
            EXPECT_EQ(result.plain, plain) << v[0] << (base64 ? " base64" : " hex");
            EXPECT_EQ(result.plainLength, static_cast<int32_t>(plain.size())) << v[0];
            EXPECT_EQ(result.cipherLength, static_cast<int32_t>((plain.size() + 15) / 16 * 16));
        }
        // The key is the pass string's: another pass gives other text.
        EXPECT_NE(DecodeBlob(v[1] + "x", v[3]).plain, plain) << v[0];
        // Only lower-case hexadecimal is read: upper case is no error but gives other bytes.
        std::string upper = v[3];
        std::transform(upper.begin(), upper.end(), upper.begin(), ::toupper);
        EXPECT_NE(DecodeBlob(v[1], upper).plain, plain) << v[0];
    }
}

// Each gives the empty result before any deciphering.
TEST(CAesBlobCipherTest, RefusesMalformedOuterLayer) {
    const std::string a32(32, 'a');
    const struct {
        const char* name;
        std::string blob;
        bool base64;
    } cases[] = {
        {"empty", "", false},
        {"below 8 characters", "0000000", false},
        {"n=0 and nothing behind", "00000000", false},
        {"n=0 and nothing behind, base64", "00000000", true},
        {"n=0 with text behind", "00000000" + a32, false},
        {"n=16 with a padding block", "00000016" + a32 + a32, false},
        {"n=17 with one block", "00000017" + a32, false},
        {"one character too long", "00000005" + a32 + "a", false},
        {"one character too short", "00000005" + a32.substr(1), false},
        {"letter as last length character", "0000001a" + a32, false},
        {"letter inside the length", "00a00016" + a32, false},
        {"negative length", "-0000016" + a32, false},
        {"blank before the length", "      16" + a32, false},
        {"sign before the length", "+0000016" + a32, false},
        {"base64 size wrong", "00000005" + std::string(23, 'A'), true},
        {"hex size in base64 form", "00000005" + a32, true},
    };
    for (const auto& c : cases) {
        const AesBlobPlain result = DecodeBlob("VectorPass", c.blob, c.base64);
        EXPECT_EQ(result.plain, "") << c.name;
        EXPECT_EQ(result.plainLength, 0) << c.name;
        EXPECT_EQ(result.cipherLength, 0) << c.name;
    }
}

TEST_F(WithCrypto, DesOpensslVectorsAndPaddingRules) {
    const Rows vectors = ReadVectors("des_vectors.txt");
    ASSERT_GE(vectors.size(), 6u);
    for (const auto& v : vectors) {
        ASSERT_EQ(v.size(), 4u);
        std::string cipher, plain, longKey, withTail;
        ASSERT_GT(Base64Decode(v[2], cipher), 0) << v[0];
        DecodeDesBlock(v[1], cipher, plain);
        EXPECT_EQ(plain, FromHex(v[3])) << v[0];
        // Key characters beyond the eighth play no part; a trailing part below 8 bytes is ignored.
        DecodeDesBlock(v[1] + "ignored", cipher, longKey);
        EXPECT_EQ(longKey, plain) << v[0];
        DecodeDesBlock(v[1], cipher + "xyz", withTail);
        EXPECT_EQ(withTail, plain) << v[0];
    }
}

// Without libcrypto every wrapper gives its neutral result. The real names are restored
// afterwards, so test order does not matter.
class MissingCryptoLibraryTest : public ::testing::Test {
  protected:
    void SetUp() override {
        crypto::CryptoLibrary::Instance().OverrideNamesForTesting({"libqz-missing.so.0"});
    }
    void TearDown() override { crypto::CryptoLibrary::Instance().OverrideNamesForTesting({}); }
};

TEST_F(MissingCryptoLibraryTest, WrappersGiveNeutralResults) {
    crypto::CryptoLibrary& library = crypto::CryptoLibrary::Instance();
    EXPECT_EQ(library.EVP_md5(), nullptr);

    unsigned char digest[16] = {0x5A};
    unsigned int size = 77;
    EXPECT_EQ(library.EVP_Digest("abc", 3, digest, &size, nullptr, nullptr), 0);
    EXPECT_EQ(size, 77u);
    EXPECT_EQ(digest[0], 0x5A);
    EXPECT_EQ(digest[1], 0);

    crypto::AesKey key{};
    const unsigned char userKey[16] = {};
    EXPECT_EQ(library.AES_set_decrypt_key(userKey, 128, &key), -1);
    EXPECT_EQ(library.AES_set_encrypt_key(userKey, 128, &key), -1);
    unsigned char in[32] = {1}, out[32] = {}, vector[16] = {};
    library.AES_cbc_encrypt(in, out, sizeof(in), &key, vector, crypto::kDecrypt);
    EXPECT_EQ(out[0], 0xCD);
    EXPECT_EQ(std::count(out + 1, out + sizeof(out), 0), 31);

    const crypto::DesBlock block = {'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h'};
    crypto::DesBlock copy = {};
    crypto::DesKeySchedule schedule{};
    library.DES_set_key_unchecked(&block, &schedule);
    library.DES_ecb_encrypt(&block, &copy, &schedule, crypto::kDecrypt);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(copy), 8), "abcdefgh");

    const AesBlobPlain result = DecodeBlob("VectorPass", "00000020" + std::string(64, '1'));
    ASSERT_EQ(result.plainLength, 20);
    EXPECT_EQ(result.cipherLength, 32);
    EXPECT_EQ(result.plain, "\xCD" + std::string(19, '\0'));
}

// Blocks pass unchanged, which puts the padding rule itself under test.
TEST_F(MissingCryptoLibraryTest, DesCopiesBlocksAndAppliesPaddingRule) {
    const struct {
        const char* name;
        std::string cipher, plain;
        std::string key = "01234567";
    } cases[] = {
        {"byte 3 three times removed", std::string("abcde\3\3\3", 8), "abcde"},
        {"3 2 3 kept", std::string("abcde\3\2\3", 8), std::string("abcde\3\2\3", 8)},
        {"one byte of 1", std::string("abcdefg\1", 8), "abcdefg"},
        {"full block of 8", "01234567" + std::string(8, '\x08'), "01234567"},
        {"whole plain is padding", std::string(8, '\x08'), ""},
        {"9 is no padding", std::string("abcdefg\x09", 8), std::string("abcdefg\x09", 8)},
        {"0 is no padding", std::string("abcdefg\0", 8), std::string("abcdefg\0", 8)},
        {"high byte is negative", std::string("abcdefg\x83", 8), std::string("abcdefg\x83", 8)},
        {"trailing part ignored", "abcdefgh\2\2", "abcdefgh"},
        {"7-char key does nothing", "abcdefgh", "", "0123456"},
        {"empty cipher", "", ""},
        {"below one block", "1234567", ""},
    };
    for (const auto& c : cases) {
        std::string plain;
        DecodeDesBlock(c.key, c.cipher, plain);
        EXPECT_EQ(plain, c.plain) << c.name;
    }
}

// Threads that bind the functions at the same time all get the same, working binding.
TEST_F(WithCrypto, ConcurrentFirstUseAgrees) {
    const Rows aes = ReadVectors("aes_vectors.txt"), des = ReadVectors("des_vectors.txt");
    ASSERT_FALSE(aes.empty() || des.empty());
    std::string desCipher;
    Base64Decode(des[0][2], desCipher);
    // A new generation: every function is looked up again, by whichever thread comes first.
    crypto::CryptoLibrary::Instance().OverrideNamesForTesting({});
    std::vector<std::string> aesPlain(4), desPlain(4);
    std::vector<std::thread> threads;
    for (size_t t = 0; t < aesPlain.size(); ++t) {
        threads.emplace_back([&, t] {
            aesPlain[t] = DecodeBlob(aes[0][1], aes[0][3]).plain;
            DecodeDesBlock(des[0][1], desCipher, desPlain[t]);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(aesPlain, std::vector<std::string>(4, FromHex(aes[0][2])));
    EXPECT_EQ(desPlain, std::vector<std::string>(4, FromHex(des[0][3])));
}

}  // namespace
}  // namespace qzdata_report_kelvo
