#pragma once

#include <cstdint>

namespace qzdata_report_kelvo {

// Microseconds of the performance counter. When the counter or its frequency cannot be read,
// `microseconds` keeps its value.
void GetMicroTime(int64_t& microseconds);

}  // namespace qzdata_report_kelvo
