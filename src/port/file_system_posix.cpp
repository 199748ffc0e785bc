#include "port/file_system.h"

#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>

namespace qzdata_report_kelvo {
namespace port {

PathKind GetPathKind(const std::string& path) {
    struct stat info;
    if (path.empty() || ::stat(path.c_str(), &info) != 0) {
        return PathKind::kMissing;
    }
    return S_ISDIR(info.st_mode) ? PathKind::kDirectory : PathKind::kOther;
}

bool RemoveFile(const std::string& path) {
    return !path.empty() && ::unlink(path.c_str()) == 0;
}

MakeDirectoryResult MakeDirectory(const std::string& path) {
    // The umask narrows the mode, as the default security of a new Windows directory would.
    if (::mkdir(path.c_str(), 0777) == 0) {
        return MakeDirectoryResult::kCreated;
    }
    return errno == EEXIST ? MakeDirectoryResult::kAlreadyExists : MakeDirectoryResult::kFailed;
}

}  // namespace port
}  // namespace qzdata_report_kelvo
