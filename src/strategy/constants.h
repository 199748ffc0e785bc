// Fixed values of the strategy: the request, the blob's field widths and the defaults of the
// fields a blob may replace.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qzdata_report_kelvo {
namespace strategy {

// Request target of the strategy blob (the delivery engine appends the attempt count).
inline constexpr char kStrategyPath[] = "/zhsdkinfo.php?ver=1";

// Longest address a list entry may have: a dotted IPv4 text.
inline constexpr uint64_t kMaxAddressLength = 15;

// Widths, in ASCII digits, of the fields of the plain text.
inline constexpr size_t kCountWidth = 2;      // lists 1-3, sets 1-2, maps 1-2
inline constexpr size_t kLongCountWidth = 4;  // sets 3-6
inline constexpr size_t kStringLengthWidth = 2;
inline constexpr size_t kMapValueWidth = 3;
inline constexpr size_t kNumberWidth = 5;  // numbers 1-6
inline constexpr size_t kStopOldSdkWidth = 1;

// Second counts from this value on give the largest limit instead of wrapping.
inline constexpr uint64_t kSecondsCap = 4294968;
inline constexpr uint32_t kMaxMilliseconds = 4294967295u;

// Defaults of the stored fields.
inline constexpr uint32_t kDefaultKeepAliveLimit = 60000;  // milliseconds
inline constexpr const char* kDefaultSpecialActs[] = {"protoaudiolistener", "protoaudiospeaker",
                                                      "protoaudiouserloss"};
inline constexpr uint64_t kDefaultNumber3 = 200;
inline constexpr uint64_t kDefaultNumber5 = 2;
inline constexpr uint64_t kDefaultNumber6 = 3072;

}  // namespace strategy
}  // namespace qzdata_report_kelvo
