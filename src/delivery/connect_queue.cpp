#include "port/port.h"

#include "delivery/connect_queue.h"

#include <memory>

namespace qzdata_report_kelvo {

void CConnectQueue::Push(const std::string& path, int32_t priority, int32_t type,
                         const std::string& body, const std::string& recordId,
                         const std::string& item, int32_t retry, int64_t time, bool base64Body,
                         bool keepAlive) {
    auto data = std::make_shared<CConnectData>();
    data->path = path;
    data->priority = priority;
    data->type = type;
    data->body = body;
    data->recordId = recordId;
    data->item = item;
    data->retry = retry;
    data->time = time;
    data->base64Body = base64Body;
    data->keepAlive = keepAlive;
    auto notification = std::make_shared<CConnectNotification>();

    // The reader takes the record under the same lock after it woke, so it never finds the
    // notification without its record.
    CScopedLock scoped(lock);
    notifications.enqueue(std::move(notification));
    records.emplace(priority, std::move(data));
}

void CConnectQueue::PostQuickQuit() {
    auto notification = std::make_shared<CQuickQuitNotification>();
    CScopedLock scoped(lock);
    notifications.enqueueUrgent(std::move(notification));
}

CNotificationPtr CConnectQueue::Wait(CConnectDataPtr& data) {
    data.reset();
    CNotificationPtr notification = notifications.waitDequeue();
    if (IsNotification<CConnectNotification>(notification)) {
        data = TakeNext();
    }
    return notification;
}

CConnectDataPtr CConnectQueue::TakeNext() {
    CScopedLock scoped(lock);
    if (records.empty()) {
        return nullptr;
    }
    CConnectDataPtr first = std::move(records.begin()->second);
    records.erase(records.begin());
    return first;
}

size_t CConnectQueue::Size() {
    CScopedLock scoped(lock);
    return records.size();
}

size_t CConnectQueue::PendingNotifications() {
    return notifications.size();
}

void CConnectQueue::Clear() {
    CScopedLock scoped(lock);
    records.clear();
    notifications.clear();
}

}  // namespace qzdata_report_kelvo
