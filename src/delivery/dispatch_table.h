// The table of dispatchers, one per host and port: the entry of every record into the delivery
// engine, and the way back for a record that failed a pass.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "delivery/connect_data.h"
#include "delivery/report_dispatch.h"
#include "runtime/critical_section.h"
#include "strategy/strategy.h"

namespace qzdata_report_kelvo {

class CReportContext;

// One instance, owned by ReportThreadImpl next to its CReportContext. Threads: Start, Post and
// Stop on the report worker thread; Repost on the sending threads; SetKeepAliveLimit on the
// strategy thread (with the CStrategy lock held); QueuedCount on any thread. Lock order: the
// CStrategy lock, then the table's lock, then a client's lock; the table's lock is released
// before a queue's lock is taken.
class CDispatchTable : public KeepAliveSink {
  public:
    // Attaches itself to `context` (which must outlive the table) as its dispatch table and as
    // the receiver of the strategy's keep-alive changes.
    explicit CDispatchTable(CReportContext* context);
    // Stops first if dispatchers remain (no sending thread outlives the table), then detaches
    // from the context.
    ~CDispatchTable() override;
    CDispatchTable(const CDispatchTable&) = delete;
    CDispatchTable& operator=(const CDispatchTable&) = delete;

    // From now on records are taken on.
    void Start();

    // Takes one record on: counts it in `cur`, gives it a GUID when its `recordId` is empty and
    // the present time when its `time` is -1, and queues it in pass 1 on the dispatcher of host
    // and port. While not running the record is dropped without a count.
    void Post(const std::string& host, uint16_t port, CConnectData record);

    // Puts a record that failed a pass back, in its next pass, behind the records of equal
    // priority, and counts it in `resume_report`. False when the record has used its five
    // passes or is older than seven days: the caller gives it up. True also while not running,
    // when the record is dropped without a count.
    bool Repost(const std::string& recordId, const std::string& host, uint16_t port,
                const CConnectData& data);

    // The dispatcher of host and port, made with its sending thread on first use. Null only
    // when it cannot be allocated.
    std::shared_ptr<CReportDispatch> GetDispatch(const std::string& host, uint16_t port);

    // Passes a keep-alive limit (milliseconds) to the primary client of every connection.
    void SetKeepAliveLimit(uint32_t milliseconds) override;

    // Records waiting in all queues (the statistics' `buf`).
    size_t QueuedCount();

    // Quick quit to every sending thread, waits for each without a time limit (their drain of at
    // most 20 records bounds it), drops the dispatchers and whatever is still queued, reports
    // the totals, closes the logs, and stops taking records.
    void Stop();

    bool IsRunning() const { return running.load(std::memory_order_acquire); }

    // The dispatcher key: the host name alone on the profile's collector port, otherwise the host
    // name with the decimal port directly behind it.
    static std::string DispatchKey(const std::string& host, uint16_t port);

    // Tests only: the keys of the dispatchers, in order.
    std::vector<std::string> DispatchKeysForTesting();

  private:
    std::atomic<bool> running{false};
    std::map<std::string, std::shared_ptr<CReportDispatch>> dispatchers;  // guarded by lock
    CReportContext* context;
    CCriticalSection lock;
};

}  // namespace qzdata_report_kelvo
