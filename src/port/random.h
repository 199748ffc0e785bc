// Source of random bytes for identifiers (session ids, record ids).
#pragma once

#include <cstddef>

namespace qzdata_report_kelvo {
namespace port {

// Fills `size` bytes at `buffer` from the system's random source. Returns false (the buffer
// then holds zeros) when no random source answers.
bool RandomBytes(void* buffer, size_t size);

}  // namespace port
}  // namespace qzdata_report_kelvo
