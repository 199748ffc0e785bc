// The counters of the delivery engine: what happened to records, per local calendar day.
#pragma once

#include <cstdint>

#include "runtime/critical_section.h"

namespace qzdata_report_kelvo {

// The eleven counters, named as on the wire.
struct ReportCounters {
    uint64_t cur = 0;             // records taken on by CDispatchTable::Post
    uint64_t resume_report = 0;   // records put back by Repost
    uint64_t succeed_report = 0;  // record passes that ended in success
    uint64_t fail_report = 0;     // record passes that ended in failure
    uint64_t first_connect = 0;   // attempt 1 of pass 1
    uint64_t retry = 0;           // every other attempt
    uint64_t suc = 0;             // successful attempts
    uint64_t fait = 0;            // failed attempts
    uint64_t del = 0;             // records given up
    uint64_t reserved = 0;        // nothing adds to it; carried in snapshots only
    uint64_t unreported = 0;      // records that never reached the delivery engine
};

// One instance, a member of CReportContext. Every member takes the object's own lock, which
// nests inside no other lock of the engine's; any thread.
class CReportStats {
  public:
    CReportStats();
    CReportStats(const CReportStats&) = delete;
    CReportStats& operator=(const CReportStats&) = delete;

    void AddCur();
    void AddResumeReport();
    void AddSucceedReport();
    void AddFailReport();
    void AddFirstConnect();
    void AddRetry();
    void AddSuc();
    void AddFait();
    void AddDel();
    void AddUnreported();

    // Sets all eleven counters to 0.
    void Reset();

    // Copies the counters into `out`. The first snapshot on a later local day than the one
    // before also sets the counters to 0, so each day counts from 0 while `out` still reports
    // the day that ended. Marks the present as the last use.
    void SnapshotStats(ReportCounters& out);

    // A copy of the counters, with no effect on the day's count.
    ReportCounters Peek();

  private:
    void Add(uint64_t ReportCounters::*counter);

    CCriticalSection lock;
    ReportCounters counters;  // guarded by lock
    int32_t lastUseDay;       // local day (year * 10000 + month * 100 + day); guarded by lock
};

}  // namespace qzdata_report_kelvo
