// Text helpers of event records: the time stamp and the debug trace.
#pragma once

#include <cstddef>
#include <string>

#include "qzdata_report.h"

namespace qzdata_report_kelvo {

// The local time as "%Y%m%d%H%M%S", the value of the "ati" key. Any thread.
std::string FormatEventTime();

// The trace line of `record`: `name` "[" key ": " value, ... "]\n", with the keys of
// `firstKeys` first, in that order (each only if the record has it), then every other key in
// key order.
std::string FormatTraceLine(const char* name, const char* const* firstKeys, size_t firstKeyCount,
                            const ReportRecord& record);

// Writes the trace line of `record` to the debug output (as wide text when it converts).
void WriteTrace(const char* name, const char* const* firstKeys, size_t firstKeyCount,
                const ReportRecord& record);

template <size_t N>
void WriteTrace(const char* name, const char* const (&firstKeys)[N], const ReportRecord& record) {
    WriteTrace(name, firstKeys, N, record);
}

}  // namespace qzdata_report_kelvo
