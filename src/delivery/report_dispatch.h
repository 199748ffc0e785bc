// The queue and the sending thread of one host and port.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "delivery/connect_queue.h"
#include "delivery/report_connect.h"
#include "runtime/thread.h"

namespace qzdata_report_kelvo {

class CReportContext;

// Held by CDispatchTable through a shared pointer, one per key. `connections` is changed only by
// MakeConnections (before the dispatcher is published) and ClearConnections, both under the
// table's lock; the queue has its own lock.
class CReportDispatch {
  public:
    // `context` must outlive the dispatcher.
    CReportDispatch(const std::string& host, uint16_t port, CReportContext* context);
    // The sending threads must have ended (ShutDown) before a dispatcher is destroyed.
    ~CReportDispatch() = default;
    CReportDispatch(const CReportDispatch&) = delete;
    CReportDispatch& operator=(const CReportDispatch&) = delete;

    // Brings the number of sending threads up to its maximum (one): restarts a connection whose
    // thread has ended, or makes a new connection and starts its thread. A connection or thread
    // that cannot be made is not counted, and the records wait in the queue until Stop.
    void MakeConnections();

    // Posts one quick quit per connection and waits, without a time limit, until every sending
    // thread has ended. The threads' drain bounds the wait.
    void ShutDown();
    // Drops the connections (their threads have ended), the records and the notifications.
    void ClearConnections();

    // Passes a keep-alive limit to the primary client of every connection. Under the table's
    // lock.
    void SetKeepAliveLimit(uint32_t milliseconds);

    CConnectQueue& GetQueue() { return queue; }
    const std::string& GetHost() const { return host; }
    uint16_t GetPort() const { return port; }
    // Sending threads made (at most one).
    uint32_t GetActiveCount() const { return activeCount; }
    // The connections, for tests that look at their clients. Under the table's lock.
    const std::map<std::shared_ptr<CThread>, std::shared_ptr<CReportConnect>>& GetConnections()
        const {
        return connections;
    }

  private:
    std::string host;
    uint16_t port;
    CConnectQueue queue;
    std::map<std::shared_ptr<CThread>, std::shared_ptr<CReportConnect>> connections;
    uint32_t activeCount = 0;
    uint32_t maxCount;
    CReportContext* context;
};

}  // namespace qzdata_report_kelvo
