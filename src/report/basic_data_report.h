// The report object: session, machine id, event records and the timers of the session, on top
// of the queueing half (report/basic_data_report_base.h).
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "qzdata_report.h"
#include "report/basic_data_report_base.h"
#include "report/record_builder.h"
#include "runtime/critical_section.h"

namespace qzdata_report_kelvo {

// Threads: reports may come from any host thread once Init has returned; they read `dty`,
// `pro`, `sessionId` and `defaultUrl` without a lock, so these must not change while reports
// are made. The heartbeat and pump run on the timer thread. The machine id is resolved on the
// worker and published through `machineIdReady`.
template <class Worker>
class BasicDataReport : public BasicDataReportBase<Worker> {
    using Base = BasicDataReportBase<Worker>;

  public:
    BasicDataReport();
    ~BasicDataReport() override;

    // Base part, then "startup".
    void Run() override;
    // Runs a never-run object first; kills the heartbeat, pump and session timers; waits up to
    // 10 s for the machine id; sends the last "heartbeat" and "endup"; then the base part.
    // Session information that was never applied is kept for the not-sent file.
    void Exit(bool flush, uint32_t timeoutMs) override;
    // Base part, then the machine id callbacks once the id is known (each runs once).
    void OnPumpTimer() override;

    // A random version 4 UUID in lower case with dashes, or empty when no random source works.
    virtual std::string CreateSessionId();
    virtual void PostStartUpEvent();
    virtual void PostEndUpEvent();
    // Checks the arguments, sets the heartbeat and pump timers, creates the worker, makes the
    // session id. False when a required text is empty, the interval is below 5000 ms, a timer
    // cannot be set (a heartbeat timer already set stays) or the worker cannot be created.
    virtual bool Init(const std::wstring& url, const std::string& dty, const std::string& pro,
                      uint32_t heartbeatInterval, WindowHandle window,
                      const std::wstring& notSentPath, uint32_t eventMask, bool outputDebugString);
    virtual void SetOutputDebugString(bool enabled);
    virtual bool GetOutputDebugString();
    // Stored without a check.
    virtual void SetDefaultPostPriority(DataReportPriority priority);
    virtual DataReportPriority GetDefaultPostPriority();
    virtual void SetDefaultUrl(const std::wstring& url);
    virtual std::wstring GetDefaultUrl();
    virtual bool SendErrorEventEx(const std::string& eid, const std::string& content,
                                  const std::string& desc, int dur, bool ati);
    virtual bool PostCustomEvent(const std::string& eid, const std::string& desc,
                                 const std::string& content, int dur, bool ati);
    virtual bool SendCustomEvent(const std::string& eid, const std::string& desc,
                                 const std::string& content, int dur, bool ati);
    // As SendCustomEvent, but an empty `eid` is accepted, and `extra` adds keys the event has
    // not set itself.
    virtual bool SendCustomEventExt(const std::string& eid, const std::string& desc,
                                    const std::string& content, int dur, bool ati,
                                    const ReportRecord& extra);
    virtual bool SendErrorEvent(const char* eid, const char* content, const char* subEid);
    // Before Run, while the id is unknown: makes `id` the machine id, so that nothing is probed
    // or read. False otherwise.
    virtual bool SetMachineId(const std::string& id);
    // `callback` runs once on the timer thread when the id is known. Host thread before Run, or
    // the timer thread; no lock.
    virtual void AddMachineIdCallback(MachineIdCallback callback, void* context);
    // The machine id if known, else empty; never blocks.
    virtual std::string TryGetMachineId();
    // Polls for the machine id up to `timeoutMs` (0: no wait), then TryGetMachineId.
    virtual std::string GetMachineIdTimeout(uint32_t timeoutMs);
    // Blocking: resolves the machine id once (worker start-up); later calls return it at once.
    virtual std::string GetMachineId();
    virtual void PostHeartBeatEvent();
    // Makes `info` the session record: its keys become the common parameters of every record
    // (with "mid" once the machine id is known) and its account facts reach the delivery engine.
    // Sets the four-hour session timer at the first call. False when `channel`, `run_source` or
    // `iver` is empty. Any thread, also before Init.
    virtual bool PostSessionInfo(const SessionInfo& info);
    // Timed events, from one host thread: notes the start of `name` (an earlier start of the
    // name is replaced); works before Init.
    virtual void PostEventStart(const std::wstring& name);
    // SendCustomEvent of `name` with the milliseconds since its start (a 32-bit difference; a
    // "showup" over 10 s is taken modulo 10000). The start stays. False when `name` never
    // started.
    virtual bool PostEventDurEnd(const std::wstring& name, const std::wstring& desc);
    // Puts the machine id into the last session record and makes it the common parameters.
    virtual void RefreshSessionInfo();
    virtual std::string GetSessionId();
    // Hands the known machine id to the delivery engine.
    virtual void PublishMachineId();

    // The timer ids (0 when not set).
    uintptr_t GetHeartbeatTimer() const { return heartbeatTimer; }
    uintptr_t GetPumpTimer() const { return pumpTimer; }

  protected:
    // The machine id kept for this user, or derived from the hardware and kept: the one place
    // where GetMachineId probes and reaches the per-user store. Worker, or the host before Run.
    virtual std::string ObtainMachineId();
    // A post of one record to build an event in; the memory of a sent post when one is kept.
    ReportPost NewEventPost();
    // The four keys every event starts with.
    void AddEventKeys(RecordBuilder& record);
    // Whether the event mask lets the lifecycle event of `eventBit` go out.
    bool Sends(uint32_t eventBit) const;
    // Fills `record` as the lifecycle event `eid`: the event keys, the id, the time, and the
    // duration when one is given; then writes the debug trace under `traceName`.
    void BuildLifecycleRecord(ReportRecord& record, const char* eid, const char* traceName,
                              const std::string* duration);
    // Adds the fields of a custom event, cut to their limits.
    void AddCustomFields(RecordBuilder& record, const std::string& eid, const std::string& desc,
                         const std::string& content, int dur, bool ati);
    // A post holding the record of a custom event; `extra` (may be null) adds keys the event
    // has not set itself.
    ReportPost NewCustomEventPost(const std::string& eid, const std::string& desc,
                                  const std::string& content, int dur, bool ati,
                                  const ReportRecord* extra);
    void KillSessionTimers();

    uint32_t startTick = 0;
    std::string sessionId;
    std::string machineId;  // final once machineIdReady is set
    std::atomic<bool> machineIdReady{false};
    uintptr_t heartbeatTimer = 0;
    uintptr_t sessionTimer = 0;  // guarded by sessionLock
    uintptr_t pumpTimer = 0;
    std::string dty;
    std::string pro;
    CCriticalSection sessionLock;
    std::vector<ReportRecord> sessionRecords;  // guarded by sessionLock
    std::atomic<bool> sessionApplied{false};
    std::vector<std::pair<MachineIdCallback, void*>> machineIdCallbacks;
    std::map<std::wstring, uint32_t> eventStarts;  // one host thread
    std::atomic<uint32_t> eventMask{report::kDefaultEventMask};
    std::atomic<bool> outputDebugString{false};
    std::atomic<int> defaultPriority{kPriorityImmediate};
    std::wstring defaultUrl;

  private:
    static void HeartbeatTimerProc(void* object);
    static void PumpTimerProc(void* object);
    static void MachineIdStartupTask(void* object);
    static void SessionTimerProc(void* object);
    bool Traced() const { return outputDebugString.load(std::memory_order_relaxed); }
};

}  // namespace qzdata_report_kelvo
