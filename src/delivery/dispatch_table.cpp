#include "delivery/dispatch_table.h"

#include <new>
#include <vector>

#include "codec/utils.h"
#include "delivery/constants.h"
#include "delivery/report_context.h"
#include "deployment_config.h"
#include "port/env.h"

namespace qzdata_report_kelvo {

CDispatchTable::CDispatchTable(CReportContext* context) : context(context) {
    context->SetDispatchTable(this);
}

CDispatchTable::~CDispatchTable() {
    bool remaining = false;
    {
        CScopedLock scoped(lock);
        remaining = !dispatchers.empty();
    }
    if (remaining) {
        Stop();
    }
    if (context->GetDispatchTable() == this) {
        context->SetDispatchTable(nullptr);
    }
}

void CDispatchTable::Start() {
    running.store(true, std::memory_order_release);
}

std::string CDispatchTable::DispatchKey(const std::string& host, uint16_t port) {
    if (port == deployment::kCollectorPort) {
        return host;
    }
    return host + UInt16ToString(port);
}

void CDispatchTable::Post(const std::string& host, uint16_t port, CConnectData record) {
    if (!IsRunning()) {
        return;
    }
    context->GetStats().AddCur();
    if (record.recordId.empty()) {
        record.recordId = FormatGuidText();
    }
    if (record.time == delivery::kNoTime) {
        record.time = port::Time64();
    }
    record.retry = delivery::kFirstPass;
    const std::shared_ptr<CReportDispatch> dispatch = GetDispatch(host, port);
    if (!dispatch) {
        return;
    }
    dispatch->GetQueue().Push(std::move(record));
}

bool CDispatchTable::Repost(const std::string& recordId, const std::string& host, uint16_t port,
                            const CConnectData& data) {
    if (data.retry > delivery::kLastRepostedPass) {
        return false;
    }
    if (data.time != delivery::kNoTime &&
        SecondsSince(data.time) > delivery::kMaxRecordAgeSeconds) {
        return false;
    }
    if (IsRunning()) {
        context->GetStats().AddResumeReport();
        const std::shared_ptr<CReportDispatch> dispatch = GetDispatch(host, port);
        if (dispatch) {
            CConnectData next = data;
            next.recordId = recordId;
            next.retry = data.retry + 1;
            dispatch->GetQueue().Push(std::move(next));
        }
    }
    return true;
}

std::shared_ptr<CReportDispatch> CDispatchTable::GetDispatch(const std::string& host,
                                                             uint16_t port) {
    const std::string key = DispatchKey(host, port);
    CScopedLock scoped(lock);
    auto found = dispatchers.find(key);
    if (found != dispatchers.end()) {
        return found->second;
    }
    try {
        auto dispatch = std::make_shared<CReportDispatch>(host, port, context);
        dispatch->MakeConnections();
        dispatchers.emplace(key, dispatch);
        return dispatch;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void CDispatchTable::SetKeepAliveLimit(uint32_t milliseconds) {
    CScopedLock scoped(lock);
    for (auto& entry : dispatchers) {
        entry.second->SetKeepAliveLimit(milliseconds);
    }
}

size_t CDispatchTable::QueuedCount() {
    // The table's lock keeps the map still while it is walked; each queue counts under its own.
    CScopedLock scoped(lock);
    size_t count = 0;
    for (auto& entry : dispatchers) {
        count += entry.second->GetQueue().Size();
    }
    return count;
}

void CDispatchTable::Stop() {
    std::vector<std::shared_ptr<CReportDispatch>> stopping;
    {
        CScopedLock scoped(lock);
        for (auto& entry : dispatchers) {
            stopping.push_back(entry.second);
        }
    }
    // The dispatchers stay in the table meanwhile: a sending thread that reposts a record on its
    // way out finds its own dispatcher and does not make a new one. No lock is held while
    // waiting, because such a Repost takes the table's lock.
    for (auto& dispatch : stopping) {
        dispatch->ShutDown();
    }
    {
        CScopedLock scoped(lock);
        for (auto& dispatch : stopping) {
            dispatch->ClearConnections();
        }
        dispatchers.clear();
    }
    stopping.clear();
    context->ReportTotals(true, true);
    context->CloseLogs();
    running.store(false, std::memory_order_release);
}

std::vector<std::string> CDispatchTable::DispatchKeysForTesting() {
    CScopedLock scoped(lock);
    std::vector<std::string> keys;
    for (auto& entry : dispatchers) {
        keys.push_back(entry.first);
    }
    return keys;
}

}  // namespace qzdata_report_kelvo
