#include "delivery/report_stats.h"

#include "port/env.h"

namespace qzdata_report_kelvo {

namespace {

int32_t LocalDay() {
    port::LocalTime now;
    port::GetLocalTime(&now);
    return now.year * 10000 + now.month * 100 + now.day;
}

}  // namespace

CReportStats::CReportStats() : lastUseDay(LocalDay()) {}

void CReportStats::Add(uint64_t ReportCounters::*counter) {
    CScopedLock scoped(lock);
    ++(counters.*counter);
}

void CReportStats::AddCur() {
    Add(&ReportCounters::cur);
}
void CReportStats::AddResumeReport() {
    Add(&ReportCounters::resume_report);
}
void CReportStats::AddSucceedReport() {
    Add(&ReportCounters::succeed_report);
}
void CReportStats::AddFailReport() {
    Add(&ReportCounters::fail_report);
}
void CReportStats::AddFirstConnect() {
    Add(&ReportCounters::first_connect);
}
void CReportStats::AddRetry() {
    Add(&ReportCounters::retry);
}
void CReportStats::AddSuc() {
    Add(&ReportCounters::suc);
}
void CReportStats::AddFait() {
    Add(&ReportCounters::fait);
}
void CReportStats::AddDel() {
    Add(&ReportCounters::del);
}
void CReportStats::AddUnreported() {
    Add(&ReportCounters::unreported);
}

void CReportStats::Reset() {
    CScopedLock scoped(lock);
    counters = ReportCounters();
}

void CReportStats::SnapshotStats(ReportCounters& out) {
    CScopedLock scoped(lock);
    out = counters;
    const int32_t today = LocalDay();
    if (today != lastUseDay) {
        counters = ReportCounters();
    }
    lastUseDay = today;
}

ReportCounters CReportStats::Peek() {
    CScopedLock scoped(lock);
    return counters;
}

}  // namespace qzdata_report_kelvo
