// The older reporting library that every forwarded export also tells: its 38 functions, in the
// namespace qzdata_report, declared with the types of this library's interface (the older
// library is built with the same layout), and the table through which the exports reach them.
#pragma once

#include <string>
#include <vector>

#include "qzdata_report.h"

namespace qzdata_report {

using qzdata_report_kelvo::DataReportPriority;
using qzdata_report_kelvo::EidDescPair;
using qzdata_report_kelvo::EidDescPtrPair;
using qzdata_report_kelvo::ReportCallback;
using qzdata_report_kelvo::ReportRecord;
using qzdata_report_kelvo::SessionInfo;
using qzdata_report_kelvo::WindowHandle;

bool Init(const std::wstring& url, const std::string& dty, const std::string& pro,
          unsigned int heartbeatInterval, WindowHandle window, const std::wstring& notSentPath,
          unsigned long eventMask, bool outputDebugString);
void Run();
void Exit(bool flush);
void Flush();
bool FlushWithPriority(DataReportPriority priority);
void SetSilent(bool silent);
void SetOutputDebugString(bool enabled);
void SetDefaultPostPriority(DataReportPriority priority);
void SetDefaultUrl(const std::wstring& url);
bool SetMachineId(const std::string& id);
bool PostSessionInfo(const SessionInfo& info);
bool PostCustomEvent(const std::string& eid, const std::string& desc, const std::string& content,
                     int dur, bool ati);
bool SendCustomEvent(const std::string& eid, const std::string& desc, const std::string& content,
                     int dur, bool ati);
bool SendErrorEvent(const char* eid, const char* content, const char* subEid);
bool SendErrorEventEx(const std::string& eid, const std::string& content, const std::string& desc,
                      int dur, bool ati);
bool PostEventWithDur(const char* eid, int dur, const char* desc);
bool SendEventWithDur(const char* eid, int dur, const char* desc);
bool PostEventWithSrc(const char* eid, const char* src, const char* desc);
bool SendEventWithSrc(const char* eid, const char* src, const char* desc);
bool PostEventWithInt(const char* eid, int value, const char* desc);
bool SendEventWithInt(const char* eid, int value, const char* desc);
bool PostSimpleEvent(const char* eid, const char* sub1, const char* sub2, const char* desc,
                     int dur);
bool SendSimpleEvent(const char* eid, const char* sub1, const char* sub2, const char* desc,
                     int dur);
bool PostUrlWithDur(const char* name, const char* url, const char* suffix, int dur,
                    const char* desc);
bool SendUrlWithDur(const char* name, const char* url, const char* suffix, int dur,
                    const char* desc);
bool PostOpenUrlEvent(const wchar_t* url);
bool PostOpenUrlEvent(const char* url, unsigned int codePage);
bool SendOpenUrlEvent(const wchar_t* url);
bool SendOpenUrlEvent(const char* url, unsigned int codePage);
bool PostReportUrlEvent(const wchar_t* url, const char* kind);
bool PostReportUrlEvent(const char* url, const char* kind, unsigned int codePage);
bool PostWithPriority(const std::wstring& url, DataReportPriority priority,
                      const std::vector<ReportRecord>& records, ReportCallback callback,
                      void* context);
bool PostImmediately(const std::wstring& url, const std::vector<ReportRecord>& records,
                     ReportCallback callback, void* context);
bool AddEidDescList(const std::vector<EidDescPair>& list);
bool AddEidDescList(const EidDescPtrPair* list);
void SetValue(const std::string& key, const std::string& value);
void SetWideValue(const std::string& key, const std::wstring& value);
void SetDWORD(const std::string& key, unsigned long value);

}  // namespace qzdata_report

