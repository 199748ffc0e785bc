// Debug output seam: where the library's trace lines go (the debugger's output on Windows,
// standard error elsewhere). Tests replace the sink to observe the trace.
#pragma once

#include <functional>
#include <string>

namespace qzdata_report_kelvo {
namespace port {

// Writes `text` as it stands (the caller supplies the line end). Any thread.
void OutputDebugStringA(const std::string& text);
void OutputDebugStringW(const std::wstring& text);

// Replaces the platform sink; every later line goes to `sink` as UTF-8 (wide text is converted
// first). An empty function restores the platform sink. Not exported; for tests. The sink is
// called without a lock held by the library and must be safe to call from any thread.
using DebugSink = std::function<void(const std::string& utf8Text)>;
void SetDebugSink(DebugSink sink);

}  // namespace port
}  // namespace qzdata_report_kelvo
