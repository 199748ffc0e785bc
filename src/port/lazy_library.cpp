#include "port/lazy_library.h"

namespace qzdata_report_kelvo {
namespace port {

void* LazyLibrary::Symbol(const char* symbol) {
    void* library = handle.load(std::memory_order_acquire);
    if (library == nullptr) {
        std::lock_guard<std::mutex> guard(loadMutex);
        library = handle.load(std::memory_order_acquire);
        if (library == nullptr) {
            // A missing library is asked for again at each new function, as a per-function
            // binding does; an absent library costs one failed open per function.
            library = OpenLibrary(overridden ? overrideNames : names());
            handle.store(library, std::memory_order_release);
        }
    }
    return FindSymbol(library, symbol);
}

void LazyLibrary::OverrideNamesForTesting(std::vector<std::string> fileNames) {
    std::lock_guard<std::mutex> guard(loadMutex);
    overrideNames = std::move(fileNames);
    overridden = true;
    // The old handle is dropped, never closed: pointers bound from it stay valid.
    handle.store(nullptr, std::memory_order_release);
    bindGeneration.fetch_add(1, std::memory_order_acq_rel);
}

}  // namespace port
}  // namespace qzdata_report_kelvo
