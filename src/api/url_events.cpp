#include "api/url_events.h"

#include <algorithm>
#include <iterator>

#include "api/constants.h"
#include "codec/text.h"
#include "codec/url_parts.h"
#include "port/code_page.h"
#include "post/text_conversion.h"
#include "report/constants.h"
#include "report/event_ids.h"

namespace qzdata_report_kelvo {

namespace {

constexpr wchar_t kWideEidSeparator = report::kEidSeparator;

bool IsLocalScheme(const std::wstring& scheme) {
    const std::string name = WideToUtf8(scheme);
    return std::any_of(std::begin(api::kLocalSchemes), std::end(api::kLocalSchemes),
                       [&](const char* local) { return text::EqualsNoCase(name, local); });
}

// The slashes are escaped too, so that the whole URL path stays one segment of the event path.
bool EscapeUrlPath(const std::wstring& path, std::string& escaped) {
    std::string utf8;
    return WideToNarrow(path, utf8, port::kCodePageUtf8) && EscapeEidText(utf8, &escaped, true);
}

// The path is complete here: the event ends as a simple event without sub-segments.
bool EndUrlEvent(ReportObject& object, EventFamily family, const std::string& path,
                 const char* desc, int dur) {
    return ReportSimpleEvent(object, family, path.c_str(), nullptr, nullptr, desc, dur);
}

}  // namespace

bool ReportUrlEvent(ReportObject& object, EventFamily family, const wchar_t* url,
                    const char* kind) {
    UrlParts parts;
    std::string host;
    std::string escapedPath;
    if (url == nullptr || kind == nullptr || !CrackUrl(url, parts) ||
        !WideToNarrow(parts.host, host, port::kCodePageUtf8) ||
        !EscapeUrlPath(parts.path, escapedPath)) {
        return false;
    }
    const char* localMark = IsLocalScheme(parts.scheme) ? api::kLocalHostPrefix : "";
    const std::string path = std::string(kind) + report::kEidSeparator + localMark +
                             ReverseHost(host) + report::kEidSeparator + escapedPath;
    return EndUrlEvent(object, family, path, nullptr, -1);
}

bool WidenUrl(const char* url, unsigned int codePage, std::wstring& wide) {
    return url != nullptr && NarrowToWide(url, wide, codePage);
}

bool ReportUrlWithDur(ReportObject& object, EventFamily family, const char* name, const char* url,
                      const char* suffix, int dur, const char* desc) {
    if (name == nullptr || suffix == nullptr || dur < 0) {
        return false;
    }
    std::wstring wideUrl;
    UrlParts parts;
    std::string escapedPath;
    if (!WidenUrl(url, port::kCodePageUtf8, wideUrl) || !CrackUrl(wideUrl, parts) ||
        !EscapeUrlPath(parts.path, escapedPath)) {
        return false;
    }
    // Deliberately unlike ReportUrlEvent: the host is neither reversed nor marked local.
    const std::string path = std::string(name) + report::kEidSeparator + WideToUtf8(parts.host) +
                             report::kEidSeparator + escapedPath + report::kEidSeparator + suffix;
    return EndUrlEvent(object, family, path, desc, dur);
}

bool BuildGameInfoEid(const char* eid, const char* src, const std::wstring& gameId,
                      const std::wstring& serverId, const std::wstring& from,
                      const std::wstring& traceId, std::string& path) {
    if (!Given(eid)) {
        return false;
    }
    // A part that does not convert stays empty and the event still goes out.
    std::wstring wide = Utf8ToWide(eid);
    if (Given(src)) {
        wide += kWideEidSeparator;
        wide += Utf8ToWide(src);
    }
    wide += api::kGameIdLabel;
    wide += gameId;
    wide += api::kServerIdLabel;
    wide += serverId;
    std::wstring fromPart = from;
    std::replace(fromPart.begin(), fromPart.end(), kWideEidSeparator, api::kFromSeparatorStandIn);
    wide += api::kFromLabel;
    wide += fromPart;
    if (!traceId.empty()) {
        wide += api::kTraceIdLabel;
        wide += traceId;
    }
    path = WideToUtf8(wide);
    return true;
}

}  // namespace qzdata_report_kelvo
