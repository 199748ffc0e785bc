#include "port/file_stream.h"

#include <sys/stat.h>
#include <sys/types.h>

#include <vector>

#include "port/code_page.h"
#include "port/file_system.h"

namespace qzdata_report_kelvo {
namespace port {

namespace {

// File names are UTF-8 on Linux. Empty for a path that converts to nothing.
std::string ToNativePath(const std::wstring& path) {
    const int size = WideCharToMultiByte(kCodePageUtf8, path.c_str(), -1, nullptr, 0);
    if (size <= 1) {
        return std::string();
    }
    std::vector<char> buffer(static_cast<size_t>(size));
    if (WideCharToMultiByte(kCodePageUtf8, path.c_str(), -1, buffer.data(), size) != size) {
        return std::string();
    }
    return std::string(buffer.data());
}

}  // namespace

bool FileStream::Open(const std::wstring& path, Mode mode) {
    Close();
    const std::string native = ToNativePath(path);
    if (native.empty()) {
        return false;
    }
    file = std::fopen(native.c_str(), mode == Mode::kRead ? "rb" : "wb");
    // A buffered write would succeed and fail only at a later flush, after its writer had let
    // go of what it wrote.
    if (file != nullptr && mode == Mode::kWrite) {
        std::setvbuf(file, nullptr, _IONBF, 0);
    }
    return file != nullptr;
}

bool FileStream::Close() {
    if (file == nullptr) {
        return true;
    }
    const bool closed = std::fclose(file) == 0;
    file = nullptr;
    return closed;
}

size_t FileStream::Read(void* data, size_t size, size_t count) {
    return file == nullptr ? 0 : std::fread(data, size, count, file);
}

size_t FileStream::Write(const void* data, size_t size, size_t count) {
    return file == nullptr ? 0 : std::fwrite(data, size, count, file);
}

int64_t FileStream::Tell() {
    return file == nullptr ? -1 : static_cast<int64_t>(::ftello(file));
}

bool FileStream::Seek(int64_t offset) {
    return file != nullptr && ::fseeko(file, static_cast<off_t>(offset), SEEK_SET) == 0;
}

int64_t FileStream::Size() {
    struct stat info;
    if (file == nullptr || ::fstat(::fileno(file), &info) != 0) {
        return -1;
    }
    return static_cast<int64_t>(info.st_size);
}

bool RemoveFile(const std::wstring& path) {
    return RemoveFile(ToNativePath(path));
}

}  // namespace port
}  // namespace qzdata_report_kelvo
