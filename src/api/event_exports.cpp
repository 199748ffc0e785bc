#include "api/guard.h"
#include "api/legacy_bridge.h"
#include "api/typed_events.h"
#include "qzdata_report.h"
#include "report/event_ids.h"
#include "report/report_object.h"

namespace qzdata_report_kelvo {

bool PostCustomEvent(const std::string& eid, const std::string& desc, const std::string& content,
                     int dur, bool ati) {
    CallLegacy(&LegacyFunctions::PostCustomEvent, eid, desc, content, dur, ati);
    return Guarded(
        false, [&] { return GetReportObject()->PostCustomEvent(eid, desc, content, dur, ati); });
}

bool SendCustomEvent(const std::string& eid, const std::string& desc, const std::string& content,
                     int dur, bool ati) {
    CallLegacy(&LegacyFunctions::SendCustomEvent, eid, desc, content, dur, ati);
    return Guarded(
        false, [&] { return GetReportObject()->SendCustomEvent(eid, desc, content, dur, ati); });
}

bool SendErrorEvent(const char* eid, const char* content, const char* subEid) {
    CallLegacy(&LegacyFunctions::SendErrorEvent, eid, content, subEid);
    return Guarded(false, [&] { return GetReportObject()->SendErrorEvent(eid, content, subEid); });
}

bool SendErrorEventEx(const std::string& eid, const std::string& content, const std::string& desc,
                      int dur, bool ati) {
    CallLegacy(&LegacyFunctions::SendErrorEventEx, eid, content, desc, dur, ati);
    return Guarded(
        false, [&] { return GetReportObject()->SendErrorEventEx(eid, content, desc, dur, ati); });
}

bool AddEidDescList(const std::vector<EidDescPair>& list) {
    CallLegacy(&LegacyFunctions::AddEidDescListVector, list);
    return Guarded(false, [&] { return AddEidDescriptions(list); });
}

bool AddEidDescList(const EidDescPtrPair* list) {
    CallLegacy(&LegacyFunctions::AddEidDescListArray, list);
    return Guarded(false, [&] { return AddEidDescriptions(list); });
}

bool EidEscape(const std::string& in, std::string* out, bool escapeSlash) {
    return Guarded(false, [&] { return EscapeEidText(in, out, escapeSlash); });
}

bool EidUnescape(const std::string& in, std::string* out) {
    return Guarded(false, [&] { return UnescapeEidText(in, out); });
}

bool PostEventWithDur(const char* eid, int dur, const char* desc) {
    CallLegacy(&LegacyFunctions::PostEventWithDur, eid, dur, desc);
    return Guarded(false, [&] {
        return ReportEventWithDur(*GetReportObject(), EventFamily::kPost, eid, dur, desc);
    });
}

bool SendEventWithDur(const char* eid, int dur, const char* desc) {
    CallLegacy(&LegacyFunctions::SendEventWithDur, eid, dur, desc);
    return Guarded(false, [&] {
        return ReportEventWithDur(*GetReportObject(), EventFamily::kSend, eid, dur, desc);
    });
}

bool PostEventWithSrc(const char* eid, const char* src, const char* desc) {
    CallLegacy(&LegacyFunctions::PostEventWithSrc, eid, src, desc);
    return Guarded(false, [&] {
        return ReportEventWithSrc(*GetReportObject(), EventFamily::kPost, eid, src, desc, nullptr);
    });
}

bool SendEventWithSrc(const char* eid, const char* src, const char* desc, const char* content) {
    // The older library takes no content.
    CallLegacy(&LegacyFunctions::SendEventWithSrc, eid, src, desc);
    return Guarded(false, [&] {
        return ReportEventWithSrc(*GetReportObject(), EventFamily::kSend, eid, src, desc, content);
    });
}

bool PostEventWithInt(const char* eid, int value, const char* desc) {
    CallLegacy(&LegacyFunctions::PostEventWithInt, eid, value, desc);
    return Guarded(false, [&] {
        return ReportEventWithInt(*GetReportObject(), EventFamily::kPost, eid, value, desc);
    });
}

bool SendEventWithInt(const char* eid, int value, const char* desc) {
    CallLegacy(&LegacyFunctions::SendEventWithInt, eid, value, desc);
    return Guarded(false, [&] {
        return ReportEventWithInt(*GetReportObject(), EventFamily::kSend, eid, value, desc);
    });
}

bool PostSimpleEvent(const char* eid, const char* sub1, const char* sub2, const char* desc,
                     int dur) {
    CallLegacy(&LegacyFunctions::PostSimpleEvent, eid, sub1, sub2, desc, dur);
    return Guarded(false, [&] {
        return ReportSimpleEvent(*GetReportObject(), EventFamily::kPost, eid, sub1, sub2, desc,
                                 dur);
    });
}

bool SendSimpleEvent(const char* eid, const char* sub1, const char* sub2, const char* desc,
                     int dur) {
    CallLegacy(&LegacyFunctions::SendSimpleEvent, eid, sub1, sub2, desc, dur);
    return Guarded(false, [&] {
        return ReportSimpleEvent(*GetReportObject(), EventFamily::kSend, eid, sub1, sub2, desc,
                                 dur);
    });
}

}  // namespace qzdata_report_kelvo
