#include "codec/utils.h"

#include <gtest/gtest.h>

#include <numeric>
#include <string>
#include <tuple>

#include "deployment_config.h"

namespace qzdata_report_kelvo {
namespace {

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
        // clang-format off
        {1700000000, "1700000000", "", false, ""}, {-1, "-1", "=x", true, "&=x"},
        {(int64_t{1} << 32) + 5, "5", "a=1&b=2", false, "&a=1&b=2"},
        {int64_t{0x80000000}, "-2147483648", "&a=1", false, "&a=1"}};
    // clang-format on
    for (const auto& [time, text, extra, withAct, tail] : cases) {
        std::string query;
        BuildSignedQuery(extra, "startup", query, "the-guid", time, withAct);
        RequestKey("startup" + text + deployment::kRequestSalt, key);
        EXPECT_EQ(query, (withAct ? "act=startup&action=the-guid&key=" : "&key=") + key +
                             "&time=" + text + tail);
    }
}

}  // namespace
}  // namespace qzdata_report_kelvo
