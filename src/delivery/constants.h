// Fixed values of the delivery engine: time-outs, pass and attempt limits, the drain budget at
// shutdown, and where the log files lie.
#pragma once

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

}  // namespace delivery
}  // namespace qzdata_report_kelvo
