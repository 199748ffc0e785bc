// Narrow and wide text in code page 65001 (UTF-8), through the exports:
//  - any narrow text converts; the wide result holds only Unicode scalar values, one U+FFFD
//    per byte that starts no valid sequence, and a valid UTF-8 text comes back unchanged;
//  - any wide text converts to valid UTF-8, which converts back to the same text with each
//    unit that is no scalar value (surrogates, beyond U+10FFFF) as U+FFFD.
// Both stop at the first zero. The system code page (0) is run too, for memory errors only.
//
// Input: one byte (bit 0: the text is wide, 4 bytes a unit), then the text.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "fuzz_support.h"
#include "qzdata_report.h"

namespace {

using qzdata_report_kelvo_internal::QZA2W;
using qzdata_report_kelvo_internal::QZW2A;

constexpr unsigned kUtf8 = 65001;

bool IsScalar(uint32_t value) {
    return value <= 0x10FFFF && (value < 0xD800 || value > 0xDFFF);
}

// Strict UTF-8 (RFC 3629): shortest forms only, no surrogates, nothing above U+10FFFF.
bool IsValidUtf8(const std::string& text) {
    for (size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        size_t length = lead < 0x80 ? 1 : (lead >> 5) == 6 ? 2 : (lead >> 4) == 14 ? 3
                                          : (lead >> 3) == 30 ? 4 : 0;
        if (length == 0 || i + length > text.size()) {
            return false;
        }
        uint32_t value = length == 1 ? lead : lead & (0x7F >> length);
        for (size_t k = 1; k < length; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0) != 0x80) {
                return false;
            }
            value = value << 6 | (next & 0x3F);
        }
        static const uint32_t minimum[] = {0, 0, 0x80, 0x800, 0x10000};
        if (value < minimum[length] || !IsScalar(value)) {
            return false;
        }
        i += length;
    }
    return true;
}

void CheckNarrow(const std::string& source) {
    const std::string text = source.substr(0, source.find('\0'));
    std::wstring wide = L"stale";
    QZ_FUZZ_CHECK(QZA2W(source, wide, kUtf8));
    QZ_FUZZ_CHECK(wide.size() <= text.size());
    for (wchar_t unit : wide) {
        QZ_FUZZ_CHECK(unit != 0 && IsScalar(static_cast<uint32_t>(unit)));
    }
    std::string back = "stale";
    QZ_FUZZ_CHECK(QZW2A(wide, back, kUtf8));
    QZ_FUZZ_CHECK(IsValidUtf8(back));
    if (IsValidUtf8(text)) {
        QZ_FUZZ_CHECK(back == text);
    } else {
        QZ_FUZZ_CHECK(wide.find(L'\xFFFD') != std::wstring::npos);
    }
    std::wstring system;
    QZA2W(source, system, 0);
}

void CheckWide(const std::wstring& source) {
    const std::wstring text = source.substr(0, source.find(L'\0'));
    std::string narrow = "stale";
    QZ_FUZZ_CHECK(QZW2A(source, narrow, kUtf8));
    QZ_FUZZ_CHECK(IsValidUtf8(narrow));
    std::wstring back = L"stale";
    QZ_FUZZ_CHECK(QZA2W(narrow, back, kUtf8));
    QZ_FUZZ_CHECK(back.size() == text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        const auto unit = static_cast<uint32_t>(text[i]);
        QZ_FUZZ_CHECK(static_cast<uint32_t>(back[i]) == (IsScalar(unit) ? unit : 0xFFFDu));
    }
    std::string system;
    QZW2A(source, system, 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    if (data[0] & 1) {
        std::wstring wide;
        for (size_t i = 1; i + 4 <= size; i += 4) {
            uint32_t unit;
            std::memcpy(&unit, data + i, sizeof(unit));
            wide += static_cast<wchar_t>(unit);
        }
        CheckWide(wide);
    } else {
        CheckNarrow(std::string(reinterpret_cast<const char*>(data) + 1, size - 1));
    }
    return 0;
}
