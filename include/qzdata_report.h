// qzdata_report: client-side analytics reporting.
//
// A host calls these functions to report that it started and ended, who the user is, and that
// events, errors and pages happened. Delivery happens on the library's own threads; no function
// here does file or network work on the caller's thread, and none throws.
//
// Order of use: Init; the optional setters; Run; reports from any thread; at last Exit. Init,
// Run and Exit must not race each other or any other call. Every report function returns true
// when the report was handed to the library's queue (or dropped because the library is silent);
// true says nothing about delivery.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "qzdata_report_export.h"

namespace qzdata_report_kelvo {

// The window that owns the library's timers on platforms that have one; opaque and unused
// elsewhere. May be null.
using WindowHandle = void*;

// Selects a priority bucket. The value is carried and range-checked but never changes the fate
// of a report: every report is queued at once.
enum DataReportPriority : int {
    kPriorityImmediate = 0,
    kPriorityHigh = 1,
    kPriorityAboveNormal = 2,
    kPriorityNormal = 3,
    kPriorityBelowNormal = 4,
    kPriorityLow = 5,
};

// One record: named text values, ordered by key. Text is UTF-8.
using ReportRecord = std::map<std::string, std::string>;

struct ReportPost;

// What a completion callback receives. `post` is valid during the callback only.
struct ReportResponed {
    ReportPost* post = nullptr;
    uint32_t status = 0;
};

// Completion callback of PostWithPriority and PostImmediately; runs on the library's timer
// thread.
using ReportCallback = void (*)(ReportResponed& response);

// One queued unit: at most 20 records for one URL.
struct ReportPost {
    std::wstring url;
    std::vector<ReportRecord> records;
    bool flag = false;
    ReportCallback callback = nullptr;
    void* context = nullptr;
};

// Called once with the machine id when it is known, on the library's timer thread.
using MachineIdCallback = void (*)(const std::string& id, void* context);

// An event id segment and its readable description (vector form of AddEidDescList).
struct EidDescPair {
    std::string eid;
    std::wstring desc;
};

// Array form of AddEidDescList; an element with a null `eid` ends the array.
struct EidDescPtrPair {
    const char* eid;
    const wchar_t* desc;
};

// Session information of the host. The layout is shared with the older reporting library: the
// fields stay in this order, the ones this library does not read included.
struct SessionInfo {
    std::string channel;     // required; every "OTHER" becomes "null"
    std::string run_source;  // required; every "OTHER" becomes "null"
    std::string iver;        // required
    std::string channel_desc;
    std::string passport;
    std::string tzuid;
    std::string rso_desc;
    std::string uver;
    std::string brower_version;
    std::string local_language;
    std::string os;
    std::string screen_color;
    std::string screen_resolution;
    std::string machine;
    std::string net_type;
    bool report_time = false;     // adds the time of the call
    uint32_t reserved_word1 = 0;  // not read by this library
    uint32_t reserved_word2 = 0;  // not read by this library
    std::string session_type;
    std::string game;
    std::string game_server;
    std::string referrer;
    std::string ref_desc;
    std::string mpassport;
    std::string reserved_text;  // not read by this library
    std::string trace_id;
};

// Context of the info-data reports (PostCustomInfo, PostErrorInfo). An empty `game` or
// `game_server` is sent as "default"; an empty `referrer` or `passport` is left out.
struct InfoCData {
    std::wstring game;
    std::wstring game_server;
    std::wstring referrer;
    std::wstring passport;
};

// --- Lifecycle ---------------------------------------------------------------------------------

// Sets the library up. `url`, `dty` and `pro` must not be empty and `heartbeatInterval` must be
// at least 5000 ms. `notSentPath` names the file of not-sent reports of the last run (may be
// empty). `eventMask`: bit 0 sends "startup", bit 1 "endup", bit 2 "heartbeat". Returns false
// when an argument is refused or the timers or the worker cannot be created.
QZ_EXPORT bool Init(const std::wstring& url, const std::string& dty, const std::string& pro,
                    unsigned int heartbeatInterval, WindowHandle window,
                    const std::wstring& notSentPath, unsigned long eventMask,
                    bool outputDebugString);

// Starts delivery and sends "startup". Reports made between Init and Run wait in the queue.
QZ_EXPORT void Run();

// Sends the last "heartbeat" and "endup" and stops the worker, waiting up to `timeoutMs` for
// it; posts still queued when the time runs out are lost. Afterwards reports are accepted and
// go nowhere.
QZ_EXPORT void Exit(bool flush, unsigned long timeoutMs);

// Hands the priority buckets to the worker (they are empty in normal use).
QZ_EXPORT void Flush();
// Hands one bucket to the worker; false for a value of 6 or more.
QZ_EXPORT bool FlushWithPriority(DataReportPriority priority);

// While silent, every report is dropped and its function still returns true.
QZ_EXPORT void SetSilent(bool silent);
QZ_EXPORT bool IsSilent();

// The debug trace: each event record is written to the debug output before it is queued.
QZ_EXPORT void SetOutputDebugString(bool enabled);
QZ_EXPORT bool GetOutputDebugString();

// The library's version text, "vs-nat-2.2.5". Needs no set-up; callable at any time.
QZ_EXPORT std::string GetSDKVersion();

// The session id made by Init (36 characters); empty before Init.
QZ_EXPORT std::string GetSessionId();

// True once the server has turned the older reporting library off for this process.
QZ_EXPORT bool IsStopOldSdk();

// Priority of the Post family; stored without a check.
QZ_EXPORT void SetDefaultPostPriority(DataReportPriority priority);
QZ_EXPORT DataReportPriority GetDefaultPostPriority();

// The collector URL of all reports but the raw ones; must not change while reports are made.
QZ_EXPORT void SetDefaultUrl(const std::wstring& url);
QZ_EXPORT std::wstring GetDefaultUrl();

// --- Session information ----------------------------------------------------------------------

// Makes `info` the common fields of every record sent from now on (with the machine id once it
// is known), replacing what an earlier call gave. False when `channel`, `run_source` or `iver`
// is empty. May be called before Init. InitSessionInfo does the same without telling the older
// library.
QZ_EXPORT bool PostSessionInfo(const SessionInfo& info);
QZ_EXPORT bool InitSessionInfo(const SessionInfo& info);

// --- Raw reports: records the host made ----------------------------------------------------------

// Queue `records` for `url`, in posts of at most 20 records; `callback` (may be null) is bound
// to each post. False for an empty URL, when every record is empty, or before Init. The
// priority is accepted and has no effect.
QZ_EXPORT bool PostWithPriority(const std::wstring& url, DataReportPriority priority,
                                const std::vector<ReportRecord>& records, ReportCallback callback,
                                void* context);
QZ_EXPORT bool PostImmediately(const std::wstring& url, const std::vector<ReportRecord>& records,
                               ReportCallback callback, void* context);

// --- Custom and error events ----------------------------------------------------------------

// One event with id `eid` (cut to 99 bytes), description (254), content (499), duration in ms
// (left out when below 0) and, when `ati` is true, the local time. False for an empty `eid`.
// The Post form goes with the default priority, the Send form without; both queue at once.
QZ_EXPORT bool PostCustomEvent(const std::string& eid, const std::string& desc,
                               const std::string& content, int dur, bool ati);
QZ_EXPORT bool SendCustomEvent(const std::string& eid, const std::string& desc,
                               const std::string& content, int dur, bool ati);

// An error event with id "error/" + `eid` (and "/" + `subEid` when given). `eid` must not be
// null; `content` and `subEid` may be.
QZ_EXPORT bool SendErrorEvent(const char* eid, const char* content, const char* subEid);
// Note the order: content before description.
QZ_EXPORT bool SendErrorEventEx(const std::string& eid, const std::string& content,
                                const std::string& desc, int dur, bool ati);

// Adds descriptions of id segments (looked up without regard to case). Call before reports are
// made from other threads. False when a description could not be converted to UTF-8; the other
// pairs are still added.
QZ_EXPORT bool AddEidDescList(const std::vector<EidDescPair>& list);
QZ_EXPORT bool AddEidDescList(const EidDescPtrPair* list);

// Makes any text safe as an id segment: "." becomes "..", other bytes outside letters, digits,
// "-", "(", ")" (and "/" unless `escapeSlash`) become "." and two hex digits. False for a null
// `out`.
QZ_EXPORT bool EidEscape(const std::string& in, std::string* out, bool escapeSlash);
// Reverses EidEscape; false (and `out` unchanged) for a "." that starts no valid escape.
QZ_EXPORT bool EidUnescape(const std::string& in, std::string* out);

// --- Typed events -----------------------------------------------------------------------------
// Each builds an event path from its arguments and ends in PostCustomEvent (Post...) or
// SendCustomEvent (Send...). A null or empty `desc` takes the description of the path from the
// table of AddEidDescList. `eid` must be neither null nor empty.

// `dur` must be 0 or more.
QZ_EXPORT bool PostEventWithDur(const char* eid, int dur, const char* desc);
QZ_EXPORT bool SendEventWithDur(const char* eid, int dur, const char* desc);
// Path `eid`/`src` (or `eid` for an empty `src`).
QZ_EXPORT bool PostEventWithSrc(const char* eid, const char* src, const char* desc);
QZ_EXPORT bool SendEventWithSrc(const char* eid, const char* src, const char* desc,
                                const char* content);
// Path `eid`/`value`.
QZ_EXPORT bool PostEventWithInt(const char* eid, int value, const char* desc);
QZ_EXPORT bool SendEventWithInt(const char* eid, int value, const char* desc);
// Path `eid`/`sub1`/`sub2`, empty parts left out; a `dur` below 0 sends none.
QZ_EXPORT bool PostSimpleEvent(const char* eid, const char* sub1, const char* sub2,
                               const char* desc, int dur);
QZ_EXPORT bool SendSimpleEvent(const char* eid, const char* sub1, const char* sub2,
                               const char* desc, int dur);

// --- URL and game events ------------------------------------------------------------------------
// A URL event has the path kind/reversed host/escaped path, e.g. "OpenUrl/cc.bb.aa/.2fx.2fy" for
// http://aa.bb.cc/x/y?q; the query plays no part. A host of the scheme "chrome" or "tze" is
// prefixed "local.". False for a null URL, a text that is no absolute URL, or a part that cannot
// be converted. The narrow forms read `url` in `codePage` (0: the system's, 65001: UTF-8).

QZ_EXPORT bool PostOpenUrlEvent(const wchar_t* url);
QZ_EXPORT bool PostOpenUrlEvent(const char* url, unsigned int codePage);
QZ_EXPORT bool SendOpenUrlEvent(const wchar_t* url);
QZ_EXPORT bool SendOpenUrlEvent(const char* url, unsigned int codePage);
// As PostOpenUrlEvent with `kind` as the first segment; false for a null `kind`.
QZ_EXPORT bool PostReportUrlEvent(const wchar_t* url, const char* kind);
QZ_EXPORT bool PostReportUrlEvent(const char* url, const char* kind, unsigned int codePage);

// Path `name`/host/escaped path/`suffix` of the UTF-8 `url` (the host as it stands), with
// duration `dur`. False for a null `name`, `url` or `suffix`, or a `dur` below 0.
QZ_EXPORT bool PostUrlWithDur(const char* name, const char* url, const char* suffix, int dur,
                              const char* desc);
QZ_EXPORT bool SendUrlWithDur(const char* name, const char* url, const char* suffix, int dur,
                              const char* desc);

// SendEventWithSrc with the path eid/src/GameID=g/ServerID=s/From=f[_TraceId=t], where every "/"
// of `from` becomes "_". False for a null or empty `eid`.
QZ_EXPORT bool SendEventWithGameInfo(const char* eid, const char* src, const std::wstring& gameId,
                                     const std::wstring& serverId, const std::wstring& from,
                                     const std::wstring& traceId);

// --- Info-data reports
// ---------------------------------------------------------------------------- Custom events from
// wide text (converted to UTF-8); they never reach the older library. `info` may be null (all
// fields empty). Each adds the keys "fla" = "Y", "jav" = "1", "coo" = "1" and "nve" = "1.0" unless
// said otherwise.

// Event id `name` (empty for null) with "gam", "gse", "pas" and "ref" from `info`.
QZ_EXPORT bool PostCustomInfo(const InfoCData* info, const wchar_t* name);
// Event id "error" with the two codes in unsigned decimal and `content` (may be null).
QZ_EXPORT bool PostErrorInfo(const InfoCData* info, unsigned long errorCode,
                             unsigned long subErrorCode, const wchar_t* content);
// Event id "click" with "gam" and "pid"; false when either is null or empty.
QZ_EXPORT bool PostActionInfo(const wchar_t* game, const wchar_t* pid);
// Event id "fail" with "step", "is_numerator" ("Y" when `isNumerator` is not 0), "error_code",
// and "fla" the opposite of "is_numerator"; no other fixed keys. False for a null or empty `step`.
QZ_EXPORT bool PostFailInfo(const wchar_t* step, int isNumerator, const wchar_t* errorCode,
                            const wchar_t* content);
// Event id "timer" with "step_group" and "fla" = "Y"; false for a null or empty `stepGroup`.
QZ_EXPORT bool PostTimerInfo(const wchar_t* stepGroup);
// Timed events: notes the start of `name` (not null); works before Init. Always true.
QZ_EXPORT bool PostEventStart(const wchar_t* name);
// Sends the event `name` with the milliseconds since its start (the start stays for later
// calls); "showup" keeps its duration under 10 s by taking it modulo 10000. False when `name`
// never started. `desc` must not be null. Call both from one thread.
QZ_EXPORT bool PostEventDurEnd(const wchar_t* name, const wchar_t* desc);

// --- Value store
// ---------------------------------------------------------------------------------- Three
// process-wide maps of named values for the host; nothing is saved. No lock: keep the calls on one
// thread. Getters of an unknown key return empty (GetDWORD: false, `value` untouched).

QZ_EXPORT void SetValue(const std::string& key, const std::string& value);
QZ_EXPORT std::string GetValue(const std::string& key);
QZ_EXPORT void SetWideValue(const std::string& key, const std::wstring& value);
QZ_EXPORT std::wstring GetWideValue(const std::string& key);
// DWORD values are kept as 32-bit numbers: larger values are cut to their low 32 bits.
QZ_EXPORT void SetDWORD(const std::string& key, unsigned long value);
QZ_EXPORT bool GetDWORD(const std::string& key, unsigned long& value);

// --- Machine id -----------------------------------------------------------------------------------
// The machine id ("mid") is resolved once per process on the library's worker: the value kept
// for this user, or one derived from the hardware and kept.

// Makes `id` the machine id (an empty text counts as known), so that nothing is probed or read.
// False after Run, or once the id is known.
QZ_EXPORT bool SetMachineId(const std::string& id);
// The machine id if known, else empty; never blocks.
QZ_EXPORT std::string TryGetMachineId();
// After Run: waits up to `timeoutMs` (0: not at all) for the worker to know the id, then as
// TryGetMachineId. Before Run: resolves the id on the calling thread, ignoring the time-out.
QZ_EXPORT std::string GetMachineIdTimeout(unsigned int timeoutMs);
// `callback` runs once with the id, on the library's timer thread, once it is known. Call before
// Run; the call takes no lock.
QZ_EXPORT void AddMachineIdCallback(MachineIdCallback callback, void* context);

// The name of the operating system, e.g. "Linux6.1" (free of blanks, "&" and "=").
QZ_EXPORT std::string GetOsPlatformVersion();

// --- Not-sent reports
// -----------------------------------------------------------------------------

// Call after Exit: writes the reports the library still holds to the file at `path` and lets
// them go; the next run that names `path` in Init posts them and deletes the file. True also
// when there was nothing to write (no file is then touched). False before Init, for an empty
// path, or when the file cannot be written (reports not yet written stay in memory).
QZ_EXPORT bool PackNotSent(const std::wstring& path);

}  // namespace qzdata_report_kelvo

