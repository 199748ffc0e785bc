// The not-sent pack on a full disk, which a file size limit stands for on POSIX.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <filesystem>
#include <string>
#include <vector>

#include "report/report_object.h"
#include "support/test_platform.h"

namespace qzdata_report_kelvo {
namespace {

struct PackObject : ReportObject {
    using ReportObject::loadedPosts, ReportObject::notSentPosts;
    explicit PackObject(const std::string& loadPath = "") {
        const std::wstring wide(loadPath.begin(), loadPath.end());
        EXPECT_TRUE(Init(L"http://collector.test/", "D", "P", 5000, nullptr, wide, 0, false));
    }
};

// A full disk stops the pack at a whole post; the posts not written stay in memory, and a later
// pack with room holds them: across both files nothing is lost or doubled.
TEST(PackPosixTest, AFullDiskLeavesTheUnwrittenPostsForTheNextPack) {
    const std::string dir = qz_test::MakeTempFolder("pack"), full = dir + "/full";
    PackObject object;
    for (int i = 0; i < 40; ++i)
        object.notSentPosts.push_back({L"u", {{{"n", std::to_string(i) + std::string(40, 'x')}}}});
    rlimit saved{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
    const auto previous = signal(SIGXFSZ, SIG_IGN);  // a write past the limit fails, no signal
    const rlimit limited{1000, saved.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limited), 0);
    const bool fullDisk = object.PackNotSent(std::wstring(full.begin(), full.end()));
    setrlimit(RLIMIT_FSIZE, &saved);
    signal(SIGXFSZ, previous);
    const size_t left = object.notSentPosts.size();
    EXPECT_TRUE(!fullDisk && left > 0 && left < 40) << left;
    EXPECT_LE(std::filesystem::file_size(full), 1000u);
    const std::string room = dir + "/room";
    EXPECT_TRUE(object.PackNotSent(std::wstring(room.begin(), room.end())) &&
                object.notSentPosts.empty());

    std::vector<std::string> values;
    for (const std::string& path : {full, room}) {
        PackObject next(path);
        next.LoadNotSent();
        for (const ReportPost& post : next.loadedPosts)
            values.push_back(post.records.at(0).at("n"));
    }
    ASSERT_EQ(values.size(), 40u);
    for (int i = 0; i < 40; ++i)
        EXPECT_EQ(values[i], std::to_string(i) + std::string(40, 'x'));
    std::filesystem::remove_all(dir);
}

}  // namespace
}  // namespace qzdata_report_kelvo
