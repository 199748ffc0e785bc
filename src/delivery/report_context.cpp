#include "delivery/report_context.h"

#include "delivery/constants.h"
#include "delivery/dispatch_table.h"
#include "delivery/report_connect.h"
#include "delivery/report_log_stream.h"
#include "net/http_client.h"
#include "port/app_data_folder.h"
#include "port/env.h"

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

}  // namespace

CReportContext::CReportContext(const std::string& sdkVersion)
    : sdkVersion(sdkVersion),
      logDirectory(MakeLogDirectory()),
      startTime(port::Time64()),
      requestTimeout(delivery::kRequestTimeoutMs) {
    AcquireNetworkLayers();
    strategy.SetFetchFunction(
        [this](const std::string& host, uint16_t port, const std::string& path,
               std::string& reply) { return FetchStrategy(host, port, path, reply); });
}

CReportContext::~CReportContext() {
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
}

void CReportContext::SetDeliveryMachineId(const std::string& /*id*/) {
    // The id is the device id of the log upload, which asks for the device configuration that
    // turns self-reporting on. Without that upload nothing reads it.
}

ReportIdentity CReportContext::GetIdentity() {
    CScopedLock scoped(lock);
    return identity;
}

void CReportContext::AppendFailLine(const std::string& /*code*/, const std::string& /*tail*/,
                                    bool /*once*/) {
    // Lines are formed only while self-reporting is on, and only the log upload, with its device
    // configuration, turns it on. There is no upload yet, so no line is ever due.
}

void CReportContext::ReportTotals(bool /*uploadNow*/, bool /*once*/) {
    // As AppendFailLine: a statistics line is due only while self-reporting is on.
}

void CReportContext::CloseLogs() {
    CScopedLock scoped(lock);
    reportLog.reset();
    errorLog.reset();
}

}  // namespace qzdata_report_kelvo
