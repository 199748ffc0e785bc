#include "identity/os_version.h"

#include <gtest/gtest.h>

#include <regex>

namespace qzdata_report_kelvo {
namespace {

port::WindowsVersionFacts Facts(uint32_t platform, uint32_t major, uint32_t minor,
                                uint8_t productType = 1, uint16_t architecture = 0,
                                int serverR2 = 0, uint32_t ntdllVersion = 0) {
    port::WindowsVersionFacts facts;
    facts.versionKnown = facts.extendedRecord = true;
    facts.platformId = platform;
    facts.major = major;
    facts.minor = minor;
    facts.productType = productType;
    facts.processorArchitecture = architecture;
    facts.serverR2 = serverR2;
    facts.ntdllVersionKnown = ntdllVersion != 0;
    facts.ntdllProductVersionMs = ntdllVersion;
    return facts;
}

TEST(OsVersionTest, ClassifierTable) {
    port::WindowsVersionFacts failed = Facts(2, 6, 1), shortRecord = Facts(2, 6, 1);
    failed.versionKnown = false;
    shortRecord.extendedRecord = false;  // its product type is not read
    const std::pair<port::WindowsVersionFacts, const char*> cases[] = {
        {failed, "WindowsGetFailed"},
        {Facts(0, 6, 1), "WindowsNone"},
        {Facts(3, 4, 0), "WindowsNone"},
        {Facts(1, 4, 0), "Windows95"},
        {Facts(1, 4, 10), "Windows98"},
        {Facts(1, 4, 90), "WindowsMe"},
        {Facts(1, 4, 20), "WindowsGetFailed"},
        {Facts(1, 5, 0), "WindowsGetFailed"},
        {Facts(2, 4, 0), "WindowsnNT4"},
        {Facts(2, 5, 0), "Windows2000"},
        {Facts(2, 5, 1), "WindowsXp"},
        {Facts(2, 5, 2, 1, 9), "WindowsXp64"},
        {Facts(2, 5, 2, 1, 0), "Windows2003"},
        {Facts(2, 5, 2, 3, 9), "Windows2003"},
        {Facts(2, 5, 2, 1, 9, 1), "Windows2003R2"},
        {Facts(2, 5, 3), "WindowsGetFailed"},
        {Facts(2, 6, 0), "WindowsVista"},
        {Facts(2, 6, 1), "Windows7"},
        {Facts(2, 10, 1), "Windows7"},
        {Facts(2, 6, 3), "WindowsGetFailed"},
        {Facts(2, 6, 2, 3), "WindowsServerLonghorn"},
        {shortRecord, "WindowsServerLonghorn"},
        {Facts(2, 6, 2), "Windows8"},  // no ntdll version: version.dll missing
        {Facts(2, 6, 2, 1, 0, 0, 0x00060002), "Windows8"},
        {Facts(2, 6, 2, 1, 0, 0, 0x00060003), "Windows8dot1"},
        {Facts(2, 6, 2, 1, 0, 0, 0x000A0000), "Windows10"},
        {Facts(2, 6, 2, 1, 0, 0, 0x00070003), "Windows8"}};
    for (const auto& [facts, name] : cases) {
        EXPECT_EQ(ClassifyOs(facts), name)
            << facts.platformId << " " << facts.major << "." << facts.minor;
    }
}

TEST(OsVersionTest, LinuxName) {
    const std::pair<const char*, const char*> cases[] = {{"6.18.0-rc1", "Linux6.18"},
                                                         {"5.4.0-150-generic", "Linux5.4"},
                                                         {"10.2", "Linux10.2"},
                                                         {"6", "Linux"},
                                                         {"6.", "Linux"},
                                                         {"x6.1", "Linux"},
                                                         {"", "Linux"}};
    for (const auto& [release, name] : cases) {
        EXPECT_EQ(LinuxVersionName(release), name);
    }
    EXPECT_TRUE(std::regex_match(GetOsPlatformVersionText(), std::regex("Linux[0-9]+\\.[0-9]+")));
}

}  // namespace
}  // namespace qzdata_report_kelvo
