#include "tests/api/fake_legacy_library.h"

#include <mutex>
#include <sstream>
#include <type_traits>

#include "api/legacy_library.h"

namespace qz_fake_legacy {
namespace {

std::mutex logMutex;
std::vector<std::string> log;

using namespace qzdata_report;

std::string Text(const std::string& v) {
    return "'" + v + "'";
}
std::string Text(const std::wstring& v) {
    return "L" + Text(std::string(v.begin(), v.end()));
}
std::string Text(const char* v) {
    return v == nullptr ? "null" : Text(std::string(v));
}
std::string Text(const wchar_t* v) {
    return v == nullptr ? "null" : Text(std::wstring(v));
}
std::string Text(const void* v) {
    return v == nullptr ? "nullptr" : "pointer";
}
std::string Text(ReportCallback v) {
    return v == nullptr ? "no callback" : "callback";
}
std::string Text(DataReportPriority v) {
    return "priority " + std::to_string(int(v));
}
std::string Text(const SessionInfo& v) {
    return "session " + Text(v.channel);
}
std::string Text(const std::vector<ReportRecord>& v) {
    return std::to_string(v.size()) + " records";
}
std::string Text(const std::vector<EidDescPair>& v) {
    return std::to_string(v.size()) + " pairs";
}
std::string Text(const EidDescPtrPair* list) {
    size_t count = 0;
    for (; list != nullptr && list->eid != nullptr; ++list) {
        ++count;
    }
    return std::to_string(count) + " pairs";
}
template <class T, class = std::enable_if_t<std::is_integral<T>::value>>
std::string Text(T v) {
    return std::is_same<T, bool>::value ? (v ? "true" : "false") : std::to_string(v);
}

template <class... Args>
void Record(const char* name, const Args&... args) {
    std::ostringstream out;
    const char* separator = "";
    out << name << "(";
    ((out << separator << Text(args), separator = ", "), ...);
    (void)separator;
    out << ")";
    Note(out.str());
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

// Each legacy function records its call and its arguments; a bool function answers false.
#define FAKE(Ret, Name, Params, ...)                  \
    Ret Name Params {                                 \
        qz_fake_legacy::Record(#Name, ##__VA_ARGS__); \
        return Ret();                                 \
    }

namespace qzdata_report {

using S = const std::string&;
using W = const std::wstring&;
using C = const char*;
using WC = const wchar_t*;
using R = const std::vector<ReportRecord>&;

FAKE(bool, Init, (W a, S b, S c, unsigned int d, WindowHandle e, W f, unsigned long g, bool h), a,
     b, c, d, e, f, g, h)
FAKE(void, Run, ())
FAKE(void, Exit, (bool flush), flush)
FAKE(void, Flush, ())
FAKE(bool, FlushWithPriority, (DataReportPriority priority), priority)
FAKE(void, SetSilent, (bool silent), silent)
FAKE(void, SetOutputDebugString, (bool enabled), enabled)
FAKE(void, SetDefaultPostPriority, (DataReportPriority priority), priority)
FAKE(void, SetDefaultUrl, (W url), url)
FAKE(bool, SetMachineId, (S id), id)
FAKE(bool, PostSessionInfo, (const SessionInfo& info), info)
FAKE(bool, PostCustomEvent, (S a, S b, S c, int d, bool e), a, b, c, d, e)
FAKE(bool, SendCustomEvent, (S a, S b, S c, int d, bool e), a, b, c, d, e)
FAKE(bool, SendErrorEvent, (C a, C b, C c), a, b, c)
FAKE(bool, SendErrorEventEx, (S a, S b, S c, int d, bool e), a, b, c, d, e)
FAKE(bool, PostEventWithDur, (C a, int b, C c), a, b, c)
FAKE(bool, SendEventWithDur, (C a, int b, C c), a, b, c)
FAKE(bool, PostEventWithSrc, (C a, C b, C c), a, b, c)
FAKE(bool, SendEventWithSrc, (C a, C b, C c), a, b, c)
FAKE(bool, PostEventWithInt, (C a, int b, C c), a, b, c)
FAKE(bool, SendEventWithInt, (C a, int b, C c), a, b, c)
FAKE(bool, PostSimpleEvent, (C a, C b, C c, C d, int e), a, b, c, d, e)
FAKE(bool, SendSimpleEvent, (C a, C b, C c, C d, int e), a, b, c, d, e)
FAKE(bool, PostUrlWithDur, (C a, C b, C c, int d, C e), a, b, c, d, e)
FAKE(bool, SendUrlWithDur, (C a, C b, C c, int d, C e), a, b, c, d, e)
FAKE(bool, PostOpenUrlEvent, (WC a), a)
FAKE(bool, PostOpenUrlEvent, (C a, unsigned int b), a, b)
FAKE(bool, SendOpenUrlEvent, (WC a), a)
FAKE(bool, SendOpenUrlEvent, (C a, unsigned int b), a, b)
FAKE(bool, PostReportUrlEvent, (WC a, C b), a, b)
FAKE(bool, PostReportUrlEvent, (C a, C b, unsigned int c), a, b, c)
FAKE(bool, PostWithPriority, (W a, DataReportPriority b, R c, ReportCallback d, void* e), a, b, c,
     d, e)
FAKE(bool, PostImmediately, (W a, R b, ReportCallback c, void* d), a, b, c, d)
FAKE(bool, AddEidDescList, (const std::vector<EidDescPair>& a), a)
FAKE(bool, AddEidDescList, (const EidDescPtrPair* a), a)
FAKE(void, SetValue, (S a, S b), a, b)
FAKE(void, SetWideValue, (S a, W b), a, b)
FAKE(void, SetDWORD, (S a, unsigned long b), a, b)

}  // namespace qzdata_report
