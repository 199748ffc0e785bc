// A shared library bound function by function on first use and never released. A function
// that cannot be found stays null, and its caller gives the neutral result of its own contract.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "port/dynamic_library.h"

namespace qzdata_report_kelvo {
namespace port {

class LazyLibrary {
public:
    using NameList = std::vector<std::string> (*)();

    // `names` gives the file names to try, in order, on the first load.
    explicit LazyLibrary(NameList names) : names(names) {}
    LazyLibrary(const LazyLibrary&) = delete;
    LazyLibrary& operator=(const LazyLibrary&) = delete;

    // Address of `symbol`, loading the library when its handle is still null; null when the
    // library or the symbol is missing. Any thread.
    void* Symbol(const char* symbol);

    // True once a load succeeded.
    bool IsLoaded() const { return handle.load(std::memory_order_acquire) != nullptr; }

    // Tests only: the next load tries `fileNames` instead, and every function bound through this
    // library is looked up anew. Must not race calls through the library.
    void OverrideNamesForTesting(std::vector<std::string> fileNames);

    // Generation of the binding; a LazyFunction that saw an older one looks its symbol up again.
    unsigned generation() const { return bindGeneration.load(std::memory_order_acquire); }

private:
    NameList names;
    std::vector<std::string> overrideNames;
    bool overridden = false;
    std::mutex loadMutex;
    std::atomic<void*> handle{nullptr};
    std::atomic<unsigned> bindGeneration{1};
};

template <class Signature>
class LazyFunction;

// One function of a LazyLibrary, looked up on its first call. The flag is set before the
// look-up, without a lock: a race at most looks the symbol up twice, with the same result.
template <class R, class... Args>
class LazyFunction<R(Args...)> {
public:
    using Pointer = R (*)(Args...);

    LazyFunction(LazyLibrary& library, const char* symbol) : library(library), symbol(symbol) {}

    // The bound function, or null when it is missing.
    Pointer get() {
        const unsigned current = library.generation();
        if (boundGeneration.load(std::memory_order_acquire) != current) {
            pointer.store(reinterpret_cast<Pointer>(library.Symbol(symbol)),
                          std::memory_order_release);
            boundGeneration.store(current, std::memory_order_release);
        }
        return pointer.load(std::memory_order_acquire);
    }

private:
    LazyLibrary& library;
    const char* symbol;
    std::atomic<unsigned> boundGeneration{0};
    std::atomic<Pointer> pointer{nullptr};
};

}  // namespace port
}  // namespace qzdata_report_kelvo
