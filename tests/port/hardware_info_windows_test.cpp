#include "port/hardware_info.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <thread>

namespace qzdata_report_kelvo {
namespace port {
namespace {

// Both adapter lists: 6-byte addresses in ascending index order; every NetBIOS adapter is one
// of the adapter list's, under the same address.
TEST(HardwareInfoWindowsTest, AdapterListsAgree) {
    std::vector<NetworkAdapter> lanas{{99, {1}}}, adapters{{99, {1}}};
    EXPECT_TRUE(ListNetworkInterfaces(lanas) || lanas.empty());
    ASSERT_TRUE(ListLinkLayerAdapters(adapters));
    for (const auto* list : {&lanas, &adapters}) {
        for (size_t i = 0; i < list->size(); ++i) {
            EXPECT_EQ((*list)[i].address.size(), 6u);
            EXPECT_TRUE(i == 0 || (*list)[i - 1].index < (*list)[i].index);
        }
    }
    for (const NetworkAdapter& lana : lanas) {
        EXPECT_TRUE(std::any_of(adapters.begin(), adapters.end(),
                                [&](const NetworkAdapter& a) { return a.address == lana.address; }))
            << "LANA " << lana.index;
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

// Queries answer only on a thread with an open session and replace what they are given; rows
// have one value per property of their table; the volume serials hold the system's own.
TEST(HardwareInfoWindowsTest, SessionsRowsAndFacts) {
    EXPECT_TRUE(Rows(ManagementTable::kBios).empty());
    EXPECT_TRUE(Values(SerialFact::kSystemSerial).empty());
    ASSERT_TRUE(OpenManagementSession());
    ASSERT_TRUE(OpenManagementSession());  // reopening replaces the session
    EXPECT_EQ(Rows(ManagementTable::kBios).size(), 1u);
    std::thread([] { EXPECT_TRUE(Rows(ManagementTable::kBios).empty()); }).join();
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
    CloseManagementSession();
    EXPECT_TRUE(Rows(ManagementTable::kBios).empty());
}

}  // namespace
}  // namespace port
}  // namespace qzdata_report_kelvo
