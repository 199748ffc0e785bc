// The shared state of the delivery engine: counters, strategy, the log directory, the identity
// texts of self-reporting, and the link to the dispatch table.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "delivery/report_stats.h"
#include "delivery/upload_log.h"
#include "runtime/critical_section.h"
#include "strategy/strategy.h"

namespace qzdata_report_kelvo {

class CDispatchTable;
class CReportLogStream;

// The texts that identify this run in self-reporting lines.
struct ReportIdentity {
    std::string sessionId;
    std::string appKey;
    std::string uid;
    std::string from;
    std::string ver;
};

// One instance, owned by ReportThreadImpl, made before the dispatch table and destroyed after
// it; every object of the delivery engine holds a pointer to it. The constructor starts the
// socket and TLS layers (process-wide, counted over all live contexts) and installs the
// strategy's fetch; the destructor stops the layers when it is the last context.
//
// Threads: the accessors from any thread. The context's lock guards the identity texts and
// serialises every log line; it may be held across a network request while a line is reported,
// and no other lock of the engine is taken under it except those of the strategy, the address
// lists, the counters and the log upload.
class CReportContext {
  public:
    // `sdkVersion` goes into every record's target as "&sdkver=".
    explicit CReportContext(const std::string& sdkVersion);
    // Closes the logs, waits for a strategy fetch still running, stops the socket and TLS
    // layers. The dispatch table must be gone.
    ~CReportContext();
    CReportContext(const CReportContext&) = delete;
    CReportContext& operator=(const CReportContext&) = delete;

    CReportStats& GetStats() { return stats; }
    CStrategy& GetStrategy() { return strategy; }
    CUploadLog& GetUploadLog() { return uploadLog; }
    const std::string& GetSdkVersion() const { return sdkVersion; }
    // Where log files lie: the application data folder with the library's subfolder, or the
    // relative "log/" when the platform names no such folder. Fixed at construction.
    const std::string& GetLogDirectory() const { return logDirectory; }
    // Seconds since 1970 at construction.
    int64_t GetStartTime() const { return startTime; }

    // The table, or null. Set by the table itself when it is made and cleared when it goes,
    // while no sending thread runs; also made the receiver of the strategy's keep-alive changes.
    CDispatchTable* GetDispatchTable() const {
        return dispatchTable.load(std::memory_order_acquire);
    }
    void SetDispatchTable(CDispatchTable* table);

    // Identity texts, set by the report object. SetSessionInfo stores the session id and takes
    // `pro` as the app key. SetAccountInfo stores `tzuid` as uid, `channel` as from and `iver`
    // as ver, each only when not empty; the passport is not kept. Both hand on to the log
    // upload: the session to its requests, and `tzuid` to its questions; the first
    // SetAccountInfo starts the upload thread. Any thread.
    void SetSessionInfo(const std::string& sessionId, const std::string& pro);
    void SetAccountInfo(const std::string& passport, const std::string& tzuid,
                        const std::string& channel, const std::string& iver);
    // The machine id (the `mid`): the device id of the log upload, which asks nothing without
    // it. The first value stays.
    void SetDeliveryMachineId(const std::string& id);
    ReportIdentity GetIdentity();

    // Self-reporting lines. Nothing happens while self-reporting is off (until the device
    // configuration said open). Each takes the context's lock for the whole line, across the
    // request that sends it, and writes the line to its log file when it is not sent; a file
    // that cannot be opened loses the line. Any thread.
    //
    // A failed attempt: `code` is the decimal result, `tail` the action, attempt and host, each
    // behind a tab. Sent at once as its own request, unless `once` (shutdown, where time is
    // short) sends it straight to the file.
    void AppendFailLine(const std::string& code, const std::string& tail, bool once);
    // A statistics line of the counters of the day (SnapshotStats), the queued count and the
    // seconds since construction; sent at once when `uploadNow` (a single attempt when `once`),
    // else written to the file.
    void ReportTotals(bool uploadNow, bool once);
    // The line of ReportTotals, from its counter `fields` on (each behind a tab).
    void AppendTotalLine(const std::string& fields, bool uploadNow, bool once);
    // Closes the log files that are open; a later line opens a new file.
    void CloseLogs();
    // Whether the file of statistics lines is open now.
    bool IsReportLogOpen();

    // Time-out of every request stage, in milliseconds (2000).
    uint32_t GetRequestTimeout() const { return requestTimeout.load(std::memory_order_relaxed); }
    // Tests only: a shorter time-out, so that silent peers cost little. Before any request.
    void SetRequestTimeoutForTesting(uint32_t milliseconds) {
        requestTimeout.store(milliseconds, std::memory_order_relaxed);
    }

  private:
    // Make the stream of one kind when it is null; it stays null when no file could be opened.
    void OpenReportLog();
    void OpenErrorLog();
    // The line's head: time, session id and a fresh line id, each but the first behind a tab.
    std::string LineHead();
    // The five identity texts, each behind a tab.
    std::string IdentityFields();
    bool FetchStrategy(const std::string& host, uint16_t port, const std::string& path,
                       std::string& reply);

    std::unique_ptr<CReportLogStream> reportLog;  // guarded by lock; null until a line is kept
    std::unique_ptr<CReportLogStream> errorLog;   // guarded by lock; null until a line is kept
    std::atomic<CDispatchTable*> dispatchTable{nullptr};
    const std::string sdkVersion;
    CReportStats stats;
    CStrategy strategy;
    CUploadLog uploadLog;
    std::string logDirectory;
    const int64_t startTime;
    ReportIdentity identity;  // guarded by lock
    std::atomic<uint32_t> requestTimeout;
    CCriticalSection lock;
};

}  // namespace qzdata_report_kelvo
