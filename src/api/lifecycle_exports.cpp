#include <algorithm>
#include <cstdint>

#include "api/guard.h"
#include "api/legacy_bridge.h"
#include "qzdata_report.h"
#include "report/report_object.h"

namespace qzdata_report_kelvo {

namespace {

uint32_t ClampToUInt32(unsigned long value) {
    return static_cast<uint32_t>(std::min<unsigned long>(value, UINT32_MAX));
}

}  // namespace

bool Init(const std::wstring& url, const std::string& dty, const std::string& pro,
          unsigned int heartbeatInterval, WindowHandle window, const std::wstring& notSentPath,
          unsigned long eventMask, bool outputDebugString) {
    CallLegacy(&LegacyFunctions::Init, url, dty, pro, heartbeatInterval, window, notSentPath,
               eventMask, outputDebugString);
    return Guarded(false, [&] {
        return GetReportObject()->Init(url, dty, pro, heartbeatInterval, window, notSentPath,
                                       ClampToUInt32(eventMask), outputDebugString);
    });
}

void Run() {
    CallLegacy(&LegacyFunctions::Run);
    GuardedVoid([] { GetReportObject()->Run(); });
}

void Exit(bool flush, unsigned long timeoutMs) {
    // The older library's Exit takes the flag alone.
    CallLegacy(&LegacyFunctions::Exit, flush);
    GuardedVoid([&] { GetReportObject()->Exit(flush, ClampToUInt32(timeoutMs)); });
}

void Flush() {
    CallLegacy(&LegacyFunctions::Flush);
    GuardedVoid([] { GetReportObject()->Flush(); });
}

bool FlushWithPriority(DataReportPriority priority) {
    CallLegacy(&LegacyFunctions::FlushWithPriority, priority);
    return Guarded(false, [&] { return GetReportObject()->FlushWithPriority(priority); });
}

void SetSilent(bool silent) {
    CallLegacy(&LegacyFunctions::SetSilent, silent);
    GuardedVoid([&] { GetReportObject()->SetSilent(silent); });
}

bool IsSilent() {
    return Guarded(false, [] { return GetReportObject()->IsSilent(); });
}

void SetOutputDebugString(bool enabled) {
    CallLegacy(&LegacyFunctions::SetOutputDebugString, enabled);
    GuardedVoid([&] { GetReportObject()->SetOutputDebugString(enabled); });
}

bool GetOutputDebugString() {
    return Guarded(false, [] { return GetReportObject()->GetOutputDebugString(); });
}

std::string GetSessionId() {
    return Guarded(std::string(), [] { return GetReportObject()->GetSessionId(); });
}

bool IsStopOldSdk() {
    return Guarded(false, [] { return GetReportObject()->IsStopOldSdk(); });
}

void SetDefaultPostPriority(DataReportPriority priority) {
    CallLegacy(&LegacyFunctions::SetDefaultPostPriority, priority);
    GuardedVoid([&] { GetReportObject()->SetDefaultPostPriority(priority); });
}

DataReportPriority GetDefaultPostPriority() {
    return Guarded(kPriorityImmediate, [] { return GetReportObject()->GetDefaultPostPriority(); });
}

void SetDefaultUrl(const std::wstring& url) {
    CallLegacy(&LegacyFunctions::SetDefaultUrl, url);
    GuardedVoid([&] { GetReportObject()->SetDefaultUrl(url); });
}

std::wstring GetDefaultUrl() {
    return Guarded(std::wstring(), [] { return GetReportObject()->GetDefaultUrl(); });
}

bool PostWithPriority(const std::wstring& url, DataReportPriority priority,
                      const std::vector<ReportRecord>& records, ReportCallback callback,
                      void* context) {
    CallLegacy(&LegacyFunctions::PostWithPriority, url, priority, records, callback, context);
    return Guarded(false, [&] {
        return GetReportObject()->PostWithPriority(url, priority, records, callback, context);
    });
}

bool PostImmediately(const std::wstring& url, const std::vector<ReportRecord>& records,
                     ReportCallback callback, void* context) {
    CallLegacy(&LegacyFunctions::PostImmediately, url, records, callback, context);
    return Guarded(
        false, [&] { return GetReportObject()->PostImmediately(url, records, callback, context); });
}

}  // namespace qzdata_report_kelvo
