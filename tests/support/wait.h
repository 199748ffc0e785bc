// Waiting on conditions in tests: poll a predicate until it holds or a bound passes, instead of
// sleeping a fixed time. Waiting threads handle their window messages meanwhile, so that timers
// whose message thread is the waiting one keep firing.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <thread>

namespace qz_test {

// Handles the calling thread's window messages for `milliseconds`, where the platform delivers
// timer callbacks as messages; elsewhere only sleeps.
void PumpMessagesFor(uint32_t milliseconds);

// Returns true as soon as `condition` holds; false when `timeoutMs` passed first.
inline bool WaitUntil(const std::function<bool()>& condition, uint32_t timeoutMs = 5000) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return condition();
        PumpMessagesFor(1);
    }
    return true;
}

}  // namespace qz_test
