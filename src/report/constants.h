// Fixed values of the report object: timers, event records, event ids and the debug trace.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qzdata_report_kelvo {
namespace report {

// Timers.
inline constexpr uint32_t kMinHeartbeatIntervalMs = 5000;
inline constexpr uint32_t kPumpIntervalMs = 250;
inline constexpr uint32_t kSessionIntervalMs = 14400000;  // 4 hours

// How long Exit waits for the machine id before its last events.
inline constexpr uint32_t kMachineIdWaitAtExitMs = 10000;

// Priority buckets: one per value of DataReportPriority.
inline constexpr size_t kPriorityCount = 6;
inline constexpr int32_t kMaxPriority = 5;

// Bits of the event mask of Init; all three before Init.
inline constexpr uint32_t kSendStartup = 1u << 0;
inline constexpr uint32_t kSendEndup = 1u << 1;
inline constexpr uint32_t kSendHeartbeat = 1u << 2;
inline constexpr uint32_t kDefaultEventMask = kSendStartup | kSendEndup | kSendHeartbeat;

// Event ids of the lifecycle events, and the prefix of error events.
inline constexpr char kStartupEid[] = "startup";
inline constexpr char kEndupEid[] = "endup";
inline constexpr char kHeartbeatEid[] = "heartbeat";
inline constexpr char kErrorEidPrefix[] = "error/";

// Session information: the word replaced in the channel and run source, and its replacement.
inline constexpr char kOtherChannel[] = "OTHER";
inline constexpr char kOtherChannelReplacement[] = "null";

// Timed events: the one name whose long durations wrap below this bound.
inline constexpr wchar_t kShowupEventName[] = L"showup";
inline constexpr uint32_t kShowupModuloMs = 10000;

// Byte limits of event fields, cut without regard for characters.
inline constexpr size_t kMaxEidBytes = 99;
inline constexpr size_t kMaxDescBytes = 254;
inline constexpr size_t kMaxContentBytes = 499;

// Event ids: segments joined by "/"; bytes that EidEscape keeps (the second 0 is harmless).
inline constexpr char kEidSeparator = '/';
inline constexpr char kEidEscapeMark = '.';
inline constexpr char kEidKeptBytes[] =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ01234567890-.()";
inline constexpr size_t kEidEscapeReserve = 512;

// Local time stamp of the "ati" key.
inline constexpr char kEventTimeFormat[] = "%04d%02d%02d%02d%02d%02d";

// The debug trace: names, and the keys each writes first, in this order.
inline constexpr char kTraceStartUp[] = "PostStartUpEvent";
inline constexpr char kTraceEndUp[] = "PostEndUpEvent";
inline constexpr char kTraceHeartBeat[] = "PostHeartBeatEvent";
inline constexpr char kTraceSessionInfo[] = "PostSessionInfo";
inline constexpr char kTracePostCustom[] = "PostCustomEvent";
inline constexpr char kTraceSendCustom[] = "SendCustomEvent";
inline constexpr char kTraceSendCustomExt[] = "SendCustomEventExt";
inline constexpr char kTraceSendErrorEx[] = "SendErrorEventEx";

inline constexpr const char* kStartUpTraceKeys[] = {"act", "eid", "session_id",
                                                    "dty", "pro", "ati"};
inline constexpr const char* kLifecycleTraceKeys[] = {"act", "eid", "dur", "session_id",
                                                      "dty", "pro", "ati"};
inline constexpr const char* kCustomTraceKeys[] = {
    "act", "eid", "eid_desc", "content", "dur", "session_id", "dty", "pro", "ati"};
inline constexpr const char* kSessionTraceKeys[] = {
    "act",        "ive", "cha", "rso", "ref",          "pas", "tzuid",
    "session_id", "mid", "dty", "pro", "session_type", "gam", "gse"};

}  // namespace report
}  // namespace qzdata_report_kelvo
