#include "delivery/upload_log.h"

#include <json/json.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <utility>
#include <vector>

#include "codec/base64.h"
#include "codec/des_block.h"
#include "codec/md5.h"
#include "codec/utils.h"
#include "delivery/constants.h"
#include "delivery/report_connect.h"
#include "delivery/report_context.h"
#include "deployment_config.h"
#include "identity/hardware_id_store.h"
#include "identity/os_version.h"
#include "port/env.h"
#include "port/file_system.h"
#include "port/log_file.h"

namespace qzdata_report_kelvo {

namespace {

// Parses `text` as one JSON document; false on any error, thrown or reported.
bool ParseJson(const std::string& text, Json::Value& root) {
    try {
        Json::CharReaderBuilder builder;
        const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
        std::string errors;
        return reader->parse(text.data(), text.data() + text.size(), &root, &errors) &&
               root.isObject();
    } catch (const std::exception&) {
        return false;
    }
}

bool ParseTime(const std::string& text, int64_t& time) {
    if (text.empty()) {
        return false;
    }
    char* end = nullptr;
    errno = 0;
    const long long value = std::strtoll(text.c_str(), &end, 10);
    if (errno != 0 || end != text.c_str() + text.size()) {
        return false;
    }
    time = value;
    return true;
}

constexpr char kUidKey[] = "&uid=";

}  // namespace

CUploadLog::CUploadLog(CReportContext* context)
    : context(context), statsPeriodMs(delivery::kStatsPeriodMs), pollMs(delivery::kUploadPollMs) {}

CUploadLog::~CUploadLog() {
    StopAndJoin();
}

void CUploadLog::StopAndJoin() {
    {
        CScopedLock scoped(lock);
        stopRequested.store(true, std::memory_order_release);
    }
    {
        CScopedLock scoped(timerLock);
        timer.reset();
    }
    thread.join();
}

void CUploadLog::SetSession(const std::string& session, const std::string& key) {
    // A session that is renewed while the upload thread reads must not tear the texts.
    CScopedLock scoped(lock);
    sessionId = session;
    appKey = key;
}

void CUploadLog::SetDeviceId(const std::string& id) {
    CScopedLock scoped(lock);
    if (!hasDeviceId) {
        deviceId = id;
        hasDeviceId = true;
    }
}

void CUploadLog::AddUid(const std::string& uid) {
    CScopedLock scoped(lock);
    if (!uid.empty()) {
        uids.emplace(uid, false);
    }
    if (!thread.hasHandle() && !StopRequested()) {
        thread.start(*this);
    }
}

bool CUploadLog::NextUid(std::string& uid) {
    CScopedLock scoped(lock);
    uid.clear();
    for (auto& entry : uids) {
        if (!entry.second) {
            entry.second = true;
            uid = entry.first;
            return true;
        }
    }
    return false;
}

bool CUploadLog::HasDeviceId() {
    CScopedLock scoped(lock);
    return hasDeviceId;
}

void CUploadLog::Run() {
    if (StopRequested()) {
        return;
    }
    HardwareIdStore::Instance().Get(machineId);
    std::string uid;
    while (!StopRequested()) {
        if (!HasDeviceId()) {
            port::Sleep(pollMs.load(std::memory_order_relaxed));
            continue;
        }
        std::string id;
        std::string key;
        {
            CScopedLock scoped(lock);
            id = deviceId;
            key = appKey;
        }
        NextUid(uid);
        bool open = FetchDeviceConfig(uid, key, id, machineId);
        // Each user id is asked about once; a refusal waits for a new one.
        while (!open) {
            if (StopRequested()) {
                return;
            }
            open = NextUid(uid) && FetchDeviceConfig(uid, key, id, machineId);
            if (!open) {
                if (StopRequested()) {
                    return;
                }
                port::Sleep(pollMs.load(std::memory_order_relaxed));
            }
        }
        ScanLogs();
        return;
    }
}

void CUploadLog::OnTimer(CTimer& /*timer*/) {
    context->ReportTotals(true, false);
}

void CUploadLog::Stop() {
    {
        CScopedLock scoped(lock);
        stopRequested.store(true, std::memory_order_release);
    }
    {
        CScopedLock scoped(timerLock);
        if (timer) {
            timer->stop();
        }
    }
    // After stopRequested is set under the lock, no AddUid starts the thread: only this thread
    // and the destructor touch it now.
    thread.wait(delivery::kUploadStopWaitMs);
}

bool CUploadLog::FetchDeviceConfig(const std::string& uid, const std::string& key,
                                   const std::string& device, const std::string& machine) {
    std::string query;
    for (const auto& [name, value] :
         {std::make_pair("&uid=", &uid), std::make_pair("&appkey=", &key),
          std::make_pair("&deviceid=", &device), std::make_pair("&hmid=", &machine)}) {
        if (!value->empty()) {
            query += name + *value;
        }
    }
    if (query.empty()) {
        return false;
    }
    CStrategy& strategy = context->GetStrategy();
    CAddressList& fallback = strategy.GetConfigFallbackList();
    CReportConnect connect(strategy.GetHosts().configHost, strategy.GetHosts().configPort, context,
                           &fallback, &fallback);
    std::string reply;
    if (!connect.FetchSecure(delivery::kDeviceConfigPath + query, 0, std::string(), reply) ||
        reply.empty()) {
        return false;
    }
    return ParseDeviceConfig(reply);
}

bool CUploadLog::ParseDeviceConfig(const std::string& reply) {
    try {
        Json::Value root;
        if (!ParseJson(reply, root) || root["code"].asInt() != 1) {
            return false;
        }
        const std::string data = root["data"].asString();
        const std::string time =
            root.isMember("time") ? std::to_string(root["time"].asInt64()) : std::string();
        if (data.empty() || time.empty()) {
            return false;
        }
        Md5Context md5;
        md5.Start(time + deployment::kConfigPass);
        const std::string keyText = md5.HexDigest();
        std::string cipher;
        if (keyText.empty() || Base64Decode(data, cipher) <= 0) {
            return false;
        }
        std::string plain;
        DecodeDesBlock(keyText, cipher, plain);
        Json::Value config;
        return ParseJson(plain, config) && config["tzConfig"]["open"].asInt() != 0;
    } catch (const std::exception&) {
        return false;
    }
}

void CUploadLog::BuildCommonQuery() {
    std::string device;
    std::string session;
    {
        CScopedLock scoped(lock);
        device = deviceId;
        session = sessionId;
    }
    commonQuery = "&session_id=" + session + "&kelvo_mid=" + machineId + "&sys=10" +
                  "&mbos=" + GetOsPlatformVersionText() + "&imei=" + device;
}

void CUploadLog::StartTimer() {
    CScopedLock scoped(timerLock);
    if (StopRequested()) {
        return;
    }
    if (!timer) {
        const uint32_t period = statsPeriodMs.load(std::memory_order_relaxed);
        timer = std::make_unique<CTimer>(period, period);
    }
    if (!timer->isRunning()) {
        timer->start(CTimerCallback<CUploadLog>(*this, &CUploadLog::OnTimer));
    }
}

void CUploadLog::ScanLogs() {
    BuildCommonQuery();
    context->GetStrategy().EnableLogs();
    if (StopRequested()) {
        return;
    }
    StartTimer();
    const std::string& folder = context->GetLogDirectory();
    if (StopRequested() || folder.empty()) {
        return;
    }
    UploadFolder(folder, std::string(delivery::kReportLogBase) + "*" + delivery::kLogExtension,
                 false);
    if (!StopRequested()) {
        UploadFolder(folder + delivery::kErrorLogFolder,
                     std::string(delivery::kErrorLogBase) + "*" + delivery::kLogExtension, true);
    }
}

void CUploadLog::UploadFolder(const std::string& folder, const std::string& pattern, bool isFail) {
    for (const std::string& name : port::ListFiles(folder, pattern)) {
        if (StopRequested()) {
            return;
        }
        UploadFile(folder + name, isFail);
    }
}

void CUploadLog::UploadFile(const std::string& path, bool isFail) {
    port::LockedFile file;
    if (!file.Open(path)) {
        return;
    }
    bool keep = false;
    bool ended = false;
    std::string line;
    std::string piece;
    while (!StopRequested()) {
        const port::LockedFile::ReadResult result = file.ReadPiece(delivery::kLogReadBuffer, piece);
        if (result == port::LockedFile::ReadResult::kError) {
            keep = true;
            break;
        }
        const bool atEnd = result == port::LockedFile::ReadResult::kEnd;
        if (atEnd && line.empty()) {
            ended = true;
            break;
        }
        line += piece;
        // A line that starts with a NUL byte reads as an empty piece: nothing to look at yet.
        if (!atEnd && line.empty()) {
            continue;
        }
        if (!atEnd && line.back() != '\n') {
            continue;
        }
        if (!line.empty() && line.back() == '\n') {
            line.pop_back();
        }
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (!line.empty() && !UploadLine(line, isFail, false)) {
            keep = true;
        }
        line.clear();
        port::Sleep(delivery::kUploadLinePauseMs);
    }
    if (!ended) {
        keep = true;
    }
    file.Close();
    if (!keep) {
        port::RemoveFile(path);
    }
}

bool CUploadLog::UploadLine(const std::string& line, bool isFail, bool once) {
    if (line.empty()) {
        return true;
    }
    // The fields behind the time (and, for a failure line, behind session and line id), in the
    // order of the line; only the user id may be empty.
    static const char* const kTotalKeys[] = {
        "&log_seid=",       "&guid=",        "&log_dur=",       "&cur=",    "&resume_report=",
        "&succeed_report=", "&fail_report=", "&first_connect=", "&retry=",  "&suc=",
        "&fait=",           "&del=",         "&buf=",           "&appkey=", "&ver=",
        "&from=",           kUidKey,         "&sdkver="};
    static const char* const kFailKeys[] = {"&fcode=",  "&appkey=", "&ver=",   "&from=", kUidKey,
                                            "&sdkver=", "&fact=",   "&retry=", "&host="};

    std::string query = commonQuery;
    size_t position = 0;
    std::string value;
    if (!TakeField(line, position, "&log_time=", query, true, &value, false)) {
        return true;
    }
    if (isFail) {
        if (!TakeField(line, position, "&log_seid=", query, false, nullptr, false) ||
            !TakeField(line, position, "&guid=", query, false, &value, false)) {
            return true;
        }
        if (!value.empty()) {
            // Escaped like every other field: a blank or line break of a damaged line must not
            // reach the request line.
            std::string escaped;
            EscapeUrl(value, escaped);
            value = escaped;
            query += "&fguid=" + value;
        }
    } else {
        int64_t time = 0;
        if (ParseTime(value, time)) {
            query += "&logdate=" + port::FormatLocalDate(time);
        }
    }
    const char* const* const first = isFail ? std::begin(kFailKeys) : std::begin(kTotalKeys);
    const char* const* const last = isFail ? std::end(kFailKeys) : std::end(kTotalKeys);
    for (const char* const* key = first; key != last; ++key) {
        if (!TakeField(line, position, *key, query, false, nullptr, *key == kUidKey)) {
            return true;
        }
    }

    CStrategy& strategy = context->GetStrategy();
    CReportConnect connect(strategy.GetCollectorHost(), strategy.GetCollectorPort(), context,
                           &strategy.GetFallbackList(), &strategy.GetPostFallbackList());
    std::string path;
    std::string body;
    std::string recordId;
    int64_t time = 0;
    if (!BuildGifUrl(query, isFail ? delivery::kFailAction : delivery::kTotalAction, path, body,
                     recordId, time)) {
        return false;
    }
    return connect.UploadDirect(path, 0, body, recordId,
                                isFail ? delivery::kFailAction : delivery::kTotalAction, time,
                                once ? Attempts::kOnce : Attempts::kWithFallback);
}

bool CUploadLog::TakeField(const std::string& line, size_t& position, const std::string& key,
                           std::string& query, bool checkAge, std::string* value, bool allowEmpty) {
    if (value != nullptr) {
        value->clear();
    }
    if (line.empty() || position >= line.size() || key.empty()) {
        return false;
    }
    const size_t tab = line.find('\t', position);
    if (tab == position) {
        if (!allowEmpty) {
            return false;
        }
        position = tab + 1;
        return true;
    }
    const std::string field =
        line.substr(position, tab == std::string::npos ? std::string::npos : tab - position);
    if (checkAge) {
        int64_t time = 0;
        if (!ParseTime(field, time) || SecondsSince(time) > delivery::kMaxLogLineAgeSeconds) {
            return false;
        }
    }
    std::string escaped;
    EscapeUrl(field, escaped);
    query += key + escaped;
    position = tab == std::string::npos ? line.size() : tab + 1;
    if (value != nullptr) {
        *value = field;
    }
    return true;
}

void CUploadLog::SetPeriodsForTesting(uint32_t statsPeriod, uint32_t poll) {
    statsPeriodMs.store(statsPeriod, std::memory_order_relaxed);
    pollMs.store(poll, std::memory_order_relaxed);
}

}  // namespace qzdata_report_kelvo
