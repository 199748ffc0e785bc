// Readers of the strategy's plain text: fixed-width ASCII numbers and length-prefixed strings,
// with no separators between fields.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace qzdata_report_kelvo {

// Reads fields in order from a text it does not own (`text` must outlive the reader). Every read
// first fails when the cursor is at the end of the text, then when fewer than `width` bytes
// remain; so even a read of width 0 fails at the end. A failed read leaves the cursor where it
// was, and its output unspecified. Widths in use are at most 5, so values cannot overflow.
class StrategyFieldReader {
  public:
    explicit StrategyFieldReader(const std::string& text) : text(text) {}

    // Unsigned decimal of `width` bytes. Width 0 gives 0. The first byte may be "+" unless the
    // width is 1; every other byte must be a digit.
    bool ReadUnsigned(size_t width, uint64_t& value);

    // Signed decimal of `width` bytes. As ReadUnsigned, and a first "-" negates; a first blank
    // fails, while a blank after the first byte ends the number with the value read so far
    // (the cursor still moves by `width`).
    bool ReadSigned(size_t width, int64_t& value);

    // The next `width` bytes as they stand. Width 0 gives an empty string and consumes nothing.
    bool ReadString(size_t width, std::string& value);

    size_t Cursor() const { return cursor; }

  private:
    bool CanRead(size_t width) const;

    const std::string& text;
    size_t cursor = 0;
};

}  // namespace qzdata_report_kelvo
