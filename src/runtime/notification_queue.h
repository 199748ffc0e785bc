// A queue of notifications on which reader threads sleep.
#pragma once

#include <deque>
#include <memory>

#include "runtime/critical_section.h"
#include "runtime/event.h"

namespace qzdata_report_kelvo {

// Base of every notification; subclasses are told apart by a dynamic type test.
class CNotification {
  public:
    virtual ~CNotification() = default;
};

using CNotificationPtr = std::shared_ptr<CNotification>;

// A reader asleep in waitDequeue: the notification handed to it and the event that wakes it.
struct NotificationWaiter {
    CNotificationPtr result;
    CEvent event;
};

class CNotificationQueue {
  public:
    CNotificationQueue() = default;
    // Empties pending and wakes no one: the queue must outlive its readers.
    ~CNotificationQueue();
    CNotificationQueue(const CNotificationQueue&) = delete;
    CNotificationQueue& operator=(const CNotificationQueue&) = delete;

    // Hands `notification` to the reader that has waited longest, or appends it. Null is
    // dropped. Any thread.
    void enqueue(CNotificationPtr notification);
    // As enqueue, but stores at the front when no reader waits.
    void enqueueUrgent(CNotificationPtr notification);
    // The next notification; sleeps without limit until one arrives. Null means the reader
    // should end its loop.
    CNotificationPtr waitDequeue();
    // Drops everything pending.
    void clear();
    // Number of pending notifications (not those already handed to readers).
    size_t size();
    // Number of readers asleep in waitDequeue.
    size_t waitingReaders();

  private:
    void hand(CNotificationPtr notification, bool urgent);

    std::deque<CNotificationPtr> pending;
    std::deque<NotificationWaiter*> waiters;
    CCriticalSection lock;
};

}  // namespace qzdata_report_kelvo
