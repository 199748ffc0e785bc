// Seam of the self-reporting log files: a file that one opener at a time holds, with other
// openers refused while it is held; the listing of a folder by a name pattern; and the local
// date of a time stamp.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace qzdata_report_kelvo {
namespace port {

// One held file or none. Writers and the reader of log files open with the same exclusive
// lock, in this process or another, so a file that one of them holds is refused to the others
// until it is closed. Not shared between threads; the owner closes it, at the latest when it is
// destroyed.
class LockedFile {
  public:
    // What one ReadPiece gave.
    enum class ReadResult {
        kData,   // `piece` holds bytes: up to `limit` - 1, or through the next newline
        kEnd,    // the end of the file, nothing read
        kError,  // a read failure, nothing usable read
    };

    LockedFile() = default;
    ~LockedFile() { Close(); }
    LockedFile(const LockedFile&) = delete;
    LockedFile& operator=(const LockedFile&) = delete;

    // Opens `path` for reading and appending, creating it private to the user (0600) when it
    // is missing, and takes the lock. False, with nothing open, when the file cannot be opened
    // or another opener holds it. Closes what was open first.
    bool Open(const std::string& path);
    bool IsOpen() const { return file != nullptr; }
    void Close();

    // The length of the file in bytes; -1 when closed or unknown.
    int64_t Size();
    // Appends all of `bytes` at the end of the file and flushes them to the system. False when
    // closed or on a write error.
    bool Append(const std::string& bytes);
    // Reads from the read position, as a line reader with a buffer of `limit` bytes does:
    // stops behind a newline, at the end of the file, or after `limit` - 1 bytes.
    ReadResult ReadPiece(size_t limit, std::string& piece);

  private:
    std::FILE* file = nullptr;
};

// Restricts the directory `path` to its owner (0700). False when it cannot be changed.
bool MakeDirectoryPrivate(const std::string& path);

// The names (without the folder) of the entries of `folder` that match the shell pattern
// `pattern` ("report*.log") and are not directories, in the order the file system gives.
// Empty when the folder cannot be read. `folder` ends in a separator. Any thread.
std::vector<std::string> ListFiles(const std::string& folder, const std::string& pattern);

// The local calendar date of `seconds` since 1970 as "%Y%m%d"; empty when it cannot be
// represented. Any thread.
std::string FormatLocalDate(int64_t seconds);

}  // namespace port
}  // namespace qzdata_report_kelvo
