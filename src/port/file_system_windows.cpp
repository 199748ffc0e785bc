#include "port/file_system.h"

#include <windows.h>

namespace qzdata_report_kelvo {
namespace port {

namespace {

// The attributes of what a reparse point (a symbolic link or junction) leads to; false when it
// leads nowhere.
bool TargetAttributes(const std::string& path, DWORD* attributes) {
    HANDLE handle =
        ::CreateFileA(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                      nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        return false;
    }
    BY_HANDLE_FILE_INFORMATION info;
    const bool known = ::GetFileInformationByHandle(handle, &info) != 0;
    ::CloseHandle(handle);
    if (known) {
        *attributes = info.dwFileAttributes;
    }
    return known;
}

}  // namespace

PathKind GetPathKind(const std::string& path) {
    if (path.empty()) {
        return PathKind::kMissing;
    }
    DWORD attributes = ::GetFileAttributesA(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        return PathKind::kMissing;
    }
    // The attributes above are the link's own; a link is judged by its target.
    if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 && !TargetAttributes(path, &attributes)) {
        return PathKind::kMissing;
    }
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? PathKind::kDirectory : PathKind::kOther;
}

bool RemoveFile(const std::string& path) {
    return !path.empty() && ::DeleteFileA(path.c_str()) != 0;
}

MakeDirectoryResult MakeDirectory(const std::string& path) {
    if (::CreateDirectoryA(path.c_str(), nullptr)) {
        return MakeDirectoryResult::kCreated;
    }
    return ::GetLastError() == ERROR_ALREADY_EXISTS ? MakeDirectoryResult::kAlreadyExists
                                                    : MakeDirectoryResult::kFailed;
}

}  // namespace port
}  // namespace qzdata_report_kelvo
