// Fixed values of the exported helpers: info-data reports, URL and game events.
#pragma once

#include <cstdint>

namespace qzdata_report_kelvo {
namespace api {

// Info-data reports: event ids, the value of an empty game or server, and the fixed tail.
inline constexpr char kErrorInfoEid[] = "error";
inline constexpr char kActionInfoEid[] = "click";
inline constexpr char kFailInfoEid[] = "fail";
inline constexpr char kTimerInfoEid[] = "timer";
inline constexpr char kDefaultGameText[] = "default";
inline constexpr char kYes[] = "Y";
inline constexpr char kNo[] = "N";
inline constexpr char kJavValue[] = "1";
inline constexpr char kCooValue[] = "1";
inline constexpr char kNveValue[] = "1.0";

// URL and game events: the first segment of an opened URL's path, the schemes whose host is
// marked local and the mark, and the labelled parts of a game event's path.
inline constexpr char kOpenUrlKind[] = "OpenUrl";
inline constexpr const char* kLocalSchemes[] = {"chrome", "tze"};
inline constexpr char kLocalHostPrefix[] = "local.";
inline constexpr wchar_t kGameIdLabel[] = L"/GameID=";
inline constexpr wchar_t kServerIdLabel[] = L"/ServerID=";
inline constexpr wchar_t kFromLabel[] = L"/From=";
inline constexpr wchar_t kTraceIdLabel[] = L"_TraceId=";
// A separator in `from` would make a segment of its own: it becomes this.
inline constexpr wchar_t kFromSeparatorStandIn = L'_';

}  // namespace api
}  // namespace qzdata_report_kelvo
