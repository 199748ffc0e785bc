// Event id escaping, both ways. Escaping keeps only letters, digits, "-", "(", ")", the escape
// mark "." (and "/" when slashes stay), and unescaping it gives the text back, whatever bytes it
// holds. Unescaping any text either fails and leaves its output alone, or gives a text whose
// escaped form unescapes to it again.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "fuzz_support.h"
#include "qzdata_report.h"

namespace {

bool IsKept(char c, bool escapeSlash) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::strchr("-().", c) != nullptr || (c == '/' && !escapeSlash);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    namespace qz = qzdata_report_kelvo;
    const std::string text(reinterpret_cast<const char*>(data), size);
    for (bool escapeSlash : {false, true}) {
        std::string escaped = "stale";
        QZ_FUZZ_CHECK(qz::EidEscape(text, &escaped, escapeSlash));
        for (char c : escaped) {
            QZ_FUZZ_CHECK(c != '\0' && IsKept(c, escapeSlash));
        }
        std::string back = "stale";
        QZ_FUZZ_CHECK(qz::EidUnescape(escaped, &back));
        QZ_FUZZ_CHECK(back == text);
        QZ_FUZZ_CHECK(!qz::EidEscape(text, nullptr, escapeSlash));
    }

    std::string unescaped = "stale";
    if (!qz::EidUnescape(text, &unescaped)) {
        QZ_FUZZ_CHECK(unescaped == "stale");
        return 0;
    }
    QZ_FUZZ_CHECK(unescaped.size() <= text.size());
    std::string escaped;
    std::string again;
    QZ_FUZZ_CHECK(qz::EidEscape(unescaped, &escaped, true));
    QZ_FUZZ_CHECK(qz::EidUnescape(escaped, &again));
    QZ_FUZZ_CHECK(again == unescaped);
    return 0;
}
