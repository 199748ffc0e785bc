#include "identity/os_version.h"

#include <gtest/gtest.h>

#include <vector>

namespace qzdata_report_kelvo {
namespace {

// Platform, version, product type, architecture, SM_SERVERR2, ntdll version (0: not read) and
// the record read: 2 the extended one, 1 the short one without the product type, 0 none.
port::WindowsVersionFacts F(uint32_t os, uint32_t major, uint32_t minor, uint8_t type = 1,
                            uint16_t arch = 0, int r2 = 0, uint32_t ntdll = 0, int record = 2) {
    return {record > 0, record > 1, os, major, minor, type, arch, r2, ntdll != 0, ntdll};
}

TEST(OsVersionTest, ClassifierTable) {
    // clang-format off
    const std::pair<const char*, std::vector<port::WindowsVersionFacts>> cases[] = {
        {"WindowsGetFailed",
         {F(2, 6, 1, 1, 0, 0, 0, 0), F(1, 4, 20), F(1, 5, 0), F(2, 5, 3), F(2, 6, 3)}},
        {"Windows95", {F(1, 4, 0)}}, {"Windows98", {F(1, 4, 10)}}, {"WindowsMe", {F(1, 4, 90)}},
        {"WindowsnNT4", {F(2, 4, 0)}}, {"Windows2000", {F(2, 5, 0)}}, {"WindowsXp", {F(2, 5, 1)}},
        {"WindowsXp64", {F(2, 5, 2, 1, 9)}}, {"Windows2003", {F(2, 5, 2, 1, 0), F(2, 5, 2, 3, 9)}},
        {"Windows2003R2", {F(2, 5, 2, 1, 9, 1)}}, {"WindowsVista", {F(2, 6, 0)}},
        {"Windows7", {F(2, 6, 1), F(2, 10, 1)}}, {"WindowsNone", {F(0, 6, 1), F(3, 4, 0)}},
        {"WindowsServerLonghorn", {F(2, 6, 2, 3), F(2, 6, 1, 1, 0, 0, 0, 1)}},
        // the first without an ntdll version: version.dll missing
        {"Windows8", {F(2, 6, 2), F(2, 6, 2, 1, 0, 0, 0x60002), F(2, 6, 2, 1, 0, 0, 0x70003)}},
        {"Windows8dot1", {F(2, 6, 2, 1, 0, 0, 0x60003)}},
        {"Windows10", {F(2, 6, 2, 1, 0, 0, 0xA0000)}}};
    // clang-format on
    for (const auto& [name, all] : cases)
        for (const auto& f : all)
            EXPECT_EQ(ClassifyOs(f), name) << f.platformId << " " << f.major << "." << f.minor;
}

}  // namespace
}  // namespace qzdata_report_kelvo
