// URL splitting. A refused text leaves the parts alone. An accepted one is
//   scheme "://" authority path [("?" | "#") rest]
// where the authority ends with the host and an optional ":" port, the port is the number
// written there or the scheme's default, and the parts never reach across the "/", "?" and
// "#" that delimit them. Also the reversal of host names, which is its own inverse when no
// piece at either end is empty.
//
// Input: one byte (bit 0: the text is 16-bit units, else one unit per byte), then the text.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "codec/url_parts.h"
#include "fuzz_support.h"

namespace {

using qzdata_report_kelvo::CrackUrl;
using qzdata_report_kelvo::ReverseHost;
using qzdata_report_kelvo::UrlParts;

bool IsSchemeText(const std::wstring& scheme) {
    if (scheme.empty() || !((scheme[0] >= L'a' && scheme[0] <= L'z') ||
                            (scheme[0] >= L'A' && scheme[0] <= L'Z'))) {
        return false;
    }
    for (wchar_t c : scheme) {
        const bool ok = (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z') ||
                        (c >= L'0' && c <= L'9') || c == L'+' || c == L'-' || c == L'.';
        if (!ok) {
            return false;
        }
    }
    return true;
}

uint16_t DefaultPort(const std::wstring& scheme) {
    std::wstring lower;
    for (wchar_t c : scheme) {
        lower += (c >= L'A' && c <= L'Z') ? static_cast<wchar_t>(c - L'A' + L'a') : c;
    }
    return lower == L"http" ? 80 : lower == L"https" ? 443 : lower == L"ftp" ? 21 : 0;
}

void CheckUrl(const std::wstring& url) {
    UrlParts parts;
    parts.scheme = L"stale";
    parts.port = 7;
    if (!CrackUrl(url, parts)) {
        QZ_FUZZ_CHECK(parts.scheme == L"stale" && parts.port == 7 && parts.host.empty() &&
                      parts.path.empty());
        return;
    }
    QZ_FUZZ_CHECK(IsSchemeText(parts.scheme));
    QZ_FUZZ_CHECK(url.compare(0, parts.scheme.size() + 3, parts.scheme + L"://") == 0);
    const std::wstring rest = url.substr(parts.scheme.size() + 3);
    const size_t authorityEnd = std::min(rest.find_first_of(L"/?#"), rest.size());
    const std::wstring authority = rest.substr(0, authorityEnd);
    QZ_FUZZ_CHECK(rest.compare(authorityEnd, parts.path.size(), parts.path) == 0);
    const size_t tail = authorityEnd + parts.path.size();
    QZ_FUZZ_CHECK(tail == rest.size() || rest[tail] == L'?' || rest[tail] == L'#');
    QZ_FUZZ_CHECK(parts.path.empty() || parts.path[0] == L'/');
    QZ_FUZZ_CHECK(parts.path.find_first_of(L"?#") == std::wstring::npos);
    for (const std::wstring* part : {&parts.host, &parts.user, &parts.password}) {
        QZ_FUZZ_CHECK(part->find_first_of(L"/?#") == std::wstring::npos);
    }
    QZ_FUZZ_CHECK(parts.host.find(L'@') == std::wstring::npos);
    QZ_FUZZ_CHECK(authority.compare(0, parts.user.size(), parts.user) == 0);

    // The authority ends with the host, then nothing, ":" alone, or ":" and the port's digits;
    // the host may also occur in the port ("8:8"), so every split of that shape is tried.
    bool portMatches = false;
    for (size_t s = 0; s <= authority.size() && !portMatches; ++s) {
        const std::wstring suffix = authority.substr(authority.size() - s);
        if (s > 0 && suffix[0] != L':' && (suffix[0] < L'0' || suffix[0] > L'9')) {
            break;
        }
        const size_t hostEnd = authority.size() - s;
        const bool hostFits = parts.host.size() <= hostEnd &&
                              authority.compare(hostEnd - parts.host.size(), parts.host.size(),
                                                parts.host) == 0;
        if (hostFits && (s == 0 || suffix[0] == L':')) {
            uint32_t value = 0;
            for (size_t i = 1; i < suffix.size() && value <= 0xFFFF; ++i) {
                value = value * 10 + static_cast<uint32_t>(suffix[i] - L'0');
            }
            portMatches = suffix.size() <= 1 ? parts.port == DefaultPort(parts.scheme)
                                             : value <= 0xFFFF && parts.port == value;
        }
        if (s > 0 && suffix[0] == L':') {
            break;
        }
    }
    QZ_FUZZ_CHECK(portMatches);
}

void CheckReverseHost(const std::string& host) {
    const std::string reversed = ReverseHost(host);
    QZ_FUZZ_CHECK(reversed.size() <= host.size());
    if (!host.empty() && host.front() != '.' && host.back() != '.') {
        QZ_FUZZ_CHECK(reversed.size() == host.size());
        QZ_FUZZ_CHECK(ReverseHost(reversed) == host);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    std::wstring url;
    if (data[0] & 1) {
        for (size_t i = 1; i + 1 < size; i += 2) {
            url += static_cast<wchar_t>(data[i] | data[i + 1] << 8);
        }
    } else {
        for (size_t i = 1; i < size; ++i) {
            url += static_cast<wchar_t>(data[i]);
        }
    }
    CheckUrl(url);
    CheckReverseHost(std::string(reinterpret_cast<const char*>(data) + 1, size - 1));
    return 0;
}
