#include "codec/utils.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cfloat>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <string>
#include <tuple>

#include "codec/fixed_env.h"
#include "deployment_config.h"

namespace qzdata_report_kelvo {
namespace {

namespace fs = std::filesystem;

TEST(NumberTextTest, PatternsAndExtremes) {
    std::string text = "x=";
    AppendNumber(text, uint16_t{65535});
    AppendNumber(text, int32_t{INT32_MIN});
    AppendNumber(text, 2.5);
    AppendNumber(text, uint64_t{UINT64_MAX});
    AppendNumber(text, -DBL_MAX);  // sign and 309 digits: the largest text the buffer holds
    EXPECT_EQ(text.substr(0, 43), "x=65535-2147483648218446744073709551615-179");
    EXPECT_EQ(text.size(), 39u + 310u);
    EXPECT_EQ(
        Int32ToString(-7) + UInt32ToString(4294967295u) + UInt64ToString(0) + UInt16ToString(80),
        "-74294967295080");
}

TEST_F(WithFixedEnv, TimeGuidAndGifUrlFromTheEnv) {
    EXPECT_EQ(FormatLocalStamp(), "20240229070509042");
    EXPECT_EQ(FormatNowField(), "1700000000\t");  // the low 32 bits
    EXPECT_EQ(SecondsSince(now - 100), 100.0);
    std::string path = "old", query = "old", guid = "old", expected;
    int64_t time = 0;
    EXPECT_TRUE(BuildGifUrl("k=v", "zhlogtotal", path, query, guid, time) && time == now);
    EXPECT_EQ(path, "/c.gif?act=zhlogtotal&smkdata=0");
    EXPECT_TRUE(guid == "ffeeddccbbaa4988b766554433221100" && FormatGuidText() == guid) << guid;
    BuildSignedQuery("k=v", "zhlogtotal", expected, guid, time, false);
    EXPECT_EQ(query, expected);
}

// Every byte outside the keep set becomes '%' and two upper-case digits.
TEST(EscapeUrlTest, KeepSetAndEscapes) {
    std::string out = "stale";
    EscapeUrl(std::string("a b&=\"#%+,\\\0\t\x7f\xe4\xff!$'()*-./:;<>?@[]^_`{|}~Z9", 42), out);
    EXPECT_EQ(out, "a%20b%26%3D%22%23%25%2B%2C%5C%00%09%7F%E4%FF!$'()*-./:;<>?@[]^_`{|}~Z9");
    std::string all(256, '\0');
    std::iota(all.begin(), all.end(), '\0');
    EscapeUrl(all, out);
    EXPECT_EQ(out.size(), 86u + 3u * (256u - 86u));  // the keep set holds 86 bytes
}

// The key is the request key of the act, the low 32 bits of the time as signed decimal and the
// salt; the extra is joined but not signed.
TEST(SignedQueryTest, KeyActTimeAndExtra) {
    std::string key = "stale";
    RequestKey("", key);
    EXPECT_EQ(key, "");
    const std::tuple<int64_t, std::string, std::string, bool, std::string> cases[] = {
        {1700000000, "1700000000", "", false, ""},
        {(int64_t{1} << 32) + 5, "5", "a=1&b=2", false, "&a=1&b=2"},
        {int64_t{0x80000000}, "-2147483648", "&a=1", false, "&a=1"},
        {-1, "-1", "=x", true, "&=x"}};
    for (const auto& [time, text, extra, withAct, tail] : cases) {
        std::string query;
        BuildSignedQuery(extra, "startup", query, "the-guid", time, withAct);
        RequestKey("startup" + text + deployment::kRequestSalt, key);
        EXPECT_EQ(query, (withAct ? "act=startup&action=the-guid&key=" : "&key=") + key +
                             "&time=" + text + tail);
    }
}

TEST(EnsureDirectoryTest, CreatesLevelsAndRefusesFiles) {
    char pattern[] = "/tmp/qz_codec_dirs_XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    const std::string root = pattern;
    for (const char* path : {"/a/b/c", "/a/b/c", "/a/b/d", "/x/y/", "/p//", "/"})
        EXPECT_TRUE(EnsureDirectory(root + path) && fs::is_directory(root + path)) << path;
    std::ofstream(root + "/file") << "x";
    for (const char* path : {"/file", "/file/sub", "/file/sub/deeper/", ""})
        EXPECT_FALSE(EnsureDirectory(path[0] ? root + path : path)) << path;
    // Relative paths, which have no separator at their top level.
    const fs::path previous = fs::current_path();
    fs::current_path(root);
    EXPECT_TRUE(EnsureDirectory("rel/one") && EnsureDirectory("alone"));
    fs::current_path(previous);
    EXPECT_TRUE(fs::is_directory(root + "/rel/one") && fs::is_directory(root + "/alone"));
    fs::remove_all(root);
}

}  // namespace
}  // namespace qzdata_report_kelvo
