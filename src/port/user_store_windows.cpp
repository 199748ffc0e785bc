#include "port/user_store.h"

#include <windows.h>

#include <cstring>
#include <memory>
#include <new>
#include <string>

namespace qzdata_report_kelvo {
namespace port {

class UserKey {
  public:
    explicit UserKey(HKEY handle) : handle(handle) {}
    ~UserKey() { RegCloseKey(handle); }
    UserKey(const UserKey&) = delete;
    UserKey& operator=(const UserKey&) = delete;

    const HKEY handle;
};

namespace {

// Paths and names follow the same rules on every platform, so that one accepted here is
// accepted everywhere. An empty path would open the user's root itself, an empty name the
// key's default value, and a zero byte would cut the text the registry sees.
bool IsKeyPath(const std::string& path) {
    if (path.find('\0') != std::string::npos) {
        return false;
    }
    for (size_t start = 0; start <= path.size();) {
        size_t end = path.find('\\', start);
        if (end == std::string::npos) {
            end = path.size();
        }
        const std::string level = path.substr(start, end - start);
        if (level.empty() || level == "." || level == ".." ||
            level.find('/') != std::string::npos) {
            return false;
        }
        start = end + 1;
    }
    return true;
}

bool IsValueName(const std::string& name) {
    return !name.empty() && name[0] != '.' && name.find('/') == std::string::npos &&
           name.find('\0') == std::string::npos;
}

// The registry holds each handle to these rights: a query through a key opened for writing
// only, or a write through one opened for queries only, fails with access denied.
REGSAM Rights(UserKeyAccess access) {
    switch (access) {
        case UserKeyAccess::kQuery:
            return KEY_READ;
        case UserKeyAccess::kWrite:
            return KEY_WRITE;
        case UserKeyAccess::kAll:
            break;
    }
    return KEY_ALL_ACCESS;
}

}  // namespace

bool OpenUserKey(const std::string& path, UserKeyAccess access, UserKey** key) {
    *key = nullptr;
    HKEY handle = nullptr;
    if (!IsKeyPath(path) || RegOpenKeyExA(HKEY_CURRENT_USER, path.c_str(), 0, Rights(access),
                                          &handle) != ERROR_SUCCESS) {
        return false;
    }
    *key = new UserKey(handle);
    return true;
}

bool CreateUserKey(const std::string& path, UserKeyAccess access, UserKey** key) {
    *key = nullptr;
    HKEY handle = nullptr;
    if (!IsKeyPath(path) ||
        RegCreateKeyExA(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                        Rights(access), nullptr, &handle, nullptr) != ERROR_SUCCESS) {
        return false;
    }
    *key = new UserKey(handle);
    return true;
}

void CloseUserKey(UserKey* key) {
    delete key;
}

UserQueryResult QueryUserValue(UserKey* key, const std::string& name, UserValueType* type,
                               void* buffer, uint32_t* size) {
    if (type != nullptr) {
        *type = UserValueType::kNone;
    }
    if (key == nullptr || !IsValueName(name)) {
        return UserQueryResult::kFailed;
    }
    // The registry writes a zero behind a text that ends without one, when the buffer has room
    // for it. The value is read aside, so that the caller's bytes beyond it stay as they were.
    const DWORD capacity = buffer == nullptr ? 0 : *size;
    std::unique_ptr<BYTE[]> aside(new (std::nothrow) BYTE[static_cast<size_t>(capacity) + 1]);
    if (!aside) {
        return UserQueryResult::kFailed;
    }
    DWORD storedType = REG_NONE;
    DWORD stored = capacity;
    const LSTATUS status =
        RegQueryValueExA(key->handle, name.c_str(), nullptr, &storedType, aside.get(), &stored);
    UserQueryResult result;
    if (status == ERROR_SUCCESS && stored <= capacity) {
        if (stored > 0) {
            std::memcpy(buffer, aside.get(), stored);
        }
        result = UserQueryResult::kSuccess;
    } else if (status == ERROR_MORE_DATA) {
        result = UserQueryResult::kMoreData;
    } else {
        return status == ERROR_FILE_NOT_FOUND ? UserQueryResult::kNotFound
                                              : UserQueryResult::kFailed;
    }
    *size = stored;
    if (type != nullptr) {
        *type = storedType == REG_SZ ? UserValueType::kText : UserValueType::kOther;
    }
    return result;
}

bool SetUserTextValue(UserKey* key, const std::string& name, const void* data, uint32_t size) {
    if (key == nullptr || !IsValueName(name)) {
        return false;
    }
    // The registry adds a zero to a text whose last byte is none when the byte behind it is one,
    // and reads that byte to find out. A copy ending in a byte that is no zero keeps the read in
    // bounds and the stored size the caller's.
    const BYTE* bytes = static_cast<const BYTE*>(data);
    std::unique_ptr<BYTE[]> copy;
    if (size > 0 && bytes[size - 1] != 0) {
        copy.reset(new (std::nothrow) BYTE[static_cast<size_t>(size) + 1]);
        if (!copy) {
            return false;
        }
        std::memcpy(copy.get(), bytes, size);
        copy[size] = 1;
        bytes = copy.get();
    }
    return RegSetValueExA(key->handle, name.c_str(), 0, REG_SZ, bytes, size) == ERROR_SUCCESS;
}

}  // namespace port
}  // namespace qzdata_report_kelvo
