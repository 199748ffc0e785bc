#include "tests/api/fake_legacy_library.h"

#include <mutex>
#include <sstream>

#include "api/legacy_library.h"

namespace qz_fake_legacy {

namespace {

std::mutex logMutex;
std::vector<std::string> log;

std::string Text(const std::string& value) {
    return "\"" + value + "\"";
}

std::string Text(const std::wstring& value) {
    std::string narrow;
    for (wchar_t c : value) {
        narrow += c < 128 ? static_cast<char>(c) : '?';
    }
    return "L\"" + narrow + "\"";
}

std::string Text(const char* value) {
    return value == nullptr ? "null" : Text(std::string(value));
}

std::string Text(const wchar_t* value) {
    return value == nullptr ? "null" : Text(std::wstring(value));
}

std::string Text(bool value) {
    return value ? "true" : "false";
}

std::string Text(int value) {
    return std::to_string(value);
}

std::string Text(unsigned int value) {
    return std::to_string(value);
}

std::string Text(unsigned long value) {
    return std::to_string(value);
}

std::string Text(qzdata_report::DataReportPriority value) {
    return "priority " + std::to_string(static_cast<int>(value));
}

std::string Text(const void* value) {
    return value == nullptr ? "nullptr" : "pointer";
}

std::string Text(qzdata_report::ReportCallback value) {
    return value == nullptr ? "no callback" : "callback";
}

std::string Text(const std::vector<qzdata_report::ReportRecord>& records) {
    return std::to_string(records.size()) + " records";
}

std::string Text(const std::vector<qzdata_report::EidDescPair>& list) {
    return std::to_string(list.size()) + " pairs";
}

std::string Text(const qzdata_report::EidDescPtrPair* list) {
    size_t count = 0;
    for (; list != nullptr && list->eid != nullptr; ++list) {
        ++count;
    }
    return std::to_string(count) + " pairs";
}

std::string Text(const qzdata_report::SessionInfo& info) {
    return "session " + Text(info.channel);
}

void Join(std::ostringstream&) {}

template <class First, class... Rest>
void Join(std::ostringstream& out, const First& first, const Rest&... rest) {
    out << Text(first);
    if (sizeof...(rest) > 0) {
        out << ", ";
    }
    Join(out, rest...);
}

template <class... Args>
void Record(const char* name, const Args&... args) {
    std::ostringstream out;
    out << name << "(";
    Join(out, args...);
    out << ")";
    std::lock_guard<std::mutex> guard(logMutex);
    log.push_back(out.str());
}

}  // namespace

std::vector<std::string> Calls() {
    std::lock_guard<std::mutex> guard(logMutex);
    return log;
}

void Clear() {
    std::lock_guard<std::mutex> guard(logMutex);
    log.clear();
}

void Note(const std::string& line) {
    std::lock_guard<std::mutex> guard(logMutex);
    log.push_back(line);
}

}  // namespace qz_fake_legacy

