#include "port/code_page.h"

#include <iconv.h>
#include <langinfo.h>

#include <cerrno>
#include <cstring>
#include <cwchar>
#include <string>

namespace qzdata_report_kelvo {
namespace port {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

// Decodes one UTF-8 sequence at `in` (with `left` bytes); returns its length, at least 1.
// Overlong forms, surrogates and values above U+10FFFF decode as one U+FFFD per bad byte.
size_t DecodeUtf8(const unsigned char* in, size_t left, char32_t* out) {
    const unsigned char lead = in[0];
    if (lead < 0x80) {
        *out = lead;
        return 1;
    }
    size_t length;
    char32_t value;
    char32_t minimum;
    if ((lead & 0xE0) == 0xC0) {
        length = 2, value = lead & 0x1F, minimum = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3, value = lead & 0x0F, minimum = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4, value = lead & 0x07, minimum = 0x10000;
    } else {
        *out = kReplacement;
        return 1;
    }
    if (left < length) {
        *out = kReplacement;
        return 1;
    }
    for (size_t i = 1; i < length; ++i) {
        if ((in[i] & 0xC0) != 0x80) {
            *out = kReplacement;
            return 1;
        }
        value = (value << 6) | (in[i] & 0x3F);
    }
    if (value < minimum || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) {
        *out = kReplacement;
        return 1;
    }
    *out = value;
    return length;
}

size_t EncodeUtf8(char32_t value, char* out) {
    if (value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) {
        value = kReplacement;
    }
    if (value < 0x80) {
        out[0] = static_cast<char>(value);
        return 1;
    }
    if (value < 0x800) {
        out[0] = static_cast<char>(0xC0 | (value >> 6));
        out[1] = static_cast<char>(0x80 | (value & 0x3F));
        return 2;
    }
    if (value < 0x10000) {
        out[0] = static_cast<char>(0xE0 | (value >> 12));
        out[1] = static_cast<char>(0x80 | ((value >> 6) & 0x3F));
        out[2] = static_cast<char>(0x80 | (value & 0x3F));
        return 3;
    }
    out[0] = static_cast<char>(0xF0 | (value >> 18));
    out[1] = static_cast<char>(0x80 | ((value >> 12) & 0x3F));
    out[2] = static_cast<char>(0x80 | ((value >> 6) & 0x3F));
    out[3] = static_cast<char>(0x80 | (value & 0x3F));
    return 4;
}

bool SystemIsUtf8() {
    const char* codeset = nl_langinfo(CODESET);
    return codeset != nullptr &&
           (std::strcmp(codeset, "UTF-8") == 0 || std::strcmp(codeset, "utf8") == 0);
}

// Converts through iconv between the system character set and wchar_t; a character that cannot
// be converted becomes `replacement` and its first unit is skipped.
template <class In, class Out>
bool ConvertWithIconv(const char* to, const char* from, const In* source, size_t count,
                      Out replacement, std::basic_string<Out>* result) {
    iconv_t cd = iconv_open(to, from);
    if (cd == reinterpret_cast<iconv_t>(-1)) {
        return false;
    }
    char* in = const_cast<char*>(reinterpret_cast<const char*>(source));
    size_t inLeft = count * sizeof(In);
    Out buffer[256];
    while (inLeft > 0) {
        char* out = reinterpret_cast<char*>(buffer);
        size_t outLeft = sizeof(buffer);
        size_t rc = iconv(cd, &in, &inLeft, &out, &outLeft);
        result->append(buffer, (sizeof(buffer) - outLeft) / sizeof(Out));
        if (rc == static_cast<size_t>(-1) && errno != E2BIG) {
            result->push_back(replacement);
            const size_t skip = inLeft < sizeof(In) ? inLeft : sizeof(In);
            in += skip;
            inLeft -= skip;
            iconv(cd, nullptr, nullptr, nullptr, nullptr);
        }
    }
    iconv_close(cd);
    return true;
}

std::wstring ToWide(unsigned codePage, const char* source, size_t count, bool* ok) {
    std::wstring result;
    *ok = true;
    if (codePage == kCodePageSystem && !SystemIsUtf8()) {
        *ok = ConvertWithIconv<char, wchar_t>("WCHAR_T", nl_langinfo(CODESET), source, count,
                                              static_cast<wchar_t>(kReplacement), &result);
        return result;
    }
    const auto* in = reinterpret_cast<const unsigned char*>(source);
    size_t position = 0;
    while (position < count) {
        char32_t value;
        position += DecodeUtf8(in + position, count - position, &value);
        result.push_back(static_cast<wchar_t>(value));
    }
    return result;
}

std::string ToNarrow(unsigned codePage, const wchar_t* source, size_t count, bool* ok) {
    std::string result;
    *ok = true;
    if (codePage == kCodePageSystem && !SystemIsUtf8()) {
        *ok = ConvertWithIconv<wchar_t, char>(nl_langinfo(CODESET), "WCHAR_T", source, count, '?',
                                              &result);
        return result;
    }
    char buffer[4];
    for (size_t i = 0; i < count; ++i) {
        result.append(buffer, EncodeUtf8(static_cast<char32_t>(source[i]), buffer));
    }
    return result;
}

// Shared tail of both directions: the Windows rules for lengths, sizing and copying.
template <class In, class Out, class Convert>
int ConvertCounted(unsigned codePage, const In* source, int sourceLength, Out* target,
                   int targetSize, Convert convert) {
    if (codePage != kCodePageSystem && codePage != kCodePageUtf8) {
        return 0;
    }
    if (source == nullptr || sourceLength == 0 || sourceLength < -1 || targetSize < 0) {
        return 0;
    }
    size_t count;
    bool terminated = false;
    if (sourceLength == -1) {
        count = std::char_traits<In>::length(source);
        terminated = true;
    } else {
        count = static_cast<size_t>(sourceLength);
    }
    bool ok = false;
    auto converted = convert(codePage, source, count, &ok);
    if (!ok) {
        return 0;
    }
    if (terminated) {
        converted.push_back(Out());
    }
    const int needed = static_cast<int>(converted.size());
    if (targetSize == 0) {
        return needed;
    }
    if (target == nullptr || targetSize < needed) {
        return 0;
    }
    std::char_traits<Out>::copy(target, converted.data(), converted.size());
    return needed;
}

}  // namespace

int MultiByteToWideChar(unsigned codePage, const char* source, int sourceLength, wchar_t* target,
                        int targetSize) {
    return ConvertCounted(codePage, source, sourceLength, target, targetSize, ToWide);
}

int WideCharToMultiByte(unsigned codePage, const wchar_t* source, int sourceLength, char* target,
                        int targetSize) {
    return ConvertCounted(codePage, source, sourceLength, target, targetSize, ToNarrow);
}

}  // namespace port
}  // namespace qzdata_report_kelvo
