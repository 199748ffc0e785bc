// Fixed values of the machine identity subsystem.
#pragma once

#include <cstddef>

namespace qzdata_report_kelvo {
namespace identity {

// Where the machine ids are kept for this user: key paths and value names of the per-user store.
// The second-generation id ("mid") is kept under two keys, of which the first wins; the
// first-generation id ("mid_2") under a third.
inline constexpr char kMachineIdKeyPath[] = "SOFTWARE\\norvik\\qzdata_report";
inline constexpr char kMachineIdSecondKeyPath[] = "SOFTWARE\\norvik\\qzdata_report_kelvo";
inline constexpr char kHardwareIdKeyPath[] = "Software\\norvik\\datareportsdk";
inline constexpr char kMachineIdValueName[] = "mid";
inline constexpr char kHardwareIdValueName[] = "mid_2";
// Buffers the kept ids are read into. A "mid" of the buffer's size or more counts as absent; a
// "mid_2" larger than its buffer does. The hardware id's buffer has room for 32 digits, the fallback mark and the terminating zero.
inline constexpr size_t kMachineIdBufferSize = 33;
inline constexpr size_t kHardwareIdBufferSize = 34;
// A kept hardware id: 32 lower-case hexadecimal digits, then possibly the mark of an id made
// without the management service.
inline constexpr size_t kHardwareIdDigits = 32;
inline constexpr char kFallbackMark = '-';
inline constexpr char kHardwareTextSeparator[] = "|";

}  // namespace identity
}  // namespace qzdata_report_kelvo
