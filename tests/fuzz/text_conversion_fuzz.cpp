// Narrow and wide text in code page 65001 (UTF-8), up to the first zero: a narrow text that
// decodes without U+FFFD encodes back to itself (only valid UTF-8 decodes cleanly, and to the
// right values); a wide text encodes and decodes back to itself, with U+FFFD for each unit that
// is no scalar value (every valid UTF-8 text round trips). The system code page (0) runs for
// memory errors only. Input: one byte (bit 0: wide, 4 bytes a unit), then the text.
#include <cstring>

#include "fuzz_support.h"
#include "qzdata_report.h"

using qzdata_report_kelvo_internal::QZA2W;
using qzdata_report_kelvo_internal::QZW2A;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0)
        return 0;
    std::string narrow(reinterpret_cast<const char*>(data) + 1, size - 1);
    std::wstring wide((size - 1) / sizeof(wchar_t), L'\0');
    if (data[0] & 1) {
        std::memcpy(&wide[0], data + 1, wide.size() * sizeof(wchar_t));
        std::wstring back;
        QZ_FUZZ_CHECK(QZW2A(wide, narrow, 65001) && QZA2W(narrow, back, 65001));
        wide = wide.substr(0, wide.find(L'\0'));
        for (wchar_t& unit : wide) {
            const auto value = static_cast<uint32_t>(unit);
            unit = value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF) ? 0xFFFD : unit;
        }
        QZ_FUZZ_CHECK(back == wide);
        QZW2A(wide, narrow, 0);
    } else {
        std::string back;
        QZ_FUZZ_CHECK(QZA2W(narrow, wide, 65001) && QZW2A(wide, back, 65001));
        if (wide.find(L'\xFFFD') == std::wstring::npos)
            QZ_FUZZ_CHECK(back == narrow.substr(0, narrow.find('\0')));
        QZA2W(narrow, wide, 0);
    }
    return 0;
}
