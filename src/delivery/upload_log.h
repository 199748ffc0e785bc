// Self-reporting's switch and its backlog: asks the device configuration whether self-reporting
// is on, and when it is, starts the periodic statistics line and uploads the log lines that
// earlier runs could not send.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "runtime/critical_section.h"
#include "runtime/thread.h"
#include "runtime/timer.h"

namespace qzdata_report_kelvo {

class CReportContext;

// One instance, a member of CReportContext; it runs one short-lived upload thread and, once
// self-reporting is on, a periodic timer. The setters come from the report object's threads;
// UploadLine also from every thread that reports a line, under the context's lock.
//
// The upload thread, started by the first AddUid, waits for the device id, asks the device
// configuration once per user id until one answer says "open", then turns self-reporting on,
// starts the statistics timer and uploads the old log files. Without such an answer it never
// touches a file and starts no timer.
class CUploadLog : public CRunnable {
  public:
    explicit CUploadLog(CReportContext* context);
    // Stops the timer and waits for the upload thread without a limit: the thread uses this
    // object to its end.
    ~CUploadLog() override;
    CUploadLog(const CUploadLog&) = delete;
    CUploadLog& operator=(const CUploadLog&) = delete;

    // Keeps the session id and app key of the requests; the upload thread reads them when it
    // asks and when it forms the query prefix. Any thread.
    void SetSession(const std::string& sessionId, const std::string& appKey);
    // The first call keeps `deviceId` and lets the upload thread ask; later calls do nothing.
    void SetDeviceId(const std::string& deviceId);
    // Enters a new non-empty `uid` to be asked about, and starts the upload thread on the first
    // call (with any `uid`). A thread that has ended is not started again.
    void AddUid(const std::string& uid);
    // `uid` becomes the first user id in key order not yet asked about, which is marked asked;
    // false (and `uid` empty) when there is none.
    bool NextUid(std::string& uid);

    // The upload thread; see the class comment.
    void Run();
    void run() override { Run(); }
    // The timer's firing: a statistics line, sent at once with fallback, logged when it fails.
    void OnTimer(CTimer& timer);
    // Worker thread, at the end: asks the upload thread to stop, stops the timer and waits up to
    // 500 ms for the thread. A file that is being read when the thread notices stays whole.
    void Stop();
    // As Stop, but waits for the upload thread without a limit and destroys the timer. For the
    // end of the context, which the thread uses to its end.
    void StopAndJoin();

    // Asks the config host over HTTPS (no fallback) with the non-empty ones of the four values;
    // true when the answer says self-reporting is open. False without any of the values.
    bool FetchDeviceConfig(const std::string& uid, const std::string& appKey,
                           const std::string& deviceId, const std::string& machineId);
    // True when `reply` is a device configuration with code 1 whose deciphered data has a
    // non-zero tzConfig.open. A reply that does not parse, at any stage, is false.
    static bool ParseDeviceConfig(const std::string& reply);

    // Forms the query prefix of every uploaded line from the session, machine id, OS name and
    // device id. Upload thread, before self-reporting is turned on.
    void BuildCommonQuery();
    // Turns self-reporting on, starts the timer, and uploads every statistics log file, then
    // every failure log file, checking for Stop between files.
    void ScanLogs();
    // Uploads the lines of one file held by no writer, and deletes it when each line was sent
    // or dropped. A file held by a writer, or left by Stop before its end, stays.
    void UploadFile(const std::string& path, bool isFail);
    // Sends one log line as a zhlogfail (`isFail`) or zhlogtotal request; `once` makes a single
    // attempt without fallback. True when the line needs no further care: it was sent, or it is
    // empty, malformed or older than two days and dropped for good. Any thread.
    bool UploadLine(const std::string& line, bool isFail, bool once);
    // Takes the tab-separated field at `position` of `line` and appends `key` and the escaped
    // field to `query`, moving `position` behind it; `value` (when not null) gets the field.
    // False for a missing or empty field, except that with `allowEmpty` an empty field is
    // skipped with nothing appended; with `checkAge` also for a field that is not a decimal
    // time or lies more than two days back.
    static bool TakeField(const std::string& line, size_t& position, const std::string& key,
                          std::string& query, bool checkAge, std::string* value, bool allowEmpty);

    // Tests only: a shorter statistics period and poll of the upload thread (milliseconds).
    // Before the upload thread starts.
    void SetPeriodsForTesting(uint32_t statsPeriodMs, uint32_t pollMs);

  private:
    bool HasDeviceId();
    bool StopRequested() const { return stopRequested.load(std::memory_order_acquire); }
    void StartTimer();
    void UploadFolder(const std::string& folder, const std::string& pattern, bool isFail);

    std::string sessionId;     // guarded by lock
    std::string appKey;        // guarded by lock
    std::string machineId;     // upload thread only
    bool hasDeviceId = false;  // guarded by lock
    std::string deviceId;      // guarded by lock
    // Written by the upload thread before self-reporting is on; read by UploadLine only after.
    std::string commonQuery;
    std::map<std::string, bool> uids;  // guarded by lock; true once asked about
    CThread thread;                    // guarded by lock
    std::atomic<bool> stopRequested{false};
    CReportContext* context;
    // Guards the session texts, the device id, the user ids and the thread's start. Taken under
    // the context's lock, never the other way round.
    CCriticalSection lock;
    std::unique_ptr<CTimer> timer;  // guarded by timerLock
    CCriticalSection timerLock;
    std::atomic<uint32_t> statsPeriodMs;
    std::atomic<uint32_t> pollMs;
};

}  // namespace qzdata_report_kelvo
