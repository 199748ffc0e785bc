// Event id escaping: with and without escaped slashes, unescaping the escaped form of any bytes
// gives them back. Unescaping any text either fails and leaves its output alone, or gives a
// text that survives escaping and unescaping again.
#include "fuzz_support.h"
#include "qzdata_report.h"

using qzdata_report_kelvo::EidEscape;
using qzdata_report_kelvo::EidUnescape;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::string escaped, back;
    for (bool escapeSlash : {false, true})
        QZ_FUZZ_CHECK(EidEscape(text, &escaped, escapeSlash) && EidUnescape(escaped, &back) &&
                      back == text);
    std::string unescaped = "stale";
    if (!EidUnescape(text, &unescaped))
        QZ_FUZZ_CHECK(unescaped == "stale");
    else
        QZ_FUZZ_CHECK(EidEscape(unescaped, &escaped, true) && EidUnescape(escaped, &back) &&
                      back == unescaped);
    return 0;
}
