#include "delivery/report_context.h"

#include "codec/utils.h"
#include "delivery/constants.h"
#include "delivery/dispatch_table.h"
#include "delivery/report_connect.h"
#include "delivery/report_log_stream.h"
#include "net/http_client.h"
#include "port/app_data_folder.h"
#include "port/env.h"
#include "port/log_file.h"

namespace qzdata_report_kelvo {

namespace {

// The socket and TLS layers are process-wide while contexts are not: the layers start with the
// first live context and stop with the last, so that no context stops them under another.
CCriticalSection& LayerLock() {
    static CCriticalSection lock;
    return lock;
}
int liveContexts = 0;  // guarded by LayerLock

void AcquireNetworkLayers() {
    CScopedLock scoped(LayerLock());
    if (liveContexts++ == 0) {
        CHttpClient::StartupWinsock();
        CHttpClient_https::StartupTls(false);
    }
}

void ReleaseNetworkLayers() {
    CScopedLock scoped(LayerLock());
    if (--liveContexts == 0) {
        CHttpClient_https::CleanupTls();
        CHttpClient::CleanupWinsock();
    }
}

std::string MakeLogDirectory() {
    const std::string folder = port::GetAppDataFolder();
    if (folder.empty()) {
        return delivery::kRelativeLogDirectory;
    }
    return folder + delivery::kLogFolderSuffix;
}

// A stream on a new file `base` + time in `folder`, which is made (private to the user) when
// missing; null when no file could be opened.
std::unique_ptr<CReportLogStream> OpenLogStream(const std::string& folder, const char* base) {
    // A folder that cannot be made shows as a failed open below.
    if (EnsureDirectory(folder)) {
        port::MakeDirectoryPrivate(folder);
    }
    auto stream = std::make_unique<CReportLogStream>();
    stream->OpenLogFile(folder + base);
    if (!stream->IsOpen()) {
        stream.reset();
    }
    return stream;
}

}  // namespace

CReportContext::CReportContext(const std::string& sdkVersion)
    : sdkVersion(sdkVersion),
      uploadLog(this),
      logDirectory(MakeLogDirectory()),
      startTime(port::Time64()),
      requestTimeout(delivery::kRequestTimeoutMs) {
    AcquireNetworkLayers();
    strategy.SetFetchFunction(
        [this](const std::string& host, uint16_t port, const std::string& path,
               std::string& reply) { return FetchStrategy(host, port, path, reply); });
}

CReportContext::~CReportContext() {
    // The upload thread and the timer report through this object and the network layers.
    uploadLog.StopAndJoin();
    CloseLogs();
    // The fetch uses this object to its end.
    strategy.Join();
    strategy.SetKeepAliveSink(nullptr);
    ReleaseNetworkLayers();
}

bool CReportContext::FetchStrategy(const std::string& host, uint16_t port, const std::string& path,
                                   std::string& reply) {
    // The strategy has no fallback on purpose: its list stays empty.
    CAddressList& none = strategy.GetStrategyFallbackList();
    CReportConnect connect(host, port, this, &none, &none);
    return connect.FetchPlain(path, 0, std::string(), reply);
}

void CReportContext::SetDispatchTable(CDispatchTable* table) {
    dispatchTable.store(table, std::memory_order_release);
    strategy.SetKeepAliveSink(table);
}

void CReportContext::SetSessionInfo(const std::string& sessionId, const std::string& pro) {
    CScopedLock scoped(lock);
    identity.sessionId = sessionId;
    identity.appKey = pro;
    uploadLog.SetSession(sessionId, pro);
}

void CReportContext::SetAccountInfo(const std::string& /*passport*/, const std::string& tzuid,
                                    const std::string& channel, const std::string& iver) {
    CScopedLock scoped(lock);
    if (!tzuid.empty()) {
        identity.uid = tzuid;
    }
    if (!channel.empty()) {
        identity.from = channel;
    }
    if (!iver.empty()) {
        identity.ver = iver;
    }
    uploadLog.AddUid(tzuid);
}

void CReportContext::SetDeliveryMachineId(const std::string& id) {
    uploadLog.SetDeviceId(id);
}

ReportIdentity CReportContext::GetIdentity() {
    CScopedLock scoped(lock);
    return identity;
}

std::string CReportContext::LineHead() {
    return std::to_string(port::Time64()) + "\t" + identity.sessionId + "\t" + FormatGuidText();
}

std::string CReportContext::IdentityFields() {
    return "\t" + identity.appKey + "\t" + identity.ver + "\t" + identity.from + "\t" +
           identity.uid + "\t" + sdkVersion;
}

void CReportContext::AppendFailLine(const std::string& code, const std::string& tail, bool once) {
    if (!strategy.IsLogsEnabled()) {
        return;
    }
    CScopedLock scoped(lock);
    const std::string line = LineHead() + "\t" + code + IdentityFields() + tail;
    if (!once && uploadLog.UploadLine(line, true, false)) {
        return;
    }
    OpenErrorLog();
    if (errorLog) {
        errorLog->WriteLine(line);
    }
}

void CReportContext::ReportTotals(bool uploadNow, bool once) {
    std::string fields;
    AppendNumber(fields, SecondsSince(startTime));
    ReportCounters counters;
    stats.SnapshotStats(counters);
    for (uint64_t value :
         {counters.cur, counters.resume_report, counters.succeed_report, counters.fail_report,
          counters.first_connect, counters.retry, counters.suc, counters.fait, counters.del}) {
        fields += '\t';
        AppendNumber(fields, value);
    }
    CDispatchTable* table = GetDispatchTable();
    fields += '\t';
    AppendNumber(fields, static_cast<uint64_t>(table != nullptr ? table->QueuedCount() : 0));
    AppendTotalLine(fields, uploadNow, once);
}

void CReportContext::AppendTotalLine(const std::string& fields, bool uploadNow, bool once) {
    if (!strategy.IsLogsEnabled()) {
        return;
    }
    CScopedLock scoped(lock);
    const std::string line = LineHead() + "\t" + fields + IdentityFields();
    if (uploadNow && uploadLog.UploadLine(line, false, once)) {
        return;
    }
    OpenReportLog();
    if (reportLog) {
        reportLog->WriteLine(line);
    }
}

void CReportContext::OpenReportLog() {
    if (!reportLog) {
        reportLog = OpenLogStream(logDirectory, delivery::kReportLogBase);
    }
}

void CReportContext::OpenErrorLog() {
    if (!errorLog) {
        errorLog = OpenLogStream(logDirectory + delivery::kErrorLogFolder, delivery::kErrorLogBase);
    }
}

void CReportContext::CloseLogs() {
    CScopedLock scoped(lock);
    reportLog.reset();
    errorLog.reset();
}

bool CReportContext::IsReportLogOpen() {
    CScopedLock scoped(lock);
    return reportLog && reportLog->IsOpen();
}

}  // namespace qzdata_report_kelvo
