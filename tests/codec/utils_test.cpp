#include "codec/utils.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cfloat>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <set>
#include <string>

#include "codec/md5.h"
#include "deployment_config.h"
#include "port/clock.h"

namespace qzdata_report_kelvo {
namespace {

std::string Md5Hex(const std::string& text) {
    Md5Context context;
    context.Start(text);
    return context.HexDigest();
}

bool AllOf(const std::string& text, int (*predicate)(int)) {
    for (char c : text) {
        if (!predicate(static_cast<unsigned char>(c))) {
            return false;
        }
    }
    return true;
}

TEST(NumberTextTest, PatternsAndExtremes) {
    std::string text = "x=";
    AppendNumber(text, static_cast<uint16_t>(65535));
    AppendNumber(text, static_cast<int32_t>(INT32_MIN));
    AppendNumber(text, 2.5);
    AppendNumber(text, static_cast<uint64_t>(UINT64_MAX));
    EXPECT_EQ(text, "x=65535-2147483648218446744073709551615");

    std::string big;
    AppendNumber(big, -DBL_MAX);
    EXPECT_EQ(big.size(), 310u);  // sign and 309 digits: the largest text the buffer holds
    EXPECT_EQ(big.substr(0, 4), "-179");

    EXPECT_EQ(Int32ToString(-7), "-7");
    EXPECT_EQ(UInt32ToString(4294967295u), "4294967295");
    EXPECT_EQ(UInt64ToString(0), "0");
    EXPECT_EQ(UInt16ToString(80), "80");
}

TEST(TimeTextTest, LocalStampHasSeventeenDigits) {
    const std::string stamp = FormatLocalStamp();
    ASSERT_EQ(stamp.size(), 17u) << stamp;
    EXPECT_TRUE(AllOf(stamp, isdigit)) << stamp;
    const int month = std::stoi(stamp.substr(4, 2));
    EXPECT_TRUE(month >= 1 && month <= 12) << stamp;
}

TEST(TimeTextTest, NowFieldAndSecondsSince) {
    const int64_t before = port::Time64();
    const std::string field = FormatNowField();
    const int64_t after = port::Time64();
    ASSERT_GE(field.size(), 2u);
    EXPECT_EQ(field.back(), '\t');
    const long long value = std::stoll(field.substr(0, field.size() - 1));
    EXPECT_GE(value, static_cast<int32_t>(before));
    EXPECT_LE(value, static_cast<int32_t>(after));

    const double elapsed = SecondsSince(port::Time64() - 100);
    EXPECT_GE(elapsed, 100.0);
    EXPECT_LE(elapsed, 102.0);
    EXPECT_LE(SecondsSince(port::Time64() + 50), -48.0);
}

TEST(FormatGuidTextTest, VersionFourInThirtyTwoLowerHexDigits) {
    std::set<std::string> seen;
    for (int i = 0; i < 64; ++i) {
        const std::string guid = FormatGuidText();
        ASSERT_EQ(guid.size(), 32u) << guid;
        for (char c : guid) {
            EXPECT_TRUE(std::isdigit(static_cast<unsigned char>(c)) || (c >= 'a' && c <= 'f'))
                << guid;
        }
        EXPECT_EQ(guid[12], '4') << guid;
        EXPECT_NE(std::string("89ab").find(guid[16]), std::string::npos) << guid;
        seen.insert(guid);
    }
    EXPECT_EQ(seen.size(), 64u);
}

TEST(EscapeUrlTest, KeepSetAndEscapes) {
    const struct {
        std::string in;
        std::string out;
    } cases[] = {
        {"", ""},
        {" ", "%20"},
        {"\xe4", "%E4"},
        {"/?", "/?"},
        {"a b&c=d", "a%20b%26c%3Dd"},
        {"\"#%&+,=\\", "%22%23%25%26%2B%2C%3D%5C"},
        {std::string("\0\t\n\x7f\xff", 5), "%00%09%0A%7F%FF"},
        {"!$'()*-./:;<>?@[]^_`{|}~", "!$'()*-./:;<>?@[]^_`{|}~"},
    };
    for (const auto& c : cases) {
        std::string out = "stale";
        EscapeUrl(c.in, out);
        EXPECT_EQ(out, c.out) << c.in;
    }

    // Of all 256 bytes exactly the 86 of the keep set stay.
    std::string all;
    for (int b = 0; b < 256; ++b) {
        all += static_cast<char>(b);
    }
    std::string out;
    EscapeUrl(all, out);
    EXPECT_EQ(out.size(), 86u + 3u * (256u - 86u));
}

TEST(RequestKeyTest, LowerHexMd5AndEmpty) {
    std::string key = "stale";
    RequestKey("abc", key);
    EXPECT_EQ(key, "900150983cd24fb0d6963f7d28e17f72");
    RequestKey("", key);
    EXPECT_EQ(key, "");
}

TEST(BuildSignedQueryTest, KeyCoversActAndLow32BitsOfTime) {
    const std::string salt = deployment::kRequestSalt;
    const struct {
        int64_t time;
        const char* text;
    } times[] = {
        {1700000000, "1700000000"},
        {(int64_t{1} << 32) + 5, "5"},
        {int64_t{0x80000000}, "-2147483648"},
        {-1, "-1"},
    };
    for (const auto& t : times) {
        std::string query;
        BuildSignedQuery("", "startup", query, "guid", t.time, false);
        EXPECT_EQ(query,
                  "&key=" + Md5Hex(std::string("startup") + t.text + salt) + "&time=" + t.text);
    }
}

TEST(BuildSignedQueryTest, ExtraIsJoinedButNotSigned) {
    const int64_t time = 1234567890;
    std::string bare;
    BuildSignedQuery("", "act1", bare, "g", time, false);
    const struct {
        const char* extra;
        const char* tail;
    } cases[] = {
        {"a=1&b=2", "&a=1&b=2"},
        {"&a=1", "&a=1"},
        {"&&a", "&&a"},
        {"=x", "&=x"},
    };
    for (const auto& c : cases) {
        std::string query;
        BuildSignedQuery(c.extra, "act1", query, "g", time, false);
        EXPECT_EQ(query, bare + c.tail) << c.extra;
    }

    std::string withAct;
    BuildSignedQuery("x=1", "act1", withAct, "the-guid", time, true);
    EXPECT_EQ(withAct, "act=act1&action=the-guid" + bare + "&x=1");

    std::string other;
    BuildSignedQuery("", "act2", other, "g", time, false);
    EXPECT_NE(other, bare);
}

TEST(BuildGifUrlTest, FillsAllOutputs) {
    std::string path = "old", query = "old", guid = "old";
    int64_t time = 0;
    const int64_t before = port::Time64();
    EXPECT_TRUE(BuildGifUrl("k=v", "zhlogtotal", path, query, guid, time));
    EXPECT_GE(time, before);
    EXPECT_LE(time, port::Time64());
    EXPECT_EQ(path, "/c.gif?act=zhlogtotal&smkdata=0");
    EXPECT_EQ(guid.size(), 32u);
    std::string expected;
    BuildSignedQuery("k=v", "zhlogtotal", expected, guid, time, false);
    EXPECT_EQ(query, expected);
    EXPECT_EQ(query.substr(0, 5), "&key=");
}

class EnsureDirectoryTest : public ::testing::Test {
  protected:
    void SetUp() override {
        char pattern[] = "/tmp/qz_codec_dirs_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        root = pattern;
    }
    void TearDown() override {
        const std::string command = "rm -rf '" + root + "'";
        EXPECT_EQ(std::system(command.c_str()), 0);
    }
    static bool IsDirectory(const std::string& path) {
        struct stat info;
        return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
    }
    void MakeFile(const std::string& path) { std::ofstream(path) << "x"; }

