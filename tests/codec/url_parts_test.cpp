#include "codec/url_parts.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>

namespace qzdata_report_kelvo {
namespace {

auto Fields(const UrlParts& p) {
    return std::tie(p.scheme, p.host, p.port, p.path, p.user, p.password, p.extra);
}

TEST(UrlPartsTest, CrackUrlSplitsAbsoluteUrlsAndRefusesOtherText) {
    // `extra`: empty without a password, else from the password on, cut to query+fragment length.
    const std::pair<std::wstring, UrlParts> cases[] = {
        {L"http://aa.bb.cc/x/y?q=1#f", {L"http", L"aa.bb.cc", 80, L"/x/y", L"", L"", L""}},
        {L"HTTPS://me:pw@h.ex/p#frag", {L"HTTPS", L"h.ex", 443, L"/p", L"me", L"pw", L"pw@h."}},
        {L"ftp://me@host", {L"ftp", L"host", 21, L"", L"me", L"", L""}},
        {L"ftp://me:p:q@host:65535", {L"ftp", L"host", 65535, L"", L"me", L"p:q", L""}},
        {L"tze://[::1]:9/a/b.c", {L"tze", L"[::1]", 9, L"/a/b.c", L"", L"", L""}},
        {L"chrome://[::1]?x/y", {L"chrome", L"[::1]", 0, L"", L"", L"", L""}},
        {L"http://h:/a", {L"http", L"h", 80, L"/a", L"", L"", L""}},
        {L"s+1.-x:///c:/d", {L"s+1.-x", L"", 0, L"/c:/d", L"", L"", L""}}};
    for (const auto& [url, expected] : cases) {
        UrlParts parts;
        EXPECT_TRUE(CrackUrl(url, parts)) << url;
        EXPECT_EQ(Fields(expected), Fields(parts)) << url;
    }
    // Text that is no absolute URL is refused and leaves the parts alone.
    for (const wchar_t* url :
         {L"", L"aa.bb.cc/x", L"/x/y", L"http:/x", L"://h", L"1http://h", L"ht tp://h",
          L"h?x=http://a", L"http://h:65536/", L"http://h:8o/", L"http://h:-1"}) {
        UrlParts parts{L"kept", L"", 0, L"", L"", L"", L""};
        EXPECT_TRUE(!CrackUrl(url, parts) && parts.scheme == L"kept") << url;
    }
}

TEST(UrlPartsTest, ReverseHost) {
    const std::pair<const char*, const char*> cases[] = {
        {"aa.bb.cc", "cc.bb.aa"}, {"10.0.0.1", "1.0.0.10"}, {"host", "host"}, {"aa.bb.", "bb.aa"},
        {".aa", "aa."},           {"a..b", "b..a"},         {"", ""}};
    for (const auto& [host, reversed] : cases)
        EXPECT_EQ(reversed, ReverseHost(host)) << host;
}

}  // namespace
}  // namespace qzdata_report_kelvo
