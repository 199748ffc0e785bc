#include "port/log_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>

namespace qzdata_report_kelvo {
namespace port {

bool LockedFile::Open(const std::string& path) {
    Close();
    const int descriptor = ::open(path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (descriptor < 0) {
        return false;
    }
    // An advisory lock stands in for the share mode that denies other writers: it belongs to
    // this open, so a second open of the same file is refused in this process as in others.
    if (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        ::close(descriptor);
        return false;
    }
    file = ::fdopen(descriptor, "a+b");
    if (file == nullptr) {
        ::close(descriptor);
        return false;
    }
    return true;
}

void LockedFile::Close() {
    if (file != nullptr) {
        std::fclose(file);
        file = nullptr;
    }
}

int64_t LockedFile::Size() {
    struct stat info;
    if (file == nullptr || std::fflush(file) != 0 || ::fstat(::fileno(file), &info) != 0) {
        return -1;
    }
    return static_cast<int64_t>(info.st_size);
}

bool LockedFile::Append(const std::string& bytes) {
    if (file == nullptr) {
        return false;
    }
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    return std::fflush(file) == 0 && written;
}

LockedFile::ReadResult LockedFile::ReadPiece(size_t limit, std::string& piece) {
    piece.clear();
    if (file == nullptr || limit < 2) {
        return ReadResult::kError;
    }
    piece.resize(limit);
    if (std::fgets(&piece[0], static_cast<int>(limit), file) == nullptr) {
        piece.clear();
        return std::ferror(file) != 0 ? ReadResult::kError : ReadResult::kEnd;
    }
    // fgets ends at a newline; a NUL byte inside a line shortens the piece, which then no longer
    // parses and is dropped like any other malformed line.
    piece.resize(std::char_traits<char>::length(piece.c_str()));
    return ReadResult::kData;
}

bool MakeDirectoryPrivate(const std::string& path) {
    return ::chmod(path.c_str(), 0700) == 0;
}

std::vector<std::string> ListFiles(const std::string& folder, const std::string& pattern) {
    std::vector<std::string> names;
    DIR* dir = ::opendir(folder.c_str());
    if (dir == nullptr) {
        return names;
    }
    while (const dirent* entry = ::readdir(dir)) {
        if (::fnmatch(pattern.c_str(), entry->d_name, FNM_PERIOD) != 0) {
            continue;
        }
        struct stat info;
        const std::string path = folder + entry->d_name;
        if (::stat(path.c_str(), &info) == 0 && !S_ISDIR(info.st_mode)) {
            names.push_back(entry->d_name);
        }
    }
    ::closedir(dir);
    return names;
}

std::string FormatLocalDate(int64_t seconds) {
    const time_t value = static_cast<time_t>(seconds);
    struct tm fields;
    char text[16];
    if (localtime_r(&value, &fields) == nullptr ||
        std::strftime(text, sizeof(text), "%Y%m%d", &fields) == 0) {
        return std::string();
    }
    return text;
}

}  // namespace port
}  // namespace qzdata_report_kelvo