    std::string root;
};

TEST_F(EnsureDirectoryTest, CreatesMissingLevels) {
    EXPECT_TRUE(EnsureDirectory(root + "/a/b/c"));
    EXPECT_TRUE(IsDirectory(root + "/a/b/c"));
    EXPECT_TRUE(EnsureDirectory(root + "/a/b/c"));
    EXPECT_TRUE(EnsureDirectory(root + "/a/b/d"));
    EXPECT_TRUE(IsDirectory(root + "/a/b/d"));
}

TEST_F(EnsureDirectoryTest, TrailingSeparators) {
    EXPECT_TRUE(EnsureDirectory(root + "/x/y/"));
    EXPECT_TRUE(IsDirectory(root + "/x/y"));
    EXPECT_TRUE(EnsureDirectory(root + "/p//"));
    EXPECT_TRUE(IsDirectory(root + "/p"));
    EXPECT_TRUE(EnsureDirectory(root + "/"));
}

TEST_F(EnsureDirectoryTest, PlainFileInTheWay) {
    MakeFile(root + "/file");
    EXPECT_FALSE(EnsureDirectory(root + "/file"));
    EXPECT_FALSE(EnsureDirectory(root + "/file/sub"));
    EXPECT_FALSE(EnsureDirectory(root + "/file/sub/deeper/"));
    EXPECT_FALSE(IsDirectory(root + "/file/sub"));
    EXPECT_FALSE(EnsureDirectory(""));
}

TEST_F(EnsureDirectoryTest, RelativePath) {
    char previous[4096];
    ASSERT_NE(getcwd(previous, sizeof(previous)), nullptr);
    ASSERT_EQ(chdir(root.c_str()), 0);
    const bool made = EnsureDirectory("rel/one");
    const bool single = EnsureDirectory("alone");
    ASSERT_EQ(chdir(previous), 0);
    EXPECT_TRUE(made);
    EXPECT_TRUE(single);
    EXPECT_TRUE(IsDirectory(root + "/rel/one"));
    EXPECT_TRUE(IsDirectory(root + "/alone"));
}

}  // namespace
}  // namespace qzdata_report_kelvo