namespace qzdata_report_kelvo_internal {

// Narrow to wide text in `codePage` (0: the system's character set, 65001: UTF-8). `source` is
// taken up to its first zero. Returns true when the whole text converted; `target` may then hold
// a partial result on false. An empty `source` gives true and an empty `target`.
QZ_EXPORT bool QZA2W(const std::string& source, std::wstring& target, unsigned int codePage);

// Wide to narrow text; the mirror of QZA2W.
QZ_EXPORT bool QZW2A(const std::wstring& source, std::string& target, unsigned int codePage);

// `target` becomes a copy of `source` (up to its first zero) with every `from` replaced by `to`,
// scanning left to right; replaced text is never searched again. `from` must not be empty.
QZ_EXPORT void StrReplace(std::string& target, const std::string& source, const std::string& from,
                          const std::string& to);

// The second-generation machine id computed afresh from the hardware (no stored value is read or
// written): 32 lower-case hex digits. Blocks while the probes run (up to about 3 s more).
QZ_EXPORT std::string GetMachineId();
// The operating system's name, as qzdata_report_kelvo::GetOsPlatformVersion.
QZ_EXPORT std::string GetOsPlatformVersion();
// The hardware addresses of the network adapters as one text (part of the machine id).
QZ_EXPORT std::string getMacAllInfo();

}  // namespace qzdata_report_kelvo_internal
