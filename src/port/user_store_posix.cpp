#include "port/user_store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <utility>

namespace qzdata_report_kelvo {
namespace port {

class UserKey {
  public:
    UserKey(std::string folder, UserKeyAccess access) : folder(std::move(folder)), access(access) {}

    const std::string folder;
    const UserKeyAccess access;
};

namespace {

std::string StoreRoot() {
    // A relative config home is invalid by the XDG rules, and would move with the working folder.
    const char* configHome = std::getenv("XDG_CONFIG_HOME");
    if (configHome != nullptr && configHome[0] == '/') {
        return configHome;
    }
    const char* home = std::getenv("HOME");
    if (home != nullptr && home[0] != '\0') {
        return std::string(home) + "/.config";
    }
    return std::string();
}

// The folder of the key `path`; empty when there is no root, or when a level could leave it.
std::string KeyFolder(const std::string& path) {
    std::string folder = StoreRoot();
    if (folder.empty()) {
        return folder;
    }
    for (size_t start = 0; start <= path.size();) {
        size_t end = path.find('\\', start);
        if (end == std::string::npos) {
            end = path.size();
        }
        std::string level = path.substr(start, end - start);
        if (level.empty() || level == "." || level == ".." ||
            level.find('/') != std::string::npos) {
            return std::string();
        }
        // Registry key names are case-insensitive; one spelling per key keeps one folder per key.
        for (char& c : level) {
            if (c >= 'A' && c <= 'Z') {
                c = static_cast<char>(c - 'A' + 'a');
            }
        }
        folder += '/';
        folder += level;
        start = end + 1;
    }
    return folder;
}

// Names that start with a dot are left to the temporary files of SetUserTextValue.
bool IsValueName(const std::string& name) {
    return !name.empty() && name[0] != '.' && name.find('/') == std::string::npos;
}

bool MayQuery(UserKeyAccess access) {
    return access != UserKeyAccess::kWrite;
}

bool MayWrite(UserKeyAccess access) {
    return access != UserKeyAccess::kQuery;
}

// Repeats `step(done)`, a read or write of the bytes after the first `done`, until all `size`
// bytes are moved. An interrupted step is repeated; an error or an early end fails.
template <class Step>
bool MoveAll(size_t size, Step step) {
    for (size_t done = 0; done < size;) {
        const ssize_t moved = step(done);
        if (moved < 0 && errno == EINTR) {
            continue;
        }
        if (moved <= 0) {
            return false;
        }
        done += static_cast<size_t>(moved);
    }
    return true;
}

}  // namespace

bool OpenUserKey(const std::string& path, UserKeyAccess access, UserKey** key) {
    *key = nullptr;
    const std::string folder = KeyFolder(path);
    struct stat info;
    if (folder.empty() || ::stat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
        return false;
    }
    const int mode = X_OK | (MayQuery(access) ? R_OK : 0) | (MayWrite(access) ? W_OK : 0);
    if (::access(folder.c_str(), mode) != 0) {
        return false;
    }
    *key = new UserKey(folder, access);
    return true;
}

bool CreateUserKey(const std::string& path, UserKeyAccess access, UserKey** key) {
    const std::string folder = KeyFolder(path);
    // Levels that exist keep their mode; a level in the way that is no folder fails the open.
    for (size_t slash = folder.find('/', 1); slash != std::string::npos;
         slash = folder.find('/', slash + 1)) {
        ::mkdir(folder.substr(0, slash).c_str(), 0700);
    }
    if (!folder.empty()) {
        ::mkdir(folder.c_str(), 0700);
    }
    return OpenUserKey(path, access, key);
}

void CloseUserKey(UserKey* key) {
    delete key;
}

UserQueryResult QueryUserValue(UserKey* key, const std::string& name, UserValueType* type,
                               void* buffer, uint32_t* size) {
    if (type != nullptr) {
        *type = UserValueType::kNone;
    }
    if (key == nullptr || !MayQuery(key->access) || !IsValueName(name)) {
        return UserQueryResult::kFailed;
    }
    const int fd = ::open((key->folder + '/' + name).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return errno == ENOENT ? UserQueryResult::kNotFound : UserQueryResult::kFailed;
    }
    UserQueryResult result = UserQueryResult::kFailed;
    struct stat info;
    if (::fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_size <= UINT32_MAX) {
        const auto stored = static_cast<uint32_t>(info.st_size);
        const auto readStep = [&](size_t done) {
            return ::read(fd, static_cast<char*>(buffer) + done, stored - done);
        };
        if (stored > *size) {
            result = UserQueryResult::kMoreData;
        } else if (MoveAll(stored, readStep)) {
            result = UserQueryResult::kSuccess;
        }
        if (result != UserQueryResult::kFailed) {
            *size = stored;
            // Only texts are ever stored here, so a file's type is always text.
            if (type != nullptr) {
                *type = UserValueType::kText;
            }
        }
    }
    ::close(fd);
    return result;
}

bool SetUserTextValue(UserKey* key, const std::string& name, const void* data, uint32_t size) {
    if (key == nullptr || !MayWrite(key->access) || !IsValueName(name)) {
        return false;
    }
    // A reader sees the old bytes or the new ones, never a part: the value is written aside,
    // made durable, then renamed over the old one.
    // mkostemp creates the file with mode 0600: the value is private from its first byte.
    std::string temporary = key->folder + "/." + name + ".XXXXXX";
    const int fd = ::mkostemp(&temporary[0], O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    const auto writeStep = [&](size_t done) {
        return ::write(fd, static_cast<const char*>(data) + done, size - done);
    };
    bool stored = MoveAll(size, writeStep) && ::fsync(fd) == 0;
    stored = ::close(fd) == 0 && stored;
    if (stored && ::rename(temporary.c_str(), (key->folder + '/' + name).c_str()) == 0) {
        return true;
    }
    ::unlink(temporary.c_str());
    return false;
}

}  // namespace port
}  // namespace qzdata_report_kelvo
