#include "codec/url_parts.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "codec/text.h"

namespace qzdata_report_kelvo {

namespace {

constexpr wchar_t kSchemeEnd[] = L"://";
constexpr size_t kSchemeEndLength = sizeof(kSchemeEnd) / sizeof(kSchemeEnd[0]) - 1;
constexpr wchar_t kExtraMarks[] = L"?#";
constexpr wchar_t kPathStart = L'/';
constexpr wchar_t kUserInfoEnd = L'@';
constexpr wchar_t kPasswordMark = L':';
constexpr wchar_t kPortMark = L':';
constexpr wchar_t kIpv6End = L']';
constexpr uint32_t kMaxPort = 0xFFFF;
constexpr char kHostSeparator = '.';

struct DefaultPort {
    const char* scheme;
    uint16_t port;
};
constexpr DefaultPort kDefaultPorts[] = {{"http", 80}, {"https", 443}, {"ftp", 21}};

bool IsAsciiLetter(wchar_t c) {
    return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z');
}

bool IsAsciiDigit(wchar_t c) {
    return c >= L'0' && c <= L'9';
}

bool IsScheme(const std::wstring& scheme) {
    if (scheme.empty() || !IsAsciiLetter(scheme[0])) {
        return false;
    }
    return std::all_of(scheme.begin(), scheme.end(), [](wchar_t c) {
        return IsAsciiLetter(c) || IsAsciiDigit(c) || c == L'+' || c == L'-' || c == L'.';
    });
}

uint16_t DefaultPortOf(const std::wstring& scheme) {
    // IsScheme let only ASCII through, so each unit is one byte.
    const std::string name(scheme.begin(), scheme.end());
    for (const DefaultPort& known : kDefaultPorts) {
        if (text::EqualsNoCase(name, known.scheme)) {
            return known.port;
        }
    }
    return 0;
}

bool ParsePort(const std::wstring& digits, uint16_t& port) {
    uint32_t value = 0;
    for (const wchar_t c : digits) {
        if (!IsAsciiDigit(c)) {
            return false;
        }
        value = value * 10 + static_cast<uint32_t>(c - L'0');
        if (value > kMaxPort) {
            return false;
        }
    }
    port = static_cast<uint16_t>(value);
    return true;
}

}  // namespace

bool CrackUrl(const std::wstring& url, UrlParts& parts) {
    const size_t schemeEnd = url.find(kSchemeEnd);
    if (schemeEnd == std::wstring::npos || !IsScheme(url.substr(0, schemeEnd))) {
        return false;
    }
    UrlParts result;
    result.scheme = url.substr(0, schemeEnd);
    const size_t authorityStart = schemeEnd + kSchemeEndLength;
    const size_t extraStart = std::min(url.find_first_of(kExtraMarks, authorityStart), url.size());
    const size_t pathStart = std::min(url.find(kPathStart, authorityStart), extraStart);
    const std::wstring authority = url.substr(authorityStart, pathStart - authorityStart);

    const size_t userInfoEnd = authority.rfind(kUserInfoEnd);
    size_t hostStart = 0;
    if (userInfoEnd != std::wstring::npos) {
        const size_t passwordMark = authority.find(kPasswordMark);
        if (passwordMark < userInfoEnd) {
            result.password = authority.substr(passwordMark + 1, userInfoEnd - passwordMark - 1);
            result.extra = url.substr(authorityStart + passwordMark + 1, url.size() - extraStart);
        }
        result.user = authority.substr(0, std::min(passwordMark, userInfoEnd));
        hostStart = userInfoEnd + 1;
    }
    // The colon of a port comes after the closing bracket of an IPv6 address.
    size_t portMark = authority.rfind(kPortMark);
    const size_t ipv6End = authority.rfind(kIpv6End);
    if (portMark < hostStart || (ipv6End != std::wstring::npos && portMark < ipv6End)) {
        portMark = std::wstring::npos;
    }
    result.host = authority.substr(hostStart, std::min(portMark, authority.size()) - hostStart);
    const std::wstring portDigits =
        portMark == std::wstring::npos ? std::wstring() : authority.substr(portMark + 1);
    if (!ParsePort(portDigits, result.port)) {
        return false;
    }
    if (portDigits.empty()) {
        result.port = DefaultPortOf(result.scheme);
    }
    result.path = url.substr(pathStart, extraStart - pathStart);
    parts = std::move(result);
    return true;
}

std::string ReverseHost(const std::string& host) {
    std::vector<std::string> pieces;
    for (size_t start = 0; start < host.size();) {
        const size_t end = std::min(host.find(kHostSeparator, start), host.size());
        pieces.push_back(host.substr(start, end - start));
        start = end + 1;
    }
    std::string reversed;
    for (size_t i = pieces.size(); i-- > 0;) {
        reversed += pieces[i];
        if (i > 0) {
            reversed += kHostSeparator;
        }
    }
    return reversed;
}

}  // namespace qzdata_report_kelvo
