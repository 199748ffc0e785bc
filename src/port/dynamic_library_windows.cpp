#include "port/dynamic_library.h"

#include <windows.h>

namespace qzdata_report_kelvo {
namespace port {

LibraryHandle OpenLibrary(const std::vector<std::string>& names) {
    // A library that is missing, or whose own dependencies are, must fail quietly: the host has
    // no user to answer an error box.
    DWORD previousMode = 0;
    const bool modeSet =
        ::SetThreadErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX, &previousMode) != 0;
    LibraryHandle handle = nullptr;
    for (const std::string& name : names) {
        if (HMODULE module = ::LoadLibraryA(name.c_str())) {
            handle = module;
            break;
        }
    }
    if (modeSet) {
        ::SetThreadErrorMode(previousMode, nullptr);
    }
    return handle;
}

void* FindSymbol(LibraryHandle library, const char* symbol) {
    if (library == nullptr || symbol == nullptr) {
        return nullptr;
    }
    return reinterpret_cast<void*>(::GetProcAddress(static_cast<HMODULE>(library), symbol));
}

std::vector<std::string> SslLibraryNames() {
    return {"ssleay32.dll", "libssl-3-x64.dll"};
}

std::vector<std::string> CryptoLibraryNames() {
    return {"libeay32.dll", "libcrypto-3-x64.dll"};
}

}  // namespace port
}  // namespace qzdata_report_kelvo
