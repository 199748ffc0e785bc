#include "port/hardware_info.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>

namespace qzdata_report_kelvo {
namespace port {
namespace {

using Clock = std::chrono::steady_clock;

// Both adapter lists: 6-byte addresses in ascending index order; every NetBIOS adapter is one
// of the adapter list's, under the same address.
TEST(HardwareInfoWindowsTest, AdapterListsAgree) {
    std::vector<NetworkAdapter> lanas{{99, {1}}}, adapters{{99, {1}}};
    const bool lanasListed = ListNetworkInterfaces(lanas);
    ASSERT_TRUE(ListLinkLayerAdapters(adapters));
    for (const auto* list : {&lanas, &adapters}) {
        for (size_t i = 0; i < list->size(); ++i) {
            EXPECT_EQ((*list)[i].address.size(), 6u);
            if (i > 0) {
                EXPECT_LT((*list)[i - 1].index, (*list)[i].index);
            }
        }
    }
    if (!lanasListed) {
        EXPECT_TRUE(lanas.empty());
    }
    for (const NetworkAdapter& lana : lanas) {
        EXPECT_TRUE(std::any_of(adapters.begin(), adapters.end(),
                                [&](const NetworkAdapter& a) { return a.address == lana.address; }))
            << "LANA " << lana.index;
    }
}

// Disks and firmware answer within a bound, with whole identify records and a whole view (or
// nothing, where the process may not read them).
TEST(HardwareInfoWindowsTest, RawDiskAndFirmwareShapes) {
    const Clock::time_point start = Clock::now();
    const std::vector<DiskIdentity> disks = ListDisks();
    const FirmwareAnswer firmware = ReadFirmware();
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(10));
    EXPECT_LE(disks.size(), 8u);
    for (const DiskIdentity& disk : disks)
        EXPECT_EQ(disk.identify.size(), 512u);
    EXPECT_TRUE(firmware.memoryView.empty() || firmware.memoryView.size() == 0xFFFF);
    EXPECT_EQ(GetKernelRelease(), "");
}

// The version facts agree with the system's own answers; below 6.2 the system does not hide
// its version, so ntdll's product version is the same one.
TEST(HardwareInfoWindowsTest, VersionFacts) {
    WindowsVersionFacts facts;
    facts.ntdllProductVersionMs = 77;
    ASSERT_TRUE(QueryWindowsVersion(facts));
    OSVERSIONINFOEXW system = {};
    system.dwOSVersionInfoSize = sizeof system;
    ASSERT_TRUE(::GetVersionExW(reinterpret_cast<OSVERSIONINFOW*>(&system)));
    SYSTEM_INFO native = {};
    ::GetNativeSystemInfo(&native);
    EXPECT_TRUE(facts.versionKnown && facts.extendedRecord);
    EXPECT_EQ(facts.platformId, 2u);
    EXPECT_EQ(facts.major, system.dwMajorVersion);
    EXPECT_EQ(facts.minor, system.dwMinorVersion);
    EXPECT_EQ(facts.productType, system.wProductType);
    EXPECT_EQ(facts.processorArchitecture, native.wProcessorArchitecture);
    EXPECT_EQ(facts.serverR2, ::GetSystemMetrics(SM_SERVERR2));
    ASSERT_TRUE(facts.ntdllVersionKnown);
    if (facts.major * 100 + facts.minor < 602) {
        EXPECT_EQ(facts.ntdllProductVersionMs, facts.major << 16 | facts.minor);
    } else {
        EXPECT_GE(facts.ntdllProductVersionMs, 6u << 16 | 2);
    }
}

std::vector<std::vector<std::string>> Rows(ManagementTable table) {
    std::vector<std::vector<std::string>> rows{{"stale"}};
    QueryManagementRows(table, rows);
    return rows;
}

std::vector<std::string> Values(SerialFact fact) {
    std::vector<std::string> values{"stale"};
    QuerySerialFact(fact, values);
    return values;
}

// Queries answer only on a thread with an open session, and replace what they are given.
TEST(HardwareInfoWindowsTest, SessionsBelongToTheirThread) {
    EXPECT_TRUE(Rows(ManagementTable::kBios).empty());
    EXPECT_TRUE(Values(SerialFact::kSystemSerial).empty());
    ASSERT_TRUE(OpenManagementSession());
    ASSERT_TRUE(OpenManagementSession());  // reopening replaces the session
    EXPECT_EQ(Rows(ManagementTable::kBios).size(), 1u);
    std::thread([] { EXPECT_TRUE(Rows(ManagementTable::kBios).empty()); }).join();
    CloseManagementSession();
    EXPECT_TRUE(Rows(ManagementTable::kBios).empty());
    std::thread([] {
        ASSERT_TRUE(OpenManagementSession());
        EXPECT_EQ(Values(SerialFact::kSystemSerial).size(), 1u);
        CloseManagementSession();
    }).join();
}

// Rows have one value per property of their table; the facts match the system's own answers.
TEST(HardwareInfoWindowsTest, RowsAndFacts) {
    ASSERT_TRUE(OpenManagementSession());
    const std::pair<ManagementTable, size_t> widths[] = {{ManagementTable::kDiskDrives, 2},
                                                         {ManagementTable::kBios, 2},
                                                         {ManagementTable::kBaseBoard, 3}};
    for (const auto& [table, width] : widths) {
        for (const auto& row : Rows(table))
            EXPECT_EQ(row.size(), width) << static_cast<int>(table);
    }
    DWORD serial = 0;
    char text[16];
    ASSERT_TRUE(
        ::GetVolumeInformationW(L"C:\\", nullptr, 0, &serial, nullptr, nullptr, nullptr, 0));
    std::snprintf(text, sizeof text, "%08X", static_cast<unsigned>(serial));
    const std::vector<std::string> volumes = Values(SerialFact::kVolumeSerial);
    EXPECT_NE(std::find(volumes.begin(), volumes.end(), text), volumes.end()) << text;
    for (SerialFact fact :
         {SerialFact::kDiskDeviceIds, SerialFact::kSoundDeviceIds, SerialFact::kVideoDeviceIds}) {
        for (const std::string& id : Values(fact))
            EXPECT_NE(id.find('\\'), std::string::npos) << id;  // a device instance path
    }
    std::vector<std::vector<uint8_t>> addresses{{1}};
    QueryPciAdapterAddresses(addresses);
    for (const auto& address : addresses)
        EXPECT_TRUE(address.size() == 6 || address.size() == 8);
    CloseManagementSession();
}

}  // namespace
}  // namespace port
}  // namespace qzdata_report_kelvo
