#include "codec/utils.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cfloat>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <set>
#include <string>

#include "codec/md5.h"
#include "deployment_config.h"
#include "port/env.h"

namespace qzdata_report_kelvo {
namespace {

std::string Md5Hex(const std::string& text) {
    Md5Context context;
    context.Start(text);
    return context.HexDigest();
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

    EXPECT_EQ(
        Int32ToString(-7) + UInt32ToString(4294967295u) + UInt64ToString(0) + UInt16ToString(80),
        "-74294967295080");
}

TEST(TimeTextTest, LocalStampNowFieldAndSecondsSince) {
    const std::string stamp = FormatLocalStamp();
    EXPECT_TRUE(std::regex_match(stamp, std::regex("[0-9]{4}(0[1-9]|1[0-2])[0-9]{11}"))) << stamp;

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
    const std::regex pattern("[0-9a-f]{12}4[0-9a-f]{3}[89ab][0-9a-f]{15}");
    std::set<std::string> seen;
    for (int i = 0; i < 64; ++i) {
        const std::string guid = FormatGuidText();
        EXPECT_TRUE(std::regex_match(guid, pattern)) << guid;
        seen.insert(guid);
    }
    EXPECT_EQ(seen.size(), 64u);
}

TEST(EscapeUrlTest, KeepSetAndEscapes) {
    const struct {
        std::string in, out;
    } cases[] = {
        {"", ""},
        {"a b&c=d", "a%20b%26c%3Dd"},
        {"\"#%&+,=\\", "%22%23%25%26%2B%2C%3D%5C"},
        {std::string("\0\t\n\x7f\xe4\xff", 6), "%00%09%0A%7F%E4%FF"},
        {"!$'()*-./:;<>?@[]^_`{|}~", "!$'()*-./:;<>?@[]^_`{|}~"},
    };
    for (const auto& c : cases) {
        std::string out = "stale";
        EscapeUrl(c.in, out);
        EXPECT_EQ(out, c.out) << c.in;
    }
    // Of all 256 bytes exactly the 86 of the keep set stay.
    std::string all, out;
    for (int b = 0; b < 256; ++b) {
        all += static_cast<char>(b);
    }
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
                  "&key=" + Md5Hex(std::string("startup") + t.text + deployment::kRequestSalt) +
                      "&time=" + t.text);
    }
}

TEST(BuildSignedQueryTest, ExtraIsJoinedButNotSigned) {
    const int64_t time = 1234567890;
    std::string bare, other, withAct;
    BuildSignedQuery("", "act1", bare, "g", time, false);
    const struct {
        const char *extra, *tail;
    } cases[] = {{"a=1&b=2", "&a=1&b=2"}, {"&a=1", "&a=1"}, {"&&a", "&&a"}, {"=x", "&=x"}};
    for (const auto& c : cases) {
        std::string query;
        BuildSignedQuery(c.extra, "act1", query, "g", time, false);
        EXPECT_EQ(query, bare + c.tail) << c.extra;
    }
    BuildSignedQuery("x=1", "act1", withAct, "the-guid", time, true);
    EXPECT_EQ(withAct, "act=act1&action=the-guid" + bare + "&x=1");
    BuildSignedQuery("", "act2", other, "g", time, false);
    EXPECT_NE(other, bare);
}

TEST(BuildGifUrlTest, FillsAllOutputs) {
    std::string path = "old", query = "old", guid = "old", expected;
    int64_t time = 0;
    const int64_t before = port::Time64();
    EXPECT_TRUE(BuildGifUrl("k=v", "zhlogtotal", path, query, guid, time));
    EXPECT_GE(time, before);
    EXPECT_LE(time, port::Time64());
    EXPECT_EQ(path, "/c.gif?act=zhlogtotal&smkdata=0");
    EXPECT_EQ(guid.size(), 32u);
    BuildSignedQuery("k=v", "zhlogtotal", expected, guid, time, false);
    EXPECT_EQ(query, expected);
    EXPECT_EQ(query.substr(0, 5), "&key=");
}

bool IsDirectory(const std::string& path) {
    struct stat info;
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

TEST(EnsureDirectoryTest, CreatesLevelsAndRefusesFiles) {
    char pattern[] = "/tmp/qz_codec_dirs_XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    const std::string root = pattern;

    for (const char* path : {"/a/b/c", "/a/b/c", "/a/b/d", "/x/y/", "/p//", "/"}) {
        EXPECT_TRUE(EnsureDirectory(root + path)) << path;
        EXPECT_TRUE(IsDirectory(root + path)) << path;
    }
    std::ofstream(root + "/file") << "x";
    for (const char* path : {"/file", "/file/sub", "/file/sub/deeper/"}) {
        EXPECT_FALSE(EnsureDirectory(root + path)) << path;
    }
    EXPECT_FALSE(IsDirectory(root + "/file/sub"));
    EXPECT_FALSE(EnsureDirectory(""));

    char previous[4096];
    ASSERT_NE(getcwd(previous, sizeof(previous)), nullptr);
    ASSERT_EQ(chdir(root.c_str()), 0);
    const bool made = EnsureDirectory("rel/one") && EnsureDirectory("alone");
    ASSERT_EQ(chdir(previous), 0);
    EXPECT_TRUE(made);
    EXPECT_TRUE(IsDirectory(root + "/rel/one") && IsDirectory(root + "/alone"));
    EXPECT_EQ(std::system(("rm -rf '" + root + "'").c_str()), 0);
}

}  // namespace
}  // namespace qzdata_report_kelvo
