// The parts of an absolute URL, and the reversed form of a host name that URL events use. Pure
// text work; stateless, any thread.
//
// One splitter for every platform: the system URL cracker of Windows accepts texts that are no
// URL ("://h", "1http://h", ports above 65535), cuts a bracketed host without a port ("[:") and
// splits user from password at the last colon, so the same URL would give other events there.
#pragma once

#include <cstdint>
#include <string>

namespace qzdata_report_kelvo {

struct UrlParts {
    std::wstring scheme;  // without the ":"
    std::wstring host;
    uint16_t port = 0;
    std::wstring path;  // from the "/" after the host up to "?" or "#"; may be empty
    std::wstring user;
    std::wstring password;
    // Not the query: empty when the URL has no password; with one, the text of the URL from the
    // password on, cut to the length of the query and fragment. Callers do not use it.
    std::wstring extra;
};

// Splits `url` of the form scheme://[user[:password]@]host[:port][path][?query][#fragment] into
// `parts`, which is overwritten on success. A scheme is a letter followed by letters, digits, "+",
// "-" or "."; the host may be empty (file:///x) and may be a bracketed IPv6 address. Without a
// port, http gives 80, https 443, ftp 21 and any other scheme 0. False, with `parts` untouched, for
// a text that is no absolute URL: no scheme, no "://", or a port that is not a decimal number
// below 65536.
bool CrackUrl(const std::wstring& url, UrlParts& parts);

// The "."-separated pieces of `host` in reverse order: "aa.bb.cc" gives "cc.bb.aa". A host
// without a dot stays as it is; an empty last piece (after a trailing dot) is dropped.
std::string ReverseHost(const std::string& host);

}  // namespace qzdata_report_kelvo
