#include <string>

#include "api/constants.h"
#include "api/guard.h"
#include "api/typed_events.h"
#include "codec/wire_names.h"
#include "post/text_conversion.h"
#include "qzdata_report.h"
#include "report/report_object.h"

namespace qzdata_report_kelvo {

namespace {

// A text that does not convert gives an empty value; the report goes on.
std::string Utf8(const wchar_t* text) {
    return text == nullptr ? std::string() : WideToUtf8(text);
}

std::string Utf8OrDefault(const std::wstring& text) {
    return text.empty() ? std::string(api::kDefaultGameText) : WideToUtf8(text);
}

void AddIfGiven(ReportRecord& extra, const char* key, const std::wstring& text) {
    if (!text.empty()) {
        extra[key] = WideToUtf8(text);
    }
}

void AddCommonTail(ReportRecord& extra) {
    extra[wire::kRecordKeyFla] = api::kYes;
    extra[wire::kRecordKeyJav] = api::kJavValue;
    extra[wire::kRecordKeyCoo] = api::kCooValue;
    extra[wire::kRecordKeyNve] = api::kNveValue;
}

// The keys of `info` (null: all empty): game and server default, passport and referrer only
// when given.
ReportRecord InfoKeys(const InfoCData* info) {
    static const InfoCData kEmpty;
    const InfoCData& data = info == nullptr ? kEmpty : *info;
    ReportRecord extra;
    extra[wire::kRecordKeyGame] = Utf8OrDefault(data.game);
    extra[wire::kRecordKeyGameServer] = Utf8OrDefault(data.game_server);
    AddIfGiven(extra, wire::kRecordKeyPassport, data.passport);
    AddIfGiven(extra, wire::kRecordKeyReferrer, data.referrer);
    AddCommonTail(extra);
    return extra;
}

bool SendInfo(const std::string& eid, const std::string& content, const ReportRecord& extra) {
    return GetReportObject()->SendCustomEventExt(eid, std::string(), content, -1, true, extra);
}

}  // namespace

bool PostCustomInfo(const InfoCData* info, const wchar_t* name) {
    return Guarded(false, [&] { return SendInfo(Utf8(name), std::string(), InfoKeys(info)); });
}

bool PostErrorInfo(const InfoCData* info, unsigned long errorCode, unsigned long subErrorCode,
                   const wchar_t* content) {
    return Guarded(false, [&] {
        ReportRecord extra = InfoKeys(info);
        extra[wire::kRecordKeyErrorCode] = std::to_string(errorCode);
        extra[wire::kRecordKeySubErrorCode] = std::to_string(subErrorCode);
        return SendInfo(api::kErrorInfoEid, Utf8(content), extra);
    });
}

bool PostActionInfo(const wchar_t* game, const wchar_t* pid) {
    return Guarded(false, [&] {
        if (!Given(game) || !Given(pid)) {
            return false;
        }
        ReportRecord extra;
        extra[wire::kRecordKeyGame] = Utf8(game);
        extra[wire::kRecordKeyGameServer] = api::kDefaultGameText;
        extra[wire::kRecordKeyPid] = Utf8(pid);
        AddCommonTail(extra);
        return SendInfo(api::kActionInfoEid, std::string(), extra);
    });
}

bool PostFailInfo(const wchar_t* step, int isNumerator, const wchar_t* errorCode,
                  const wchar_t* content) {
    return Guarded(false, [&] {
        if (!Given(step)) {
            return false;
        }
        ReportRecord extra;
        extra[wire::kRecordKeyStep] = Utf8(step);
        extra[wire::kRecordKeyIsNumerator] = isNumerator != 0 ? api::kYes : api::kNo;
        extra[wire::kRecordKeyErrorCode] = Utf8(errorCode);
        extra[wire::kRecordKeyFla] = isNumerator != 0 ? api::kNo : api::kYes;
        return SendInfo(api::kFailInfoEid, Utf8(content), extra);
    });
}

bool PostTimerInfo(const wchar_t* stepGroup) {
    return Guarded(false, [&] {
        if (!Given(stepGroup)) {
            return false;
        }
        ReportRecord extra;
        extra[wire::kRecordKeyStepGroup] = Utf8(stepGroup);
        extra[wire::kRecordKeyFla] = api::kYes;
        return SendInfo(api::kTimerInfoEid, std::string(), extra);
    });
}

bool PostEventStart(const wchar_t* name) {
    return Guarded(false, [&] {
        GetReportObject()->PostEventStart(name == nullptr ? std::wstring() : std::wstring(name));
        return true;
    });
}

bool PostEventDurEnd(const wchar_t* name, const wchar_t* desc) {
    return Guarded(false, [&] {
        return GetReportObject()->PostEventDurEnd(name == nullptr ? std::wstring() : name,
                                                  desc == nullptr ? std::wstring() : desc);
    });
}

}  // namespace qzdata_report_kelvo