namespace qzdata_report_kelvo {

// One pointer per legacy function; a null pointer makes that call do nothing. Overloads carry
// a suffix: W and A for the wide and narrow URL forms, Vector and Array for the two lists.
struct LegacyFunctions {
    bool (*Init)(const std::wstring&, const std::string&, const std::string&, unsigned int,
                 WindowHandle, const std::wstring&, unsigned long, bool) = nullptr;
    void (*Run)() = nullptr;
    void (*Exit)(bool) = nullptr;
    void (*Flush)() = nullptr;
    bool (*FlushWithPriority)(DataReportPriority) = nullptr;
    void (*SetSilent)(bool) = nullptr;
    void (*SetOutputDebugString)(bool) = nullptr;
    void (*SetDefaultPostPriority)(DataReportPriority) = nullptr;
    void (*SetDefaultUrl)(const std::wstring&) = nullptr;
    bool (*SetMachineId)(const std::string&) = nullptr;
    bool (*PostSessionInfo)(const SessionInfo&) = nullptr;
    bool (*PostCustomEvent)(const std::string&, const std::string&, const std::string&, int,
                            bool) = nullptr;
    bool (*SendCustomEvent)(const std::string&, const std::string&, const std::string&, int,
                            bool) = nullptr;
    bool (*SendErrorEvent)(const char*, const char*, const char*) = nullptr;
    bool (*SendErrorEventEx)(const std::string&, const std::string&, const std::string&, int,
                             bool) = nullptr;
    bool (*PostEventWithDur)(const char*, int, const char*) = nullptr;
    bool (*SendEventWithDur)(const char*, int, const char*) = nullptr;
    bool (*PostEventWithSrc)(const char*, const char*, const char*) = nullptr;
    bool (*SendEventWithSrc)(const char*, const char*, const char*) = nullptr;
    bool (*PostEventWithInt)(const char*, int, const char*) = nullptr;
    bool (*SendEventWithInt)(const char*, int, const char*) = nullptr;
    bool (*PostSimpleEvent)(const char*, const char*, const char*, const char*, int) = nullptr;
    bool (*SendSimpleEvent)(const char*, const char*, const char*, const char*, int) = nullptr;
    bool (*PostUrlWithDur)(const char*, const char*, const char*, int, const char*) = nullptr;
    bool (*SendUrlWithDur)(const char*, const char*, const char*, int, const char*) = nullptr;
    bool (*PostOpenUrlEventW)(const wchar_t*) = nullptr;
    bool (*PostOpenUrlEventA)(const char*, unsigned int) = nullptr;
    bool (*SendOpenUrlEventW)(const wchar_t*) = nullptr;
    bool (*SendOpenUrlEventA)(const char*, unsigned int) = nullptr;
    bool (*PostReportUrlEventW)(const wchar_t*, const char*) = nullptr;
    bool (*PostReportUrlEventA)(const char*, const char*, unsigned int) = nullptr;
    bool (*PostWithPriority)(const std::wstring&, DataReportPriority,
                             const std::vector<ReportRecord>&, ReportCallback, void*) = nullptr;
    bool (*PostImmediately)(const std::wstring&, const std::vector<ReportRecord>&, ReportCallback,
                            void*) = nullptr;
    bool (*AddEidDescListVector)(const std::vector<EidDescPair>&) = nullptr;
    bool (*AddEidDescListArray)(const EidDescPtrPair*) = nullptr;
    void (*SetValue)(const std::string&, const std::string&) = nullptr;
    void (*SetWideValue)(const std::string&, const std::wstring&) = nullptr;
    void (*SetDWORD)(const std::string&, unsigned long) = nullptr;
};

// The table of the functions of a linked legacy library. Only a build (or test) that links one
// may call this: it references every legacy symbol.
inline LegacyFunctions MakeLinkedLegacyFunctions() {
    LegacyFunctions table;
    table.Init = &qzdata_report::Init;
    table.Run = &qzdata_report::Run;
    table.Exit = &qzdata_report::Exit;
    table.Flush = &qzdata_report::Flush;
    table.FlushWithPriority = &qzdata_report::FlushWithPriority;
    table.SetSilent = &qzdata_report::SetSilent;
    table.SetOutputDebugString = &qzdata_report::SetOutputDebugString;
    table.SetDefaultPostPriority = &qzdata_report::SetDefaultPostPriority;
    table.SetDefaultUrl = &qzdata_report::SetDefaultUrl;
    table.SetMachineId = &qzdata_report::SetMachineId;
    table.PostSessionInfo = &qzdata_report::PostSessionInfo;
    table.PostCustomEvent = &qzdata_report::PostCustomEvent;
    table.SendCustomEvent = &qzdata_report::SendCustomEvent;
    table.SendErrorEvent = &qzdata_report::SendErrorEvent;
    table.SendErrorEventEx = &qzdata_report::SendErrorEventEx;
    table.PostEventWithDur = &qzdata_report::PostEventWithDur;
    table.SendEventWithDur = &qzdata_report::SendEventWithDur;
    table.PostEventWithSrc = &qzdata_report::PostEventWithSrc;
    table.SendEventWithSrc = &qzdata_report::SendEventWithSrc;
    table.PostEventWithInt = &qzdata_report::PostEventWithInt;
    table.SendEventWithInt = &qzdata_report::SendEventWithInt;
    table.PostSimpleEvent = &qzdata_report::PostSimpleEvent;
    table.SendSimpleEvent = &qzdata_report::SendSimpleEvent;
    table.PostUrlWithDur = &qzdata_report::PostUrlWithDur;
    table.SendUrlWithDur = &qzdata_report::SendUrlWithDur;
    table.PostOpenUrlEventW = &qzdata_report::PostOpenUrlEvent;
    table.PostOpenUrlEventA = &qzdata_report::PostOpenUrlEvent;
    table.SendOpenUrlEventW = &qzdata_report::SendOpenUrlEvent;
    table.SendOpenUrlEventA = &qzdata_report::SendOpenUrlEvent;
    table.PostReportUrlEventW = &qzdata_report::PostReportUrlEvent;
    table.PostReportUrlEventA = &qzdata_report::PostReportUrlEvent;
    table.PostWithPriority = &qzdata_report::PostWithPriority;
    table.PostImmediately = &qzdata_report::PostImmediately;
    table.AddEidDescListVector = &qzdata_report::AddEidDescList;
    table.AddEidDescListArray = &qzdata_report::AddEidDescList;
    table.SetValue = &qzdata_report::SetValue;
    table.SetWideValue = &qzdata_report::SetWideValue;
    table.SetDWORD = &qzdata_report::SetDWORD;
    return table;
}

// The table this build was linked with: every entry null when no legacy library was linked.
const LegacyFunctions& BuiltInLegacyFunctions();

}  // namespace qzdata_report_kelvo
