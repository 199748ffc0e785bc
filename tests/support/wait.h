// Waiting on conditions in tests: poll a predicate until it holds or a bound passes, instead of
// sleeping a fixed time.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <thread>

namespace qz_test {

// Returns true as soon as `condition` holds; false when `timeoutMs` passed first.
inline bool WaitUntil(const std::function<bool()>& condition, uint32_t timeoutMs = 5000) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return condition();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace qz_test
