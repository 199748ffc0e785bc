// Code-page conversion seam, with the contract of the Windows calls MultiByteToWideChar and
// WideCharToMultiByte given flags 0 and no default character. This is the only place that knows
// how wide `wchar_t` is (16 bits on Windows, 32 elsewhere).
#pragma once

namespace qzdata_report_kelvo {
namespace port {

inline constexpr unsigned kCodePageSystem = 0;  // the system's (locale's) character set
inline constexpr unsigned kCodePageUtf8 = 65001;

// `sourceLength` -1 means zero-terminated, the terminator included in the conversion and the
// count. With `targetSize` 0 (and `target` may be null) returns the number of units needed;
// otherwise converts and returns the number written, or 0 when `target` is too small. Returns 0
// for an unknown code page or an empty source. Invalid input becomes U+FFFD (or '?' in the
// narrow direction for characters the code page cannot hold); it is never an error.
int MultiByteToWideChar(unsigned codePage, const char* source, int sourceLength, wchar_t* target,
                        int targetSize);
int WideCharToMultiByte(unsigned codePage, const wchar_t* source, int sourceLength, char* target,
                        int targetSize);

}  // namespace port
}  // namespace qzdata_report_kelvo
