// Binary file stream seam on wide paths, with the contract of C stdio: reads and writes count
// whole items, and an item of size 0 (or a count of 0) is reported as zero items, which callers
// treat as a failure. Formats built on it rely on that rule.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

namespace qzdata_report_kelvo {
namespace port {

// One open file or none. Not shared between threads; the owner closes it, at the latest when
// it is destroyed.
class FileStream {
  public:
    enum class Mode {
        kRead,   // binary reading of an existing file
        kWrite,  // binary writing; creates the file or truncates it
    };

    FileStream() = default;
    ~FileStream() { Close(); }
    FileStream(const FileStream&) = delete;
    FileStream& operator=(const FileStream&) = delete;

    // Opens `path` in `mode`, closing what was open first. False when it cannot be opened.
    bool Open(const std::wstring& path, Mode mode);
    bool IsOpen() const { return file != nullptr; }
    // Closes the stream; true when nothing was open or all buffered bytes reached the file.
    bool Close();

    // The number of whole items of `size` bytes read into `data` or written from it: `count`
    // on success, fewer at the end of the file or on an error, 0 when `size` or `count` is 0.
    // Writes are not buffered: a write that succeeded has reached the file, and one that meets a
    // full disk or a size limit fails itself.
    size_t Read(void* data, size_t size, size_t count);
    size_t Write(const void* data, size_t size, size_t count);
    // The position from the start of the file; -1 when closed or unknown.
    int64_t Tell();
    // Moves to `offset` from the start of the file. False when closed or on an error.
    bool Seek(int64_t offset);
    // The length of the file in bytes; -1 when closed or unknown.
    int64_t Size();

  private:
    std::FILE* file = nullptr;
};

// RemoveFile (port/file_system.h) of the wide `path`.
bool RemoveFile(const std::wstring& path);

}  // namespace port
}  // namespace qzdata_report_kelvo