namespace qzdata_report {

using qz_fake_legacy::Record;

bool Init(const std::wstring& url, const std::string& dty, const std::string& pro,
          unsigned int heartbeatInterval, WindowHandle window, const std::wstring& notSentPath,
          unsigned long eventMask, bool outputDebugString) {
    Record("Init", url, dty, pro, heartbeatInterval, static_cast<const void*>(window), notSentPath,
           eventMask, outputDebugString);
    return false;
}
void Run() {
    Record("Run");
}
void Exit(bool flush) {
    Record("Exit", flush);
}
void Flush() {
    Record("Flush");
}
bool FlushWithPriority(DataReportPriority priority) {
    Record("FlushWithPriority", priority);
    return false;
}
void SetSilent(bool silent) {
    Record("SetSilent", silent);
}
void SetOutputDebugString(bool enabled) {
    Record("SetOutputDebugString", enabled);
}
void SetDefaultPostPriority(DataReportPriority priority) {
    Record("SetDefaultPostPriority", priority);
}
void SetDefaultUrl(const std::wstring& url) {
    Record("SetDefaultUrl", url);
}
bool SetMachineId(const std::string& id) {
    Record("SetMachineId", id);
    return false;
}
bool PostSessionInfo(const SessionInfo& info) {
    Record("PostSessionInfo", info);
    return false;
}
bool PostCustomEvent(const std::string& eid, const std::string& desc, const std::string& content,
                     int dur, bool ati) {
    Record("PostCustomEvent", eid, desc, content, dur, ati);
    return false;
}
bool SendCustomEvent(const std::string& eid, const std::string& desc, const std::string& content,
                     int dur, bool ati) {
    Record("SendCustomEvent", eid, desc, content, dur, ati);
    return false;
}
bool SendErrorEvent(const char* eid, const char* content, const char* subEid) {
    Record("SendErrorEvent", eid, content, subEid);
    return false;
}
bool SendErrorEventEx(const std::string& eid, const std::string& content, const std::string& desc,
                      int dur, bool ati) {
    Record("SendErrorEventEx", eid, content, desc, dur, ati);
    return false;
}
bool PostEventWithDur(const char* eid, int dur, const char* desc) {
    Record("PostEventWithDur", eid, dur, desc);
    return false;
}
bool SendEventWithDur(const char* eid, int dur, const char* desc) {
    Record("SendEventWithDur", eid, dur, desc);
    return false;
}
bool PostEventWithSrc(const char* eid, const char* src, const char* desc) {
    Record("PostEventWithSrc", eid, src, desc);
    return false;
}
bool SendEventWithSrc(const char* eid, const char* src, const char* desc) {
    Record("SendEventWithSrc", eid, src, desc);
    return false;
}
bool PostEventWithInt(const char* eid, int value, const char* desc) {
    Record("PostEventWithInt", eid, value, desc);
    return false;
}
bool SendEventWithInt(const char* eid, int value, const char* desc) {
    Record("SendEventWithInt", eid, value, desc);
    return false;
}
bool PostSimpleEvent(const char* eid, const char* sub1, const char* sub2, const char* desc,
                     int dur) {
    Record("PostSimpleEvent", eid, sub1, sub2, desc, dur);
    return false;
}
bool SendSimpleEvent(const char* eid, const char* sub1, const char* sub2, const char* desc,
                     int dur) {
    Record("SendSimpleEvent", eid, sub1, sub2, desc, dur);
    return false;
}
bool PostUrlWithDur(const char* name, const char* url, const char* suffix, int dur,
                    const char* desc) {
    Record("PostUrlWithDur", name, url, suffix, dur, desc);
    return false;
}
bool SendUrlWithDur(const char* name, const char* url, const char* suffix, int dur,
                    const char* desc) {
    Record("SendUrlWithDur", name, url, suffix, dur, desc);
    return false;
}
bool PostOpenUrlEvent(const wchar_t* url) {
    Record("PostOpenUrlEvent", url);
    return false;
}
bool PostOpenUrlEvent(const char* url, unsigned int codePage) {
    Record("PostOpenUrlEvent", url, codePage);
    return false;
}
bool SendOpenUrlEvent(const wchar_t* url) {
    Record("SendOpenUrlEvent", url);
    return false;
}
bool SendOpenUrlEvent(const char* url, unsigned int codePage) {
    Record("SendOpenUrlEvent", url, codePage);
    return false;
}
bool PostReportUrlEvent(const wchar_t* url, const char* kind) {
    Record("PostReportUrlEvent", url, kind);
    return false;
}
bool PostReportUrlEvent(const char* url, const char* kind, unsigned int codePage) {
    Record("PostReportUrlEvent", url, kind, codePage);
    return false;
}
bool PostWithPriority(const std::wstring& url, DataReportPriority priority,
                      const std::vector<ReportRecord>& records, ReportCallback callback,
                      void* context) {
    Record("PostWithPriority", url, priority, records, callback, static_cast<const void*>(context));
    return false;
}
bool PostImmediately(const std::wstring& url, const std::vector<ReportRecord>& records,
                     ReportCallback callback, void* context) {
    Record("PostImmediately", url, records, callback, static_cast<const void*>(context));
    return false;
}
bool AddEidDescList(const std::vector<EidDescPair>& list) {
    Record("AddEidDescList", list);
    return false;
}
bool AddEidDescList(const EidDescPtrPair* list) {
    Record("AddEidDescList", list);
    return false;
}
void SetValue(const std::string& key, const std::string& value) {
    Record("SetValue", key, value);
}
void SetWideValue(const std::string& key, const std::wstring& value) {
    Record("SetWideValue", key, value);
}
void SetDWORD(const std::string& key, unsigned long value) {
    Record("SetDWORD", key, value);
}

}  // namespace qzdata_report
