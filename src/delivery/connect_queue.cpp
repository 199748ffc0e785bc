#include "delivery/connect_queue.h"

#include <memory>

namespace qzdata_report_kelvo {

void CConnectQueue::Push(CConnectData record) {
    const int32_t priority = record.priority;
    auto data = std::make_shared<CConnectData>(std::move(record));
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
