#include "strategy/address_list.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "port/clock.h"

namespace qzdata_report_kelvo {
namespace {

TEST(CAddressListTest, PickFromOneEntryAlwaysGivesIt) {
    CAddressList list;
    list.Assign({"10.0.0.7"});
    for (int i = 0; i < 50; ++i) {
        std::string address;
        list.PickRandom(address);
        ASSERT_EQ(address, "10.0.0.7");
    }
}

TEST(CAddressListTest, PickFromEmptyListEmptiesTheOutput) {
    CAddressList list;
    std::string address = "stale";
    list.PickRandom(address);
    EXPECT_EQ(address, "");

    list.Assign({"10.0.0.1", "10.0.0.2"});
    list.Assign({});
    address = "stale";
    list.PickRandom(address);
    EXPECT_EQ(address, "");
    EXPECT_TRUE(list.Copy().empty());
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
        if (port::GetTickCount() != before) {
            continue;
        }
        ++pinned;
        EXPECT_EQ(address, entries[before % entries.size()]);
    }
    EXPECT_GT(pinned, 0);
}

TEST(CAddressListTest, PickDuringReplacementSeesOneWholeList) {
    const std::vector<std::string> first = {"10.1.0.1", "10.1.0.2", "10.1.0.3"};
    const std::vector<std::string> second = {"10.2.0.1"};
    CAddressList list;
    list.Assign(first);
    std::atomic<bool> stop{false};
    std::atomic<int> foreign{0};
    std::thread picker([&] {
        while (!stop.load()) {
            std::string address;
            list.PickRandom(address);
            const bool known = std::find(first.begin(), first.end(), address) != first.end() ||
                               address == second[0];
            if (!known) {
                foreign.fetch_add(1);
            }
        }
    });
    for (int i = 0; i < 2000; ++i) {
        list.Assign(i % 2 == 0 ? second : first);
    }
    stop.store(true);
    picker.join();
    EXPECT_EQ(foreign.load(), 0);
}

}  // namespace
}  // namespace qzdata_report_kelvo
