#include "strategy/address_list.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "port/env.h"

namespace qzdata_report_kelvo {
namespace {

TEST(CAddressListTest, OneEntryIsAlwaysPickedAndAnEmptyListGivesNothing) {
    CAddressList list;
    std::string address = "stale";
    list.PickRandom(address);
    EXPECT_EQ(address, "");

    list.Assign({"10.0.0.7"});
    for (int i = 0; i < 20; ++i) {
        list.PickRandom(address);
        ASSERT_EQ(address, "10.0.0.7");
    }
    list.Assign({});
    list.PickRandom(address);
    EXPECT_EQ(address, "");
}

TEST(CAddressListTest, PickIsTheTickCountModuloTheSize) {
    const std::vector<std::string> entries = {"10.0.0.1", "10.0.0.2", "10.0.0.3", "10.0.0.4",
                                              "10.0.0.5", "10.0.0.6", "10.0.0.7"};
    CAddressList list;
    list.Assign(entries);
    EXPECT_EQ(list.Copy(), entries);
    // Only a pick with no tick between the readings around it pins the index.
    int pinned = 0;
    for (int i = 0; i < 2000 && pinned < 20; ++i) {
        const uint32_t before = port::GetTickCount();
        std::string address;
        list.PickRandom(address);
        if (port::GetTickCount() == before) {
            ++pinned;
            EXPECT_EQ(address, entries[before % entries.size()]);
        }
    }
    EXPECT_GT(pinned, 0);
}

}  // namespace
}  // namespace qzdata_report_kelvo
