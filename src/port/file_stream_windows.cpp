#include "port/file_stream.h"

#include <windows.h>

#include <io.h>
#include <share.h>

namespace qzdata_report_kelvo {
namespace port {

bool FileStream::Open(const std::wstring& path, Mode mode) {
    Close();
    if (path.empty()) {
        return false;
    }
    // Other readers may look, but no other writer may change the file while this stream has it:
    // a reader never sees a pack half rewritten under it.
    file = _wfsopen(path.c_str(), mode == Mode::kRead ? L"rb" : L"wb", _SH_DENYWR);
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
    return file == nullptr ? -1 : static_cast<int64_t>(_ftelli64(file));
}

bool FileStream::Seek(int64_t offset) {
    return file != nullptr && _fseeki64(file, offset, SEEK_SET) == 0;
}

int64_t FileStream::Size() {
    if (file == nullptr) {
        return -1;
    }
    return static_cast<int64_t>(_filelengthi64(_fileno(file)));
}

bool RemoveFile(const std::wstring& path) {
    return !path.empty() && ::DeleteFileW(path.c_str()) != 0;
}

}  // namespace port
}  // namespace qzdata_report_kelvo
