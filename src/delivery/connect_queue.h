// The queue of one dispatcher (or of a temporary connection): records ordered by priority, and
// one notification per record on which the sending thread sleeps.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "delivery/connect_data.h"
#include "runtime/critical_section.h"
#include "runtime/notification_queue.h"

namespace qzdata_report_kelvo {

// Any thread. Lock order: the queue's lock, then the lock inside its CNotificationQueue; no
// other lock is taken under the queue's lock.
class CConnectQueue {
  public:
    CConnectQueue() = default;
    // The queue must outlive every thread that waits on it.
    ~CConnectQueue() = default;
    CConnectQueue(const CConnectQueue&) = delete;
    CConnectQueue& operator=(const CConnectQueue&) = delete;

    // Adds one record (behind the records of equal priority) and its CConnectNotification, as
    // one step under the lock.
    void Push(CConnectData record);

    // Posts a CQuickQuitNotification ahead of every pending notification, so that the sending
    // thread takes it as its next one: shutdown time is bounded by the drain, not by the queue.
    void PostQuickQuit();

    // Sleeps, without a time limit, for the next notification and returns it (null: end the
    // loop). For a CConnectNotification, `data` receives the first record, taken out of the
    // queue; otherwise `data` is empty. The sending thread only.
    CNotificationPtr Wait(CConnectDataPtr& data);

    // Removes and returns the first record; empty when there is none.
    CConnectDataPtr TakeNext();

    // Records in the queue.
    size_t Size();
    // Notifications not yet taken by the sending thread.
    size_t PendingNotifications();

    // Drops every record and every pending notification.
    void Clear();

  private:
    std::multimap<int32_t, CConnectDataPtr> records;  // guarded by lock
    CNotificationQueue notifications;
    CCriticalSection lock;
};

}  // namespace qzdata_report_kelvo
