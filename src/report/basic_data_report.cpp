#include "report/basic_data_report.h"

#include "codec/text.h"
#include "codec/wire_names.h"
#include "identity/machine_id_store.h"
#include "library_version.h"
#include "port/env.h"
#include "post/report_thread.h"
#include "post/text_conversion.h"
#include "report/event_ids.h"
#include "report/event_text.h"
#include "report/record_builder.h"

namespace qzdata_report_kelvo {

namespace {

// The fields of the session information that go in the record only when given.
const std::pair<const char*, std::string SessionInfo::*> kOptionalSessionFields[] = {
    {wire::kRecordKeyChannelDesc, &SessionInfo::channel_desc},
    {wire::kRecordKeyPassport, &SessionInfo::passport},
    {wire::kRecordKeyTzuid, &SessionInfo::tzuid},
    {wire::kRecordKeyRunSourceDesc, &SessionInfo::rso_desc},
    {wire::kRecordKeyReferrer, &SessionInfo::referrer},
    {wire::kRecordKeyRefDesc, &SessionInfo::ref_desc},
    {wire::kRecordKeyUver, &SessionInfo::uver},
    {wire::kRecordKeyBrowserVersion, &SessionInfo::brower_version},
    {wire::kRecordKeyLanguage, &SessionInfo::local_language},
    {wire::kRecordKeyOs, &SessionInfo::os},
    {wire::kRecordKeyScreenColor, &SessionInfo::screen_color},
    {wire::kRecordKeyScreenResolution, &SessionInfo::screen_resolution},
    {wire::kRecordKeyMachine, &SessionInfo::machine},
    {wire::kRecordKeyNetType, &SessionInfo::net_type},
    {wire::kRecordKeySessionType, &SessionInfo::session_type},
    {wire::kRecordKeyGame, &SessionInfo::game},
    {wire::kRecordKeyGameServer, &SessionInfo::game_server},
    {wire::kRecordKeyMpassport, &SessionInfo::mpassport},
    {wire::kRecordKeyTraceId, &SessionInfo::trace_id},
};

}  // namespace

template <class Worker>
BasicDataReport<Worker>::BasicDataReport() = default;

template <class Worker>
BasicDataReport<Worker>::~BasicDataReport() {
    // Timer callbacks and start-up tasks reach into this part of the object.
    this->ReleaseThreads();
}

template <class Worker>
void BasicDataReport<Worker>::HeartbeatTimerProc(void* object) {
    static_cast<BasicDataReport*>(object)->PostHeartBeatEvent();
}

template <class Worker>
void BasicDataReport<Worker>::PumpTimerProc(void* object) {
    static_cast<BasicDataReport*>(object)->OnPumpTimer();
}

template <class Worker>
void BasicDataReport<Worker>::MachineIdStartupTask(void* object) {
    auto* self = static_cast<BasicDataReport*>(object);
    self->GetMachineId();
    self->RefreshSessionInfo();
    self->PublishMachineId();
}

template <class Worker>
void BasicDataReport<Worker>::SessionTimerProc(void* object) {
    static_cast<BasicDataReport*>(object)->RefreshSessionInfo();
}

template <class Worker>
bool BasicDataReport<Worker>::Init(const std::wstring& url, const std::string& dty,
                                   const std::string& pro, uint32_t heartbeatInterval,
                                   WindowHandle window, const std::wstring& notSentPath,
                                   uint32_t eventMask, bool outputDebugString) {
    if (url.empty() || dty.empty() || pro.empty() ||
        heartbeatInterval < report::kMinHeartbeatIntervalMs) {
        return false;
    }
    heartbeatTimer = this->timers.SetTimer(window, heartbeatInterval,
                                           &BasicDataReport::HeartbeatTimerProc, this);
    if (heartbeatTimer == 0) {
        return false;
    }
    pumpTimer = this->timers.SetTimer(window, report::kPumpIntervalMs,
                                      &BasicDataReport::PumpTimerProc, this);
    if (pumpTimer == 0) {
        return false;
    }
    this->reportThread.AddStartupCall(&BasicDataReport::MachineIdStartupTask, this);
    if (!this->InitWorker(window, notSentPath)) {
        this->timers.KillTimer(window, heartbeatTimer);
        this->timers.KillTimer(window, pumpTimer);
        heartbeatTimer = 0;
        pumpTimer = 0;
        return false;
    }
    {
        CScopedLock lock(this->queueLock);
        defaultUrl = url;
    }
    this->dty = dty;
    this->pro = pro;
    sessionId = CreateSessionId();
    this->reportThread.SetSessionInfo(sessionId, pro);
    startTick = port::GetTickCount();
    this->eventMask.store(eventMask, std::memory_order_relaxed);
    this->outputDebugString.store(outputDebugString, std::memory_order_relaxed);
    return true;
}

template <class Worker>
std::string BasicDataReport<Worker>::CreateSessionId() {
    uint8_t bytes[16];
    if (!text::NewUuid4(bytes)) {
        return std::string();
    }
    return text::UuidText(bytes, text::UuidForm::kDashed);
}

template <class Worker>
void BasicDataReport<Worker>::Run() {
    Base::Run();
    PostStartUpEvent();
}

template <class Worker>
void BasicDataReport<Worker>::KillSessionTimers() {
    // Killing waits for a running callback, which may take sessionLock: never kill under it.
    uintptr_t session;
    {
        CScopedLock lock(sessionLock);
        session = sessionTimer;
        sessionTimer = 0;
    }
    for (uintptr_t* id : {&pumpTimer, &heartbeatTimer, &session}) {
        if (*id != 0) {
            this->timers.KillTimer(this->window, *id);
            *id = 0;
        }
    }
}

template <class Worker>
void BasicDataReport<Worker>::Exit(bool flush, uint32_t timeoutMs) {
    if (this->GetObjectState() == kNotInitialised) {
        return;
    }
    if (this->GetObjectState() == kInitialised) {
        Run();
    }
    KillSessionTimers();
    GetMachineIdTimeout(report::kMachineIdWaitAtExitMs);
    RefreshSessionInfo();
    PostHeartBeatEvent();
    PostEndUpEvent();
    Base::Exit(flush, timeoutMs);

    CScopedLock lock(sessionLock);
    if (!sessionRecords.empty() && !sessionApplied.load(std::memory_order_acquire)) {
        ReportPost post;
        post.url = defaultUrl;
        post.records = sessionRecords;
        post.flag = true;
        this->notSentPosts.push_back(std::move(post));
    }
}

template <class Worker>
void BasicDataReport<Worker>::OnPumpTimer() {
    Base::OnPumpTimer();
    if (!machineIdReady.load(std::memory_order_acquire) || machineIdCallbacks.empty()) {
        return;
    }
    // Taken out first: a callback may register another one, which then runs at the next pump.
    std::vector<std::pair<MachineIdCallback, void*>> callbacks;
    callbacks.swap(machineIdCallbacks);
    for (const auto& callback : callbacks) {
        if (callback.first != nullptr) {
            callback.first(machineId, callback.second);
        }
    }
}

template <class Worker>
ReportPost BasicDataReport<Worker>::NewEventPost() {
    ReportPost post = this->reportThread.TakeSparePost();
    post.records.resize(1);
    return post;
}

template <class Worker>
void BasicDataReport<Worker>::AddEventKeys(RecordBuilder& record) {
    record.Add(wire::kRecordKeyAction, wire::kEventAction);
    record.Add(wire::kRecordKeySessionId, sessionId);
    record.Add(wire::kRecordKeyDty, dty);
    record.Add(wire::kRecordKeyProduct, pro);
}

template <class Worker>
bool BasicDataReport<Worker>::Sends(uint32_t eventBit) const {
    return (eventMask.load(std::memory_order_relaxed) & eventBit) != 0;
}

template <class Worker>
void BasicDataReport<Worker>::BuildLifecycleRecord(ReportRecord& record, const char* eid,
                                                   const char* traceName,
                                                   const std::string* duration) {
    {
        RecordBuilder builder(record);
        AddEventKeys(builder);
        builder.Add(wire::kRecordKeyEid, eid);
        builder.Add(wire::kRecordKeyTime, FormatEventTime());
        if (duration != nullptr) {
            builder.Add(wire::kRecordKeyDuration, *duration);
        }
    }
    if (Traced()) {
        if (duration != nullptr) {
            WriteTrace(traceName, report::kLifecycleTraceKeys, record);
        } else {
            WriteTrace(traceName, report::kStartUpTraceKeys, record);
        }
    }
}

template <class Worker>
void BasicDataReport<Worker>::PostStartUpEvent() {
    if (!Sends(report::kSendStartup)) {
        return;
    }
    ReportPost post = NewEventPost();
    BuildLifecycleRecord(post.records.front(), report::kStartupEid, report::kTraceStartUp, nullptr);
    this->HandOver(defaultUrl, std::move(post));
}

template <class Worker>
void BasicDataReport<Worker>::PostEndUpEvent() {
    if (!Sends(report::kSendEndup)) {
        return;
    }
    ReportPost post = NewEventPost();
    const std::string duration = std::to_string(port::GetTickCount() - startTick);
    BuildLifecycleRecord(post.records.front(), report::kEndupEid, report::kTraceEndUp, &duration);
    this->HandOver(defaultUrl, std::move(post));
}

template <class Worker>
void BasicDataReport<Worker>::PostHeartBeatEvent() {
    if (!Sends(report::kSendHeartbeat)) {
        return;
    }
    // A spare post, handed over as it stands: a copy would add one post to the spares at every
    // heartbeat, until their bound.
    ReportPost post = NewEventPost();
    // Signed on purpose: a session longer than 24 days shows a negative duration.
    const std::string duration =
        std::to_string(static_cast<int32_t>(port::GetTickCount() - startTick));
    BuildLifecycleRecord(post.records.front(), report::kHeartbeatEid, report::kTraceHeartBeat,
                         &duration);
    this->HandOver(defaultUrl, std::move(post));
}

template <class Worker>
void BasicDataReport<Worker>::SetOutputDebugString(bool enabled) {
    outputDebugString.store(enabled, std::memory_order_relaxed);
}

template <class Worker>
bool BasicDataReport<Worker>::GetOutputDebugString() {
    return Traced();
}

template <class Worker>
void BasicDataReport<Worker>::SetDefaultPostPriority(DataReportPriority priority) {
    defaultPriority.store(priority, std::memory_order_relaxed);
}

template <class Worker>
DataReportPriority BasicDataReport<Worker>::GetDefaultPostPriority() {
    return static_cast<DataReportPriority>(defaultPriority.load(std::memory_order_relaxed));
}

template <class Worker>
void BasicDataReport<Worker>::SetDefaultUrl(const std::wstring& url) {
    CScopedLock lock(this->queueLock);
    defaultUrl = url;
}

template <class Worker>
std::wstring BasicDataReport<Worker>::GetDefaultUrl() {
    CScopedLock lock(this->queueLock);
    return defaultUrl;
}

template <class Worker>
void BasicDataReport<Worker>::AddCustomFields(RecordBuilder& record, const std::string& eid,
                                              const std::string& desc, const std::string& content,
                                              int dur, bool ati) {
    record.Add(wire::kRecordKeyEid, eid, report::kMaxEidBytes);
    if (!desc.empty()) {
        record.Add(wire::kRecordKeyEidDesc, desc, report::kMaxDescBytes);
    }
    if (!content.empty()) {
        record.Add(wire::kRecordKeyContent, content, report::kMaxContentBytes);
    }
    if (dur >= 0) {
        record.Add(wire::kRecordKeyDuration, std::to_string(dur));
    }
    if (ati) {
        record.Add(wire::kRecordKeyTime, FormatEventTime());
    }
}

template <class Worker>
ReportPost BasicDataReport<Worker>::NewCustomEventPost(const std::string& eid,
                                                       const std::string& desc,
                                                       const std::string& content, int dur,
                                                       bool ati, const ReportRecord* extra) {
    ReportPost post = NewEventPost();
    RecordBuilder record(post.records.front());
    AddEventKeys(record);
    AddCustomFields(record, eid, desc, content, dur, ati);
    if (extra != nullptr) {
        for (const auto& entry : *extra) {
            record.Add(entry.first, entry.second);
        }
    }
    return post;
}

template <class Worker>
bool BasicDataReport<Worker>::PostCustomEvent(const std::string& eid, const std::string& desc,
                                              const std::string& content, int dur, bool ati) {
    if (eid.empty()) {
        return false;
    }
    ReportPost post = NewCustomEventPost(eid, desc, content, dur, ati, nullptr);
    if (Traced()) {
        WriteTrace(report::kTracePostCustom, report::kCustomTraceKeys, post.records.front());
    }
    // The default priority would go with the post, but a priority never changes a report's fate:
    // the post is handed over as it stands instead of copied.
    return this->HandOver(defaultUrl, std::move(post));
}

template <class Worker>
bool BasicDataReport<Worker>::SendCustomEvent(const std::string& eid, const std::string& desc,
                                              const std::string& content, int dur, bool ati) {
    if (eid.empty()) {
        return false;
    }
    ReportPost post = NewCustomEventPost(eid, desc, content, dur, ati, nullptr);
    if (Traced()) {
        WriteTrace(report::kTraceSendCustom, report::kCustomTraceKeys, post.records.front());
    }
    return this->HandOver(defaultUrl, std::move(post));
}

template <class Worker>
bool BasicDataReport<Worker>::SendCustomEventExt(const std::string& eid, const std::string& desc,
                                                 const std::string& content, int dur, bool ati,
                                                 const ReportRecord& extra) {
    ReportPost post = NewCustomEventPost(eid, desc, content, dur, ati, &extra);
    if (Traced()) {
        WriteTrace(report::kTraceSendCustomExt, report::kCustomTraceKeys, post.records.front());
    }
    return this->HandOver(defaultUrl, std::move(post));
}

template <class Worker>
bool BasicDataReport<Worker>::SendErrorEventEx(const std::string& eid, const std::string& content,
                                               const std::string& desc, int dur, bool ati) {
    if (eid.empty()) {
        return false;
    }
    const std::string errorEid = report::kErrorEidPrefix + eid;
    ReportPost post = NewEventPost();
    {
        RecordBuilder record(post.records.front());
        AddEventKeys(record);
        record.Add(wire::kRecordKeyEid, errorEid, report::kMaxEidBytes);
        if (!content.empty()) {
            record.Add(wire::kRecordKeyContent, content, report::kMaxContentBytes);
        }
        if (!desc.empty()) {
            // The caller's text only switches the description on; it is the translated id.
            record.Add(wire::kRecordKeyEidDesc, TranslateEid(errorEid), report::kMaxDescBytes);
        }
        if (dur >= 0) {
            record.Add(wire::kRecordKeyDuration, std::to_string(dur));
        }
        if (ati) {
            record.Add(wire::kRecordKeyTime, FormatEventTime());
        }
    }
    if (Traced()) {
        WriteTrace(report::kTraceSendErrorEx, report::kCustomTraceKeys, post.records.front());
    }
    return this->HandOver(defaultUrl, std::move(post));
}

template <class Worker>
bool BasicDataReport<Worker>::SendErrorEvent(const char* eid, const char* content,
                                             const char* subEid) {
    if (eid == nullptr) {
        return false;
    }
    std::string id(eid);
    if (subEid != nullptr && subEid[0] != '\0') {
        id += report::kEidSeparator;
        id += subEid;
    }
    std::string desc = TranslateEid(id);
    if (desc == id) {
        desc.clear();
    }
    return SendErrorEventEx(id, content == nullptr ? std::string() : std::string(content), desc, -1,
                            true);
}

template <class Worker>
bool BasicDataReport<Worker>::SetMachineId(const std::string& id) {
    if (this->GetObjectState() >= kRunning || machineIdReady.load(std::memory_order_acquire)) {
        return false;
    }
    machineId = id;
    machineIdReady.store(true, std::memory_order_release);
    return true;
}

template <class Worker>
void BasicDataReport<Worker>::AddMachineIdCallback(MachineIdCallback callback, void* context) {
    machineIdCallbacks.emplace_back(callback, context);
}

template <class Worker>
std::string BasicDataReport<Worker>::TryGetMachineId() {
    return machineIdReady.load(std::memory_order_acquire) ? machineId : std::string();
}

template <class Worker>
std::string BasicDataReport<Worker>::GetMachineIdTimeout(uint32_t timeoutMs) {
    if (timeoutMs != 0) {
        const uint32_t start = port::GetTickCount();
        while (!machineIdReady.load(std::memory_order_acquire) &&
               port::GetTickCount() - start < timeoutMs) {
            port::Sleep(1);
        }
    }
    return TryGetMachineId();
}

template <class Worker>
std::string BasicDataReport<Worker>::GetMachineId() {
    if (machineIdReady.load(std::memory_order_acquire)) {
        return machineId;
    }
    machineId = ObtainMachineId();
    machineIdReady.store(true, std::memory_order_release);
    return machineId;
}

template <class Worker>
std::string BasicDataReport<Worker>::ObtainMachineId() {
    return ObtainStoredMachineId();
}

template <class Worker>
void BasicDataReport<Worker>::RefreshSessionInfo() {
    if (!machineIdReady.load(std::memory_order_acquire)) {
        return;
    }
    std::vector<ReportRecord> records;
    {
        CScopedLock lock(sessionLock);
        records = sessionRecords;
    }
    if (records.empty() || records.back().empty()) {
        return;
    }
    ReportRecord& record = records.back();
    record[wire::kRecordKeyDeviceId] = machineId;
    if (Traced()) {
        WriteTrace(report::kTraceSessionInfo, report::kSessionTraceKeys, record);
    }
    this->reportThread.SetCommonParams(record);
    sessionApplied.store(true, std::memory_order_release);
}

template <class Worker>
bool BasicDataReport<Worker>::PostSessionInfo(const SessionInfo& info) {
    if (info.channel.empty() || info.run_source.empty() || info.iver.empty()) {
        return false;
    }
    std::string channel;
    std::string runSource;
    ReplaceText(channel, info.channel, report::kOtherChannel, report::kOtherChannelReplacement);
    ReplaceText(runSource, info.run_source, report::kOtherChannel,
                report::kOtherChannelReplacement);

    std::vector<ReportRecord> records(1);
    {
        RecordBuilder record(records.front());
        AddEventKeys(record);
        record.Add(wire::kRecordKeyIver, info.iver);
        record.Add(wire::kRecordKeyChannel, channel);
        record.Add(wire::kRecordKeyRunSource, runSource);
        record.Add(wire::kRecordKeySdkVersion, version::kSdkVersion);
        for (const auto& [key, field] : kOptionalSessionFields) {
            if (!(info.*field).empty()) {
                record.Add(key, info.*field);
            }
        }
        if (info.report_time) {
            record.Add(wire::kRecordKeyTime, FormatEventTime());
        }
        if (machineIdReady.load(std::memory_order_acquire)) {
            record.Add(wire::kRecordKeyDeviceId, machineId);
        }
    }
    {
        CScopedLock lock(sessionLock);
        if (sessionTimer == 0) {
            sessionTimer = this->timers.SetTimer(this->window, report::kSessionIntervalMs,
                                                 &BasicDataReport::SessionTimerProc, this);
        }
        sessionRecords = records;
        this->reportThread.SetCommonParams(records.front());
        sessionApplied.store(true, std::memory_order_release);
    }
    RefreshSessionInfo();
    this->reportThread.SetAccountInfo(info.passport, info.tzuid, channel, info.iver);
    return true;
}

template <class Worker>
void BasicDataReport<Worker>::PostEventStart(const std::wstring& name) {
    eventStarts[name] = port::GetTickCount();
}

template <class Worker>
bool BasicDataReport<Worker>::PostEventDurEnd(const std::wstring& name, const std::wstring& desc) {
    const uint32_t now = port::GetTickCount();
    const auto start = eventStarts.find(name);
    if (start == eventStarts.end()) {
        return false;
    }
    uint32_t dur = now - start->second;
    // A showup measured across a long pause is kept below ten seconds on purpose.
    if (dur > report::kShowupModuloMs && name == report::kShowupEventName) {
        dur %= report::kShowupModuloMs;
    }
    // Durations of 2^31 ms and more arrive negative and are left out of the record.
    return SendCustomEvent(WideToUtf8(name), WideToUtf8(desc), std::string(), static_cast<int>(dur),
                           true);
}

template <class Worker>
std::string BasicDataReport<Worker>::GetSessionId() {
    return sessionId;
}

template <class Worker>
void BasicDataReport<Worker>::PublishMachineId() {
    if (machineIdReady.load(std::memory_order_acquire)) {
        this->reportThread.SetDeliveryMachineId(machineId);
    }
}

template class BasicDataReport<ReportThreadImpl>;

}  // namespace qzdata_report_kelvo
