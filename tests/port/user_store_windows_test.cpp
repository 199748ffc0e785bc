#include "port/user_store.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <tuple>

#include "identity/machine_id_store.h"

namespace qzdata_report_kelvo {
namespace {

using namespace std::string_literals;
using port::UserQueryResult;
using port::UserValueType;

// Every test runs against a user root of its own: the process's HKEY_CURRENT_USER is mapped to a
// fresh key, so the code under test reaches the registry through its usual root.
struct UserStoreWindowsTest : ::testing::Test {
    void SetUp() override {
        RegDeleteTreeA(HKEY_CURRENT_USER, kRoot);  // left by a run that did not end
        ASSERT_EQ(RegCreateKeyExA(HKEY_CURRENT_USER, kRoot, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                                  &root, nullptr),
                  ERROR_SUCCESS);
        ASSERT_EQ(RegOverridePredefKey(HKEY_CURRENT_USER, root), ERROR_SUCCESS);
    }
    void TearDown() override {
        RegOverridePredefKey(HKEY_CURRENT_USER, nullptr);
        RegCloseKey(root);
        RegDeleteTreeA(HKEY_CURRENT_USER, kRoot);
    }
    // The stored bytes of value `name` of `path` (empty when absent) and its type.
    static std::pair<std::string, DWORD> Read(const char* path, const char* name) {
        char buffer[64];
        DWORD size = sizeof(buffer), type = REG_NONE;
        HKEY key = nullptr;
        RegOpenKeyExA(HKEY_CURRENT_USER, path, 0, KEY_QUERY_VALUE, &key);
        if (RegQueryValueExA(key, name, nullptr, &type, reinterpret_cast<BYTE*>(buffer), &size) !=
            ERROR_SUCCESS) {
            size = 0;
        }
        RegCloseKey(key);
        return {std::string(buffer, size), type};
    }

    static constexpr char kRoot[] = "Software\\qz_user_store_test";
    HKEY root = nullptr;
};

// Results, sizes and types of queries, exact sizes of writes, access rights, path and name
// rules, and key paths in any case.
TEST_F(UserStoreWindowsTest, QueriesAndWrites) {
    port::UserKey* key = reinterpret_cast<port::UserKey*>(1);
    EXPECT_FALSE(port::OpenUserKey("Software\\norvik\\a", port::UserKeyAccess::kAll, &key));
    EXPECT_EQ(key, nullptr);
    for (const char* bad : {"", "Software\\\\norvik", "Software\\norvik\\", "a\\..", "a/b"}) {
        EXPECT_FALSE(port::CreateUserKey(bad, port::UserKeyAccess::kAll, &key)) << bad;
    }
    ASSERT_TRUE(port::CreateUserKey("Software\\norvik\\a\\b", port::UserKeyAccess::kWrite, &key));
    EXPECT_TRUE(port::SetUserTextValue(key, "t", "abc\0", 4));
    EXPECT_TRUE(port::SetUserTextValue(key, "t", "xy\0", 3));  // replaced as a whole
    EXPECT_TRUE(port::SetUserTextValue(key, "u", "abc", 3));   // no zero counted: none added
    EXPECT_FALSE(port::SetUserTextValue(key, "", "e", 2));
    char buffer[8];
    uint32_t size = sizeof(buffer);
    EXPECT_EQ(port::QueryUserValue(key, "t", nullptr, buffer, &size), UserQueryResult::kFailed);
    port::CloseUserKey(key);
    EXPECT_EQ(Read("Software\\norvik\\a\\b", "u"), std::make_pair("abc"s, DWORD{REG_SZ}));
    HKEY raw = nullptr;
    RegOpenKeyExA(HKEY_CURRENT_USER, "Software\\norvik\\a\\b", 0, KEY_SET_VALUE, &raw);
    RegSetValueExA(raw, "x", 0, REG_EXPAND_SZ, reinterpret_cast<const BYTE*>("ab"), 3);
    RegCloseKey(raw);

    ASSERT_TRUE(port::OpenUserKey("SOFTWARE\\Norvik\\A\\B", port::UserKeyAccess::kQuery, &key));
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

// The kept ids land as texts of 33 bytes, terminating zero included; a kept id of that size
// counts as absent and is replaced.
TEST_F(UserStoreWindowsTest, MachineIdsLandAsTextsWithTheirZero) {
    const std::string id(32, 'a'), other(32, 'b');
    EXPECT_EQ(ObtainStoredMachineId([&] { return id; }), id);
    for (const char* path :
         {"SOFTWARE\\norvik\\qzdata_report", "Software\\Norvik\\QZDATA_REPORT_KELVO"}) {
        EXPECT_EQ(Read(path, "mid"), std::make_pair(id + '\0', DWORD{REG_SZ})) << path;
    }
    EXPECT_EQ(ObtainStoredMachineId([&] { return other; }), other);
}

}  // namespace
}  // namespace qzdata_report_kelvo
