#include <string>

#include "api/constants.h"
#include "api/guard.h"
#include "api/legacy_bridge.h"
#include "api/url_events.h"
#include "qzdata_report.h"
#include "report/report_object.h"

namespace qzdata_report_kelvo {

// The narrow forms end in the wide exports, so that the older library hears a converted URL a
// second time, in wide form, just before the library's own work.

bool PostOpenUrlEvent(const wchar_t* url) {
    CallLegacy(&LegacyFunctions::PostOpenUrlEventW, url);
    return Guarded(false, [&] {
        return ReportUrlEvent(*GetReportObject(), EventFamily::kPost, url, api::kOpenUrlKind);
    });
}

bool PostOpenUrlEvent(const char* url, unsigned int codePage) {
    CallLegacy(&LegacyFunctions::PostOpenUrlEventA, url, codePage);
    return Guarded(false, [&] {
        std::wstring wide;
        return WidenUrl(url, codePage, wide) && PostOpenUrlEvent(wide.c_str());
    });
}

bool SendOpenUrlEvent(const wchar_t* url) {
    CallLegacy(&LegacyFunctions::SendOpenUrlEventW, url);
    return Guarded(false, [&] {
        return ReportUrlEvent(*GetReportObject(), EventFamily::kSend, url, api::kOpenUrlKind);
    });
}

bool SendOpenUrlEvent(const char* url, unsigned int codePage) {
    CallLegacy(&LegacyFunctions::SendOpenUrlEventA, url, codePage);
    return Guarded(false, [&] {
        std::wstring wide;
        return WidenUrl(url, codePage, wide) && SendOpenUrlEvent(wide.c_str());
    });
}

bool PostReportUrlEvent(const wchar_t* url, const char* kind) {
    CallLegacy(&LegacyFunctions::PostReportUrlEventW, url, kind);
    return Guarded(
        false, [&] { return ReportUrlEvent(*GetReportObject(), EventFamily::kPost, url, kind); });
}

bool PostReportUrlEvent(const char* url, const char* kind, unsigned int codePage) {
    CallLegacy(&LegacyFunctions::PostReportUrlEventA, url, kind, codePage);
    return Guarded(false, [&] {
        std::wstring wide;
        return WidenUrl(url, codePage, wide) && PostReportUrlEvent(wide.c_str(), kind);
    });
}

bool PostUrlWithDur(const char* name, const char* url, const char* suffix, int dur,
                    const char* desc) {
    CallLegacy(&LegacyFunctions::PostUrlWithDur, name, url, suffix, dur, desc);
    return Guarded(false, [&] {
        return ReportUrlWithDur(*GetReportObject(), EventFamily::kPost, name, url, suffix, dur,
                                desc);
    });
}

bool SendUrlWithDur(const char* name, const char* url, const char* suffix, int dur,
                    const char* desc) {
    CallLegacy(&LegacyFunctions::SendUrlWithDur, name, url, suffix, dur, desc);
    return Guarded(false, [&] {
        return ReportUrlWithDur(*GetReportObject(), EventFamily::kSend, name, url, suffix, dur,
                                desc);
    });
}

// No legacy counterpart: the older library hears this event through SendEventWithSrc.
bool SendEventWithGameInfo(const char* eid, const char* src, const std::wstring& gameId,
                           const std::wstring& serverId, const std::wstring& from,
                           const std::wstring& traceId) {
    return Guarded(false, [&] {
        std::string path;
        return BuildGameInfoEid(eid, src, gameId, serverId, from, traceId, path) &&
               SendEventWithSrc(path.c_str(), "", "", "");
    });
}

}  // namespace qzdata_report_kelvo
