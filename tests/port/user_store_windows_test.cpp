#include "port/user_store.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <tuple>

#include "support/test_platform.h"

namespace qzdata_report_kelvo {
namespace {

using namespace std::string_literals;
using port::UserQueryResult;
using port::UserValueType;

// Runs against a user root of its own, which the code under test reaches through its usual root.
struct UserStoreWindowsTest : ::testing::Test {
    void SetUp() override { qz_test::IsolateUserStore(); }
    void TearDown() override { qz_test::RestoreUserStore(); }
};

// Results, sizes and types of queries, exact sizes of writes, access rights and path and name
// rules.
TEST_F(UserStoreWindowsTest, QueriesAndWrites) {
    port::UserKey* key = reinterpret_cast<port::UserKey*>(1);
    EXPECT_FALSE(port::OpenUserKey("Software\\norvik\\a", port::UserKeyAccess::kAll, &key));
    EXPECT_EQ(key, nullptr);
    for (const char* bad : {"", "Software\\\\norvik", "Software\\norvik\\", "a\\..", "a/b"})
        EXPECT_FALSE(port::CreateUserKey(bad, port::UserKeyAccess::kAll, &key)) << bad;
    ASSERT_TRUE(port::CreateUserKey("Software\\norvik\\a\\b", port::UserKeyAccess::kWrite, &key));
    EXPECT_TRUE(port::SetUserTextValue(key, "t", "xy\0", 3));
    EXPECT_TRUE(port::SetUserTextValue(key, "u", "abc", 3));  // no zero counted: none added
    EXPECT_FALSE(port::SetUserTextValue(key, "", "e", 2));
    char buffer[8];
    uint32_t size = sizeof(buffer);
    EXPECT_EQ(port::QueryUserValue(key, "t", nullptr, buffer, &size), UserQueryResult::kFailed);
    port::CloseUserKey(key);
    ASSERT_TRUE(port::OpenUserKey("Software\\norvik\\a", port::UserKeyAccess::kAll, &key));
    EXPECT_TRUE(port::SetUserTextValue(key, "v", "", 0));
    port::CloseUserKey(key);
    RegSetKeyValueA(HKEY_CURRENT_USER, "Software\\norvik\\a\\b", "x", REG_EXPAND_SZ, "ab", 3);

    ASSERT_TRUE(port::OpenUserKey("Software\\norvik\\a\\b", port::UserKeyAccess::kQuery, &key));
    EXPECT_FALSE(port::SetUserTextValue(key, "t", "z", 2));
    // Value, buffer size; result, size after, type, buffer after (bytes behind the value kept).
    const std::tuple<const char*, uint32_t, UserQueryResult, uint32_t, UserValueType, std::string>
        cases[] = {
            {"t", 8, UserQueryResult::kSuccess, 3, UserValueType::kText, "xy\0----"s},
            {"t", 3, UserQueryResult::kSuccess, 3, UserValueType::kText, "xy\0----"s},
            {"t", 2, UserQueryResult::kMoreData, 3, UserValueType::kText, ""},
            {"u", 8, UserQueryResult::kSuccess, 3, UserValueType::kText, "abc----"},
            {"x", 8, UserQueryResult::kSuccess, 3, UserValueType::kOther, "ab\0----"s},
            {"none", 8, UserQueryResult::kNotFound, 8, UserValueType::kNone, ""},
            {".t", 8, UserQueryResult::kFailed, 8, UserValueType::kNone, ""},
        };
    for (const auto& [name, room, result, stored, type, after] : cases) {
        std::string bytes = "-------";
        size = room;
        UserValueType seen = UserValueType::kOther;
        EXPECT_EQ(port::QueryUserValue(key, name, &seen, &bytes[0], &size), result) << name;
        EXPECT_EQ(std::make_tuple(size, seen), std::make_tuple(stored, type)) << name;
        EXPECT_TRUE(after.empty() || bytes == after) << name;
    }
    port::CloseUserKey(key);
}

}  // namespace
}  // namespace qzdata_report_kelvo
