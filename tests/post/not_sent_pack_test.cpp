// The not-sent pack file through the report object: the layout against bytes written out by
// hand, loads of whole, damaged and foreign files, and where PackNotSent stops.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "report/report_object.h"
#include "support/test_platform.h"

namespace qzdata_report_kelvo {
namespace {

using namespace std::string_literals;
namespace fs = std::filesystem;
using Posts = std::vector<std::tuple<std::wstring, bool, std::vector<ReportRecord>>>;

// The layout by hand: a little-endian number, and UTF-16LE text with its terminator.
std::string U32(uint32_t value) {
    return {static_cast<char>(value), static_cast<char>(value >> 8), static_cast<char>(value >> 16),
            static_cast<char>(value >> 24)};
}
std::string Url(const std::u16string& units) {
    std::string bytes;
    for (const char16_t unit : units + u'\0')
        bytes += {static_cast<char>(unit), static_cast<char>(unit >> 8)};
    return bytes;
}
const auto Header = [](uint32_t count) { return "tzdr" + U32(count); };
const std::string kFlag = "\1\0\0\0"s;
// The entry of kPost: flag true, URL L"u", one record {"n": "s"}.
const std::string kEntry =
    U32(4) + kFlag + U32(1) + Url(u"u") + U32(1) + U32(2) + U32(2) + "n\0s\0"s;
const ReportPost kPost = {L"u", {{{"n", "s"}}}, true};
// The parts of an entry of L"u" with one record without pairs, up to its sizes (which fail).
const std::string kNoPairs = U32(4) + kFlag + U32(1) + Url(u"u") + U32(0);

struct PackObject : ReportObject {
    using ReportObject::loadedPosts, ReportObject::loadedPostsReady, ReportObject::notSentPosts;
    explicit PackObject(const std::wstring& loadPath = L"") {
        EXPECT_TRUE(Init(L"http://collector.test/", "D", "P", 5000, nullptr, loadPath, 0, false));
    }
    Posts Loaded() const {
        Posts posts;
        for (const ReportPost& post : loadedPosts)
            posts.emplace_back(post.url, post.flag, post.records);
        return posts;
    }
};

struct PackTest : ::testing::Test {
    void TearDown() override { fs::remove_all(dir); }
    fs::path At(const std::string& utf8Name) const { return dir / fs::u8path(utf8Name); }
    std::wstring Wide(const std::string& asciiName) const { return At(asciiName).wstring(); }
    bool Has(const std::string& utf8Name) const { return fs::exists(At(utf8Name)); }
    std::string Read(const std::string& utf8Name) const {
        std::ifstream in(At(utf8Name), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }
    const fs::path dir = qz_test::MakeTempFolder("pack");
};

// Refusals; then buckets up to the maximum priority, not-sent and loaded posts (surrogate pair,
// empty URL, embedded zero) up to one without pairs (a write of nothing fails), which stays with
// those after it; the file counts those before it. A load pads each URL to (URL bytes - 1).
TEST_F(PackTest, AGoldenPackIsWrittenByteForByteAndLoadsBack) {
    ReportObject uninitialised;
    uninitialised.AddBucketPostForTesting(0, {L"u", {{{"n", "s"}}}, true});
    EXPECT_FALSE(uninitialised.PackNotSent(Wide("early")));
    PackObject object;
    std::ofstream(At("old")) << "older";
    EXPECT_TRUE(object.PackNotSent(Wide("old")));
    object.loadedPosts.push_back(kPost);  // held, but not written before its load is complete
    EXPECT_TRUE(object.PackNotSent(Wide("loading")));
    EXPECT_EQ(std::make_tuple("older"s, Header(0), 1u),
              std::make_tuple(Read("old"), Read("loading"), object.loadedPosts.size()));
    ASSERT_TRUE(object.SetMaxPriority(kPriorityBelowNormal));
    const std::vector<ReportRecord> first = {{{"a", "1"}, {"k", "v"}}, {{"x", "y\0z"s}}};
    object.AddBucketPostForTesting(0, {L"http://a/\U0001F600", {first.begin(), first.end()}, true});
    object.AddBucketPostForTesting(2, {L"", {{{"e", "f"}}}, false});
    object.AddBucketPostForTesting(5, {L"kept", {{{"e", "f"}}}, true});
    object.notSentPosts.push_back(kPost);
    object.loadedPosts = {{L"ab\0\0\0"s, {{{"l", ""}}}, true}, {L"u", {{}}, true}, kPost};
    object.loadedPostsReady = true;
    EXPECT_FALSE(object.PackNotSent(L"") || object.PackNotSent(Wide("missing/pack")) ||
                 Has("early"));
    EXPECT_FALSE(object.PackNotSent(Wide("pack") + L"\u00FC"));
    // One entry a line, then the parts of the failed one; "\0001" is a zero byte and a 1.
    // clang-format off
    EXPECT_EQ(Header(4) +
              U32(24) + kFlag + U32(2) + Url(u"http://a/\xD83D\xDE00") + U32(2) + U32(1) +
                  U32(2) + U32(2) + U32(2) + U32(2) + U32(2) + U32(4) + "a\0001\0k\0v\0x\0y\0z\0"s +
              U32(2) + U32(0) + U32(1) + Url(u"") + U32(1) + U32(2) + U32(2) + "e\0f\0"s +
              kEntry +
              U32(12) + kFlag + U32(1) + Url(u"ab\0\0\0"s) + U32(1) + U32(2) + U32(1) + "l\0\0"s +
              kNoPairs,
              Read("pack\xC3\xBC"));
    // clang-format on
    EXPECT_EQ(std::make_tuple(0u, 0u, 1u, 0u, 2u),
              std::make_tuple(object.BucketSizeForTesting(0), object.BucketSizeForTesting(2),
                              object.BucketSizeForTesting(5), object.notSentPosts.size(),
                              object.loadedPosts.size()));

    PackObject next(Wide("pack") + L"\u00FC");
    next.LoadNotSent();
    EXPECT_FALSE(Has("pack\xC3\xBC"));
    const auto padded = [](std::wstring url, size_t length) { return url.resize(length), url; };
    EXPECT_EQ((Posts{{padded(L"http://a/\U0001F600", 23), true, first},
                     {padded(L"", 1), false, {{{"e", "f"}}}},
                     {padded(L"u", 3), true, {{{"n", "s"}}}},
                     {padded(L"ab", 11), true, {{{"l", ""}}}}}),
              next.Loaded());
}

// Unopenable, too short or foreign-magic files stay; others are deleted, keeping whole entries.
TEST_F(PackTest, LoadKeepsForeignFilesAndDeletesDamagedOnes) {
    const std::string pack = Header(2) + kEntry + kEntry;
    const std::string zeroSize = kEntry.substr(0, 20) + U32(0) + U32(2) + "\0s\0"s;
    // contents (none: no file), entries loaded, file kept; a whole file is the golden test's
    const std::vector<std::tuple<std::optional<std::string>, size_t, bool>> cases = {
        {std::nullopt, 0, false},
        {pack.substr(0, 7), 0, true},
        {"tzds" + pack.substr(4), 0, true},
        {pack.substr(0, pack.size() - 1), 1, false},
        {Header(5) + kEntry, 1, false},
        {Header(3) + kEntry + kNoPairs + kEntry, 1, false},
        {Header(2) + zeroSize + kEntry, 0, false},
    };
    for (size_t i = 0; i < cases.size(); ++i) {
        const auto& [contents, loaded, kept] = cases[i];
        const std::string name = std::to_string(i);
        if (contents)
            std::ofstream(At(name), std::ios::binary) << *contents;
        PackObject object(Wide(name));
        object.LoadNotSent();
        EXPECT_EQ(std::make_tuple(true, kept, Posts(loaded, {L"u\0\0"s, true, kPost.records})),
                  std::make_tuple(object.loadedPostsReady.load(), Has(name), object.Loaded()))
            << i;
    }
}

}  // namespace
}  // namespace qzdata_report_kelvo
