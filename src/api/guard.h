// Keeps exceptions inside the library: every export runs its body through one of these.
#pragma once

#include <utility>

namespace qzdata_report_kelvo {

// Runs `body` and returns its result, or `fallback` when it throws.
template <class Result, class Body>
Result Guarded(Result fallback, Body&& body) noexcept {
    try {
        return std::forward<Body>(body)();
    } catch (...) {
        return fallback;
    }
}

// Runs `body`, swallowing what it throws.
template <class Body>
void GuardedVoid(Body&& body) noexcept {
    try {
        std::forward<Body>(body)();
    } catch (...) {
    }
}

}  // namespace qzdata_report_kelvo
