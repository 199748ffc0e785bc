// URL splitting: a refused text leaves the parts alone, an accepted one starts with its scheme
// and "://" and has a path free of "?" and "#". Reversing a host name with no empty piece at
// either end is its own inverse. Input: one byte (bit 0: the text is 16-bit units, else one
// unit per byte), then the text.
#include "codec/url_parts.h"
#include "fuzz_support.h"

using qzdata_report_kelvo::ReverseHost;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0)
        return 0;
    std::wstring url;
    for (size_t i = 1, wide = data[0] & 1; i + wide < size; i += 1 + wide)
        url += static_cast<wchar_t>(data[i] | (wide ? data[i + 1] << 8 : 0));
    qzdata_report_kelvo::UrlParts parts;
    parts.scheme = L"stale";
    parts.port = 7;
    if (!qzdata_report_kelvo::CrackUrl(url, parts))
        QZ_FUZZ_CHECK(parts.scheme == L"stale" && parts.port == 7 && parts.host.empty() &&
                      parts.path.empty());
    else
        QZ_FUZZ_CHECK(url.compare(0, parts.scheme.size() + 3, parts.scheme + L"://") == 0 &&
                      parts.path.find_first_of(L"?#") == std::wstring::npos);
    const std::string host(reinterpret_cast<const char*>(data) + 1, size - 1);
    if (!host.empty() && host.front() != '.' && host.back() != '.')
        QZ_FUZZ_CHECK(ReverseHost(ReverseHost(host)) == host);
    return 0;
}
