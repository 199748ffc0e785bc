#include "tests/api/fake_legacy_library.h"

#include <mutex>
#include <utility>

#include "api/legacy_library.h"

namespace qz_fake_legacy {
namespace {

std::mutex logMutex;
std::vector<std::string> log;

using namespace qzdata_report;

// How an argument shows in the log: as it would be written in C++ where it can, lists by their
// length (the array by its first id), other pointers by whether they are set.
struct Show {
    static std::string Of(const std::string& v) { return '"' + v + '"'; }
    static auto Of(const std::wstring& v) { return 'L' + Of(std::string(v.begin(), v.end())); }
    static std::string Of(const char* v) { return v == nullptr ? "nullptr" : Of(std::string(v)); }
    static std::string Of(const void* v) { return v == nullptr ? "nullptr" : "set"; }
    static std::string Of(ReportCallback v) { return v == nullptr ? "nullptr" : "set"; }
    static std::string Of(bool v) { return v ? "true" : "false"; }
    static std::string Of(int v) { return std::to_string(v); }
    static std::string Of(unsigned v) { return std::to_string(v); }
    static std::string Of(unsigned long v) { return std::to_string(v); }
    static std::string Items(size_t n) { return std::to_string(n) + " items"; }
    static std::string Of(const std::vector<ReportRecord>& v) { return Items(v.size()); }
    static std::string Of(const std::vector<EidDescPair>& v) { return Items(v.size()); }
    static std::string Of(const EidDescPtrPair* v) { return v == nullptr ? "nullptr" : Of(v->eid); }
};

}  // namespace

template <class... Args>
void Record(const char* name, const Args&... args) {
    std::string list;
    ((list += ", " + Show::Of(args)), ...);
    Note(name + ("(" + list.substr(list.empty() ? 0 : 2)) + ")");
}

std::vector<std::string> Take() {
    std::lock_guard<std::mutex> guard(logMutex);
    return std::exchange(log, {});
}

void Note(const std::string& line) {
    std::lock_guard<std::mutex> guard(logMutex);
    log.push_back(line);
}

}  // namespace qz_fake_legacy

// Each legacy function logs its call and its arguments; a bool function answers false.
#define FAKE(Ret, Name, Params, ...)                                \
    Ret Name Params {                                               \
        return qz_fake_legacy::Record(#Name, ##__VA_ARGS__), Ret(); \
    }

namespace qzdata_report {

using S = const std::string&;
using W = const std::wstring&;
using C = const char*;
using R = const std::vector<ReportRecord>&;
using P = DataReportPriority;

FAKE(bool, Init, (W a, S b, S c, unsigned d, void* e, W f, unsigned long g, bool h), a, b, c, d, e,
     f, g, h)
FAKE(void, Run, ())
FAKE(void, Exit, (bool a), a)
FAKE(void, Flush, ())
FAKE(bool, FlushWithPriority, (P a), a)
FAKE(void, SetSilent, (bool a), a)
FAKE(void, SetOutputDebugString, (bool a), a)
FAKE(void, SetDefaultPostPriority, (P a), a)
FAKE(void, SetDefaultUrl, (W a), a)
FAKE(bool, SetMachineId, (S a), a)
FAKE(bool, PostSessionInfo, (const SessionInfo&))
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
FAKE(bool, PostOpenUrlEvent, (const wchar_t* a), a)
FAKE(bool, PostOpenUrlEvent, (C a, unsigned b), a, b)
FAKE(bool, SendOpenUrlEvent, (const wchar_t* a), a)
FAKE(bool, SendOpenUrlEvent, (C a, unsigned b), a, b)
FAKE(bool, PostReportUrlEvent, (const wchar_t* a, C b), a, b)
FAKE(bool, PostReportUrlEvent, (C a, C b, unsigned c), a, b, c)
FAKE(bool, PostWithPriority, (W a, P b, R c, ReportCallback d, void* e), a, b, c, d, e)
FAKE(bool, PostImmediately, (W a, R b, ReportCallback c, void* d), a, b, c, d)
FAKE(bool, AddEidDescList, (const std::vector<EidDescPair>& a), a)
FAKE(bool, AddEidDescList, (const EidDescPtrPair* a), a)
FAKE(void, SetValue, (S a, S b), a, b)
FAKE(void, SetWideValue, (S a, W b), a, b)
FAKE(void, SetDWORD, (S a, unsigned long b), a, b)

}  // namespace qzdata_report
