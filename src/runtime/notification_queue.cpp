#include "runtime/notification_queue.h"

#include <new>

namespace qzdata_report_kelvo {

CNotificationQueue::~CNotificationQueue() {
    CScopedLock guard(lock);
    pending.clear();
}

void CNotificationQueue::enqueue(CNotificationPtr notification) {
    hand(std::move(notification), false);
}

void CNotificationQueue::enqueueUrgent(CNotificationPtr notification) {
    hand(std::move(notification), true);
}

void CNotificationQueue::hand(CNotificationPtr notification, bool urgent) {
    if (!notification) {
        return;
    }
    CScopedLock guard(lock);
    if (waiters.empty()) {
        if (urgent) {
            pending.push_front(std::move(notification));
        } else {
            pending.push_back(std::move(notification));
        }
        return;
    }
    NotificationWaiter* waiter = waiters.front();
    waiters.pop_front();
    waiter->result = std::move(notification);
    waiter->event.Set();
}

CNotificationPtr CNotificationQueue::waitDequeue() {
    NotificationWaiter* waiter = nullptr;
    {
        CScopedLock guard(lock);
        if (!pending.empty()) {
            CNotificationPtr front = std::move(pending.front());
            pending.pop_front();
            return front;
        }
        waiter = new (std::nothrow) NotificationWaiter;
        if (waiter == nullptr) {
            return nullptr;
        }
        try {
            waiters.push_back(waiter);
        } catch (...) {
            delete waiter;
            return nullptr;
        }
    }
    waiter->event.Wait(kInfinite);
    CNotificationPtr result = std::move(waiter->result);
    delete waiter;
    return result;
}

void CNotificationQueue::clear() {
    CScopedLock guard(lock);
    pending.clear();
}

size_t CNotificationQueue::size() {
    CScopedLock guard(lock);
    return pending.size();
}

size_t CNotificationQueue::waitingReaders() {
    CScopedLock guard(lock);
    return waiters.size();
}

}  // namespace qzdata_report_kelvo
