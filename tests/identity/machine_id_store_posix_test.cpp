// The machine id files on POSIX: private folders and files, each written whole.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "identity/machine_id_store.h"
#include "support/test_platform.h"

namespace qzdata_report_kelvo {
namespace {

namespace fs = std::filesystem;

TEST(UserStorePosixTest, FilesArePrivateAndWrittenWhole) {
    qz_test::IsolateUserStore();
    const std::string root = std::string(std::getenv("HOME")) + "/.config/";
    ObtainStoredMachineId([] { return std::string("d"); });
    for (const char* folder : {"", "software", "software/norvik", "software/norvik/qzdata_report"})
        EXPECT_EQ(fs::status(root + folder).permissions(), fs::perms::owner_all) << folder;
    const std::string folder = root + "software/norvik/qzdata_report";
    EXPECT_EQ(fs::status(folder + "/mid").permissions(),
              fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 1);
    qz_test::RestoreUserStore();
}

}  // namespace
}  // namespace qzdata_report_kelvo
