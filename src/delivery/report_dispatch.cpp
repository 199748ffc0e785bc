#include "delivery/report_dispatch.h"

#include <new>

#include "delivery/constants.h"
#include "delivery/report_context.h"

namespace qzdata_report_kelvo {

CReportDispatch::CReportDispatch(const std::string& host, uint16_t port, CReportContext* context)
    : host(host), port(port), maxCount(delivery::kConnectionsPerDispatcher), context(context) {}

void CReportDispatch::MakeConnections() {
    while (activeCount < maxCount) {
        ++activeCount;
        bool restarted = false;
        for (auto& entry : connections) {
            if (!entry.first->isRunning()) {
                entry.first->start(*entry.second);
                restarted = true;
                break;
            }
        }
        if (restarted) {
            continue;
        }
        try {
            CStrategy& strategy = context->GetStrategy();
            auto connection = std::make_shared<CReportConnect>(host, port, &queue, context,
                                                               &strategy.GetFallbackList(),
                                                               &strategy.GetPostFallbackList());
            auto thread = std::make_shared<CThread>();
            thread->start(*connection);
            if (!thread->hasHandle()) {
                --activeCount;
                return;
            }
            connections.emplace(std::move(thread), std::move(connection));
        } catch (const std::bad_alloc&) {
            --activeCount;
            return;
        }
    }
}

void CReportDispatch::ShutDown() {
    for (uint32_t i = 0; i < activeCount; ++i) {
        queue.PostQuickQuit();
    }
    for (auto& entry : connections) {
        entry.first->join();
    }
}

void CReportDispatch::ClearConnections() {
    connections.clear();
    queue.Clear();
}

void CReportDispatch::SetKeepAliveLimit(uint32_t milliseconds) {
    for (auto& entry : connections) {
        entry.second->SetKeepAliveLimit(milliseconds);
    }
}

}  // namespace qzdata_report_kelvo
