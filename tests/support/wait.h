// Waiting on conditions in tests: poll a predicate until it holds or a bound passes, instead of
// sleeping a fixed time.
#pragma once

#include <cstdint>
#include <functional>

namespace qz_test {

// Returns true as soon as `condition` holds; false when `timeoutMs` passed first.
bool WaitUntil(const std::function<bool()>& condition, uint32_t timeoutMs = 5000);

}  // namespace qz_test
