// File-system seam: what a path is, and directory creation. Paths are narrow strings in the
// platform's own form.
#pragma once

#include <string>

namespace qzdata_report_kelvo {
namespace port {

enum class PathKind {
    kMissing,  // nothing there, or it cannot be examined
    kDirectory,
    kOther,  // a plain file or anything else that is not a directory
};

// What stands at `path` (following symbolic links). Any thread.
PathKind GetPathKind(const std::string& path);

enum class MakeDirectoryResult {
    kCreated,
    kAlreadyExists,  // something (a directory or not) already stands at `path`
    kFailed,         // missing parent, no permission, or any other error
};

// Deletes the file at `path`. False when it does not exist or cannot be deleted. Any thread.
bool RemoveFile(const std::string& path);

// Creates the one directory `path`; its parent must exist. Any thread.
MakeDirectoryResult MakeDirectory(const std::string& path);

}  // namespace port
}  // namespace qzdata_report_kelvo
