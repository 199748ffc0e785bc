// Base64 decoding (standard alphabet, "+" and "/"). The system only decodes; there is no
// encoder, only the size rule of one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace qzdata_report_kelvo {

// Decodes `text` into `output`, which is cleared first and sized to the result. Reading stops
// at the first "="; bytes outside the alphabet (line breaks, non-ASCII) are skipped. A final
// group of three characters gives two bytes, of two characters one byte, of one nothing.
// Returns the number of bytes written; 0 for an empty input.
int Base64Decode(const std::string& text, std::string& output);

// The same on a buffer: decodes `length` bytes at `text` into `output` of `outputSize` bytes.
// Returns 0 (writing nothing) when `outputSize` is below Base64DecodedSize(length).
int Base64Decode(const char* text, int32_t length, unsigned char* output, int32_t outputSize);

// Upper bound of the decoded size of a text of `length` characters; 0 for `length` <= 0.
int32_t Base64DecodedSize(int32_t length);

// Size of the base64 text of `count` bytes, padding included; 0 for `count` <= 0.
int32_t Base64EncodedSize(int32_t count);

}  // namespace qzdata_report_kelvo
