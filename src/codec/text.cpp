#include "codec/text.h"

#include "port/env.h"

namespace qzdata_report_kelvo {
namespace text {

ByteSet::ByteSet(const char* members) {
    for (const char* c = members; *c != '\0'; ++c) {
        this->members[static_cast<unsigned char>(*c)] = true;
    }
}

ByteSet ByteSet::Complement() const {
    ByteSet result;
    for (size_t i = 0; i < members.size(); ++i) {
        result.members[i] = !members[i];
    }
    return result;
}

ByteSet& ByteSet::AddRange(unsigned char first, unsigned char last) {
    for (unsigned byte = first; byte <= last; ++byte) {
        members[byte] = true;
    }
    return *this;
}

char HexDigit(unsigned value, HexCase digits) {
    static constexpr char kUpper[] = "0123456789ABCDEF";
    static constexpr char kLower[] = "0123456789abcdef";
    return (digits == HexCase::kUpper ? kUpper : kLower)[value & 0x0F];
}

std::string HexEncode(const void* bytes, size_t size, HexCase digits) {
    const auto* in = static_cast<const uint8_t*>(bytes);
    std::string result(size * 2, '\0');
    for (size_t i = 0; i < size; ++i) {
        result[2 * i] = HexDigit(in[i] >> 4, digits);
        result[2 * i + 1] = HexDigit(in[i], digits);
    }
    return result;
}

size_t EscapeByte(unsigned char byte, const EscapeStyle& style, char* out) {
    const char c = static_cast<char>(byte);
    if (style.blankAsPlus && c == ' ') {
        out[0] = '+';
        return 1;
    }
    if (style.doubleMark && c == style.mark) {
        out[0] = out[1] = style.mark;
        return 2;
    }
    if (style.kept.Has(byte)) {
        out[0] = c;
        return 1;
    }
    out[0] = style.mark;
    out[1] = HexDigit(byte >> 4, style.digits);
    out[2] = HexDigit(byte, style.digits);
    return 3;
}

void AppendEscaped(const std::string& in, const EscapeStyle& style, std::string& out) {
    char piece[kMaxEscapedByte];
    for (char c : in) {
        out.append(piece, EscapeByte(static_cast<unsigned char>(c), style, piece));
    }
}

int HexDigitValue(char c, HexInput input) {
    if (input == HexInput::kLowerUnchecked) {
        return c <= '9' ? c - '0' : c - 'a' + 10;
    }
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

char AsciiLower(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

int CompareNoCase(const std::string& left, const std::string& right) {
    const size_t common = left.size() < right.size() ? left.size() : right.size();
    for (size_t i = 0; i < common; ++i) {
        const auto a = static_cast<unsigned char>(AsciiLower(left[i]));
        const auto b = static_cast<unsigned char>(AsciiLower(right[i]));
        if (a != b) {
            return a < b ? -1 : 1;
        }
    }
    if (left.size() == right.size()) {
        return 0;
    }
    return left.size() < right.size() ? -1 : 1;
}

bool EqualsNoCase(const std::string& left, const std::string& right) {
    return left.size() == right.size() && CompareNoCase(left, right) == 0;
}

bool IsAsciiSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool NewUuid4(uint8_t (&bytes)[16]) {
    return port::NewUuid(bytes);
}

std::string UuidText(const uint8_t (&bytes)[16], UuidForm form) {
    std::string result = HexEncode(bytes, sizeof(bytes), HexCase::kLower);
    if (form == UuidForm::kDashed) {
        for (size_t dash : {8, 13, 18, 23}) {
            result.insert(dash, 1, '-');
        }
    }
    return result;
}

}  // namespace text
}  // namespace qzdata_report_kelvo
