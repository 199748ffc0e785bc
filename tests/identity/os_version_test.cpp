#include "identity/os_version.h"

#include <gtest/gtest.h>

#include <vector>

namespace qzdata_report_kelvo {
namespace {

port::WindowsVersionFacts F(uint32_t platform, uint32_t major, uint32_t minor,
                            uint8_t productType = 1, uint16_t architecture = 0, int serverR2 = 0,
                            uint32_t ntdllVersion = 0) {
    return {true,         true,     platform,          major,       minor, productType,
            architecture, serverR2, ntdllVersion != 0, ntdllVersion};
}

TEST(OsVersionTest, ClassifierTable) {
    port::WindowsVersionFacts failed = F(2, 6, 1), shortRecord = F(2, 6, 1);
    failed.versionKnown = false;
    shortRecord.extendedRecord = false;  // its product type is not read
    const std::pair<const char*, std::vector<port::WindowsVersionFacts>> cases[] = {
        {"WindowsGetFailed", {failed, F(1, 4, 20), F(1, 5, 0), F(2, 5, 3), F(2, 6, 3)}},
        {"WindowsNone", {F(0, 6, 1), F(3, 4, 0)}},
        {"Windows95", {F(1, 4, 0)}},
        {"Windows98", {F(1, 4, 10)}},
        {"WindowsMe", {F(1, 4, 90)}},
        {"WindowsnNT4", {F(2, 4, 0)}},
        {"Windows2000", {F(2, 5, 0)}},
        {"WindowsXp", {F(2, 5, 1)}},
        {"WindowsXp64", {F(2, 5, 2, 1, 9)}},
        {"Windows2003", {F(2, 5, 2, 1, 0), F(2, 5, 2, 3, 9)}},
        {"Windows2003R2", {F(2, 5, 2, 1, 9, 1)}},
        {"WindowsVista", {F(2, 6, 0)}},
        {"Windows7", {F(2, 6, 1), F(2, 10, 1)}},
        {"WindowsServerLonghorn", {F(2, 6, 2, 3), shortRecord}},
        // the first without an ntdll version: version.dll missing
        {"Windows8", {F(2, 6, 2), F(2, 6, 2, 1, 0, 0, 0x60002), F(2, 6, 2, 1, 0, 0, 0x70003)}},
        {"Windows8dot1", {F(2, 6, 2, 1, 0, 0, 0x60003)}},
        {"Windows10", {F(2, 6, 2, 1, 0, 0, 0xA0000)}}};
    for (const auto& [name, all] : cases)
        for (const auto& facts : all)
            EXPECT_EQ(ClassifyOs(facts), name)
                << facts.platformId << " " << facts.major << "." << facts.minor;
}

}  // namespace
}  // namespace qzdata_report_kelvo
