#include "port/dynamic_library.h"

#include <dlfcn.h>

namespace qzdata_report_kelvo {
namespace port {

LibraryHandle OpenLibrary(const std::vector<std::string>& names) {
    for (const std::string& name : names) {
        if (void* handle = dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL)) {
            return handle;
        }
    }
    return nullptr;
}

void* FindSymbol(LibraryHandle library, const char* symbol) {
    if (library == nullptr) {
        return nullptr;
    }
    return dlsym(library, symbol);
}

std::vector<std::string> SslLibraryNames() {
    return {"libssl.so.3", "libssl.so.1.1"};
}

std::vector<std::string> CryptoLibraryNames() {
    return {"libcrypto.so.3", "libcrypto.so.1.1"};
}

}  // namespace port
}  // namespace qzdata_report_kelvo
