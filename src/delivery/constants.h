// Fixed values of the delivery engine: time-outs, pass and attempt limits, the drain budget at
// shutdown, and where the log files lie.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qzdata_report_kelvo {
namespace delivery {

// Time-out of every stage of every request (look-up, connect, send idle, receive idle).
inline constexpr uint32_t kRequestTimeoutMs = 2000;

// Sending threads per dispatcher: records to one host and port go strictly one after another.
inline constexpr uint32_t kConnectionsPerDispatcher = 1;

// A record is tried in at most five passes of four attempts (two on the host name, two on
// fallback addresses); Repost refuses a record whose pass is above kLastRepostedPass.
inline constexpr int32_t kFirstPass = 1;
inline constexpr int32_t kLastRepostedPass = 4;
inline constexpr int32_t kAttemptsPerPass = 4;
inline constexpr int32_t kFirstFallbackAttempt = 3;
inline constexpr int32_t kSecondFallbackAttempt = 4;

// A record made longer ago than this (seconds) is given up at its next Repost.
inline constexpr double kMaxRecordAgeSeconds = 604800.0;

// Records that never had an attempt and still get one at quick quit; the rest are given up.
// Bounds the time a shutdown can take.
inline constexpr int32_t kDrainBudget = 20;

// Records waiting in a sending queue that make a backlog: once such a backlog has drained, the
// sending thread asks the allocator to give the freed memory back to the system.
inline constexpr size_t kBacklogWorthReleasing = 1000;

// Pause of the sending loop after each notification, so that a stream of records yields.
inline constexpr uint32_t kLoopPauseMs = 1;

// CConnectData::type of a POST; every other value is a GET.
inline constexpr int32_t kPostType = 1;
// CConnectData::time when the record has no time of its own.
inline constexpr int64_t kNoTime = -1;

// Where the log files lie: below the per-user application data folder, or relative to the
// working directory when there is none.
inline constexpr char kLogFolderSuffix[] = "/norvik/tzgame/log/reportsdk/";
inline constexpr char kRelativeLogDirectory[] = "log/";
// Below the log directory: the folder of failure lines, and the base names and extension of the
// two kinds of file.
inline constexpr char kErrorLogFolder[] = "err/";
inline constexpr char kReportLogBase[] = "report";
inline constexpr char kErrorLogBase[] = "report_err";
inline constexpr char kLogExtension[] = ".log";
// Ends every log line, and is written once more before the first new line of a file that is not
// empty, so that a line cut off by a crash does not swallow the next.
inline constexpr char kLogLineEnd[] = "\r\n";
// When the name made of the time is taken, a counter from 1 to this goes behind the time.
inline constexpr int kLastLogNameCounter = 100;
// Buffer of the reader: a longer line arrives in pieces of one byte less.
inline constexpr size_t kLogReadBuffer = 256;
// A log line whose time lies further back than this (seconds) is dropped at upload.
inline constexpr double kMaxLogLineAgeSeconds = 172800.0;
// Pause after each uploaded line, to keep the load of an upload low.
inline constexpr uint32_t kUploadLinePauseMs = 1;

// Self-reporting: the period of the statistics line, the poll of the upload thread for a device
// id and user ids, and how long Stop waits for that thread (milliseconds).
inline constexpr uint32_t kStatsPeriodMs = 600000;
inline constexpr uint32_t kUploadPollMs = 500;
inline constexpr uint32_t kUploadStopWaitMs = 500;

// The device configuration request (HTTPS on the config host), and the actions of the two kinds
// of self-reporting line.
inline constexpr char kDeviceConfigPath[] = "/api/getDeviceConfig?sys=10";
inline constexpr char kTotalAction[] = "zhlogtotal";
inline constexpr char kFailAction[] = "zhlogfail";

}  // namespace delivery
}  // namespace qzdata_report_kelvo
