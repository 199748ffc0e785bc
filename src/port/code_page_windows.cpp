#include "port/code_page.h"

#include <windows.h>

namespace qzdata_report_kelvo {
namespace port {

namespace {

static_assert(sizeof(wchar_t) == sizeof(WCHAR), "wchar_t is one UTF-16 unit on Windows");

// The system calls accept many more code pages and would happily convert through them; the
// library's contract knows only these two.
bool IsKnownCodePage(unsigned codePage) {
    return codePage == kCodePageSystem || codePage == kCodePageUtf8;
}

bool IsValidRequest(const void* source, int sourceLength, int targetSize) {
    return source != nullptr && sourceLength != 0 && sourceLength >= -1 && targetSize >= 0;
}

}  // namespace

int MultiByteToWideChar(unsigned codePage, const char* source, int sourceLength, wchar_t* target,
                        int targetSize) {
    if (!IsKnownCodePage(codePage) || !IsValidRequest(source, sourceLength, targetSize)) {
        return 0;
    }
    return ::MultiByteToWideChar(codePage, 0, source, sourceLength, target, targetSize);
}

int WideCharToMultiByte(unsigned codePage, const wchar_t* source, int sourceLength, char* target,
                        int targetSize) {
    if (!IsKnownCodePage(codePage) || !IsValidRequest(source, sourceLength, targetSize)) {
        return 0;
    }
    return ::WideCharToMultiByte(codePage, 0, source, sourceLength, target, targetSize, nullptr,
                                 nullptr);
}

}  // namespace port
}  // namespace qzdata_report_kelvo
