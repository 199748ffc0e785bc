// Run-time binding of shared libraries. A handle, once opened, is never closed: the bound
// function pointers stay valid for the life of the process.
#pragma once

#include <string>
#include <vector>

namespace qzdata_report_kelvo {
namespace port {

using LibraryHandle = void*;

// Opens the first library of `names` that loads; null when none does.
LibraryHandle OpenLibrary(const std::vector<std::string>& names);

// Address of `symbol` in `library`, null when missing or when `library` is null.
void* FindSymbol(LibraryHandle library, const char* symbol);

// The platform's file names of the TLS and crypto libraries, in the order they are tried.
std::vector<std::string> SslLibraryNames();
std::vector<std::string> CryptoLibraryNames();

}  // namespace port
}  // namespace qzdata_report_kelvo
