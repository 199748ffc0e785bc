// Fixed values of the codec layer.
#pragma once

#include <cstddef>

namespace qzdata_report_kelvo {
namespace codec {

// The standard base64 alphabet; its reverse table is built from it.
inline constexpr char kBase64Alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Bytes that EscapeUrl leaves as they are (86 characters).
inline constexpr char kUrlKeepSet[] =
    "!$'()*-./0123456789:;<>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[]^_`abcdefghijklmnopqrstuvwxyz{|}~";

// The strategy blob: a decimal plain length of this many characters, then the cipher text.
inline constexpr size_t kBlobLengthDigits = 8;
inline constexpr int kAesBlockSize = 16;
inline constexpr int kAesKeyBits = 128;
inline constexpr size_t kDesBlockSize = 8;

inline constexpr int kMd5DigestSize = 16;

// Buffer sizes of the number text forms, terminator included.
inline constexpr size_t kUInt16TextSize = 6;
inline constexpr size_t kInt32TextSize = 12;
inline constexpr size_t kDoubleTextSize = 311;
inline constexpr size_t kUInt64TextSize = 21;

}  // namespace codec
}  // namespace qzdata_report_kelvo
