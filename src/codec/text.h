// The text rules shared by every subsystem: byte sets, hexadecimal digits, escaping, ASCII case
// folding, blanks and version-4 UUIDs. Each rule is written once here; callers that the wire
// format asks to differ (which bytes are kept, which mark introduces an escape, the case of the
// digits) say so through the parameters. None of them reads the locale: a host may have set any
// locale, and the wire text must not change with it. Stateless; any thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace qzdata_report_kelvo {
namespace text {

// A set of byte values.
class ByteSet {
  public:
    ByteSet() = default;
    // The bytes of the zero-terminated `members`.
    explicit ByteSet(const char* members);
    // Every byte that `this` lacks.
    ByteSet Complement() const;
    // Adds the bytes from `first` to `last`, both included.
    ByteSet& AddRange(unsigned char first, unsigned char last);

    bool Has(unsigned char byte) const { return members[byte]; }

  private:
    std::array<bool, 256> members{};
};

enum class HexCase { kUpper, kLower };

// How a text is escaped: the bytes of `kept` stand as they are, every other byte becomes `mark`
// and two hexadecimal digits of `digits`' case.
struct EscapeStyle {
    ByteSet kept;
    char mark = '%';
    HexCase digits = HexCase::kUpper;
    // A blank becomes "+" (tested before `kept`).
    bool blankAsPlus = false;
    // The mark becomes two marks instead of an escape (tested before `kept`).
    bool doubleMark = false;
};

// The longest form one byte can take under any style.
inline constexpr size_t kMaxEscapedByte = 3;

// Writes the escaped form of `byte` to `out` (room for kMaxEscapedByte) and returns its length.
size_t EscapeByte(unsigned char byte, const EscapeStyle& style, char* out);
// Appends the escaped form of every byte of `in` to `out`.
void AppendEscaped(const std::string& in, const EscapeStyle& style, std::string& out);

// The digit of the low four bits of `value`.
char HexDigit(unsigned value, HexCase digits);
// Two digits per byte of the `size` bytes at `bytes`.
std::string HexEncode(const void* bytes, size_t size, HexCase digits);

enum class HexInput {
    // '0'-'9', 'a'-'f' and 'A'-'F'; anything else is refused.
    kAnyCase,
    // For producers that write only '0'-'9' and 'a'-'f': no check, other bytes give wrong
    // values without complaint.
    kLowerUnchecked,
};
// The value of one hexadecimal digit; -1 for a refused byte.
int HexDigitValue(char c, HexInput input = HexInput::kAnyCase);

// ASCII case folding: only 'A'-'Z' change.
char AsciiLower(char c);
// Compares by ASCII case folding: <0, 0, >0 as strcmp; a prefix orders first.
int CompareNoCase(const std::string& left, const std::string& right);
bool EqualsNoCase(const std::string& left, const std::string& right);
// Orders text by ASCII case folding, so that keys that differ only in case are one key.
struct CaseInsensitiveLess {
    bool operator()(const std::string& left, const std::string& right) const {
        return CompareNoCase(left, right) < 0;
    }
};

// Blank, tab, line feed, vertical tab, form feed or carriage return.
bool IsAsciiSpace(char c);

// A new version-4 UUID from the platform's source. False when no source answered: `bytes` then
// holds zeros, unshaped, so that a failure never passes for a random id.
bool NewUuid4(uint8_t (&bytes)[16]);

enum class UuidForm {
    kPlain,   // 32 lower-case digits
    kDashed,  // 8-4-4-4-12 lower-case digits
};
std::string UuidText(const uint8_t (&bytes)[16], UuidForm form);

}  // namespace text
}  // namespace qzdata_report_kelvo
