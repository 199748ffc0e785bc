// Tick arithmetic of the network client.
#pragma once

#include <cstdint>

namespace qzdata_report_kelvo {
namespace net {

// Milliseconds from `then` to `now`. When the counter wrapped in between (now below then), one
// less than the modular difference: the clients have always measured it this way, and the
// keep-alive boundary across a wrap depends on it.
inline uint32_t ElapsedTicks(uint32_t then, uint32_t now) {
    return now >= then ? now - then : now - then - 1;
}

}  // namespace net
}  // namespace qzdata_report_kelvo
