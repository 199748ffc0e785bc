// One request of the delivery engine, and the notifications that wake a sending thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "delivery/constants.h"
#include "runtime/notification_queue.h"

namespace qzdata_report_kelvo {

// One request. Shared between the thread that queues it and the sending thread; never changed
// after it was queued (a Repost queues a copy).
struct CConnectData {
    std::string path;      // start of the target, e.g. "/c.gif?act=zhwebevent&smkdata=0"
    int32_t priority = 0;  // order in the queue: lowest first, equal keys first in, first out
    int32_t type = 0;      // delivery::kPostType: POST with `body` as content; else GET
    std::string body;      // the query text ("&key=...&time=...&...")
    std::string recordId;  // 32-digit GUID sent as "&action="; empty for a direct fetch
    std::string item;      // the record's action; "&item=" of a POST and the failure line
    int32_t retry = 0;     // pass of sending: 1 for a new record, +1 per Repost; 0 when direct
    int64_t time = delivery::kNoTime;  // seconds since 1970 when the record was made
    bool base64Body = false;           // asks for "&enc=b64" in the target
    bool keepAlive = false;            // the client's keep-alive wish
};

using CConnectDataPtr = std::shared_ptr<CConnectData>;

// One record has been added to a CConnectQueue; exactly one per record.
class CConnectNotification : public CNotification {};

// Stop soon: give the records that never had an attempt one last try, within a budget, then
// end the sending thread.
class CQuickQuitNotification : public CNotification {};

// Stop now. Nothing in the library posts one; a sending thread that receives one ends at once.
class CQuitNotification : public CNotification {};

// Dynamic type test of a notification; false for null.
template <class Notification>
bool IsNotification(const CNotificationPtr& notification) {
    return dynamic_cast<const Notification*>(notification.get()) != nullptr;
}

}  // namespace qzdata_report_kelvo
