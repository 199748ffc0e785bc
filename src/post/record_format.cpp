#include "port/port.h"

#include "post/record_format.h"

#include <set>
#include <utility>

#include "codec/utils.h"
#include "delivery/dispatch_table.h"
#include "delivery/report_context.h"
#include "identity/hardware_id_store.h"
#include "post/constants.h"
#include "post/report_thread.h"

namespace qzdata_report_kelvo {

namespace {

unsigned char FoldCase(unsigned char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<unsigned char>(c - 'A' + 'a') : c;
}

bool IsAsciiAlnum(unsigned char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool IsStrictKept(unsigned char c) {
    static constexpr char kMarks[] = "-_.!~*'()";
    if (IsAsciiAlnum(c)) {
        return true;
    }
    for (const char* mark = kMarks; *mark != '\0'; ++mark) {
        if (static_cast<unsigned char>(*mark) == c) {
            return true;
        }
    }
    return false;
}

bool IsLenientEscaped(unsigned char c) {
    static constexpr char kUnsafe[] = "\\\"^&`<>[]{}";
    if (c <= 32) {
        return true;
    }
    for (const char* unsafe = kUnsafe; *unsafe != '\0'; ++unsafe) {
        if (static_cast<unsigned char>(*unsafe) == c) {
            return true;
        }
    }
    return false;
}

using NameSet = std::set<std::string, CaseInsensitiveLess>;

const NameSet& KnownNames() {
    static const NameSet names(std::begin(post::kKnownParamNames),
                               std::end(post::kKnownParamNames));
    return names;
}

const NameSet& EscapedNames() {
    static const NameSet names(std::begin(post::kEscapedParamNames),
                               std::end(post::kEscapedParamNames));
    return names;
}

}  // namespace

int CompareNoCase(const std::string& left, const std::string& right) {
    const size_t common = std::min(left.size(), right.size());
    for (size_t i = 0; i < common; ++i) {
        const unsigned char a = FoldCase(static_cast<unsigned char>(left[i]));
        const unsigned char b = FoldCase(static_cast<unsigned char>(right[i]));
        if (a != b) {
            return a < b ? -1 : 1;
        }
    }
    if (left.size() == right.size()) {
        return 0;
    }
    return left.size() < right.size() ? -1 : 1;
}

bool CaseInsensitiveLess::operator()(const std::string& left, const std::string& right) const {
    return CompareNoCase(left, right) < 0;
}

bool IsKnownParamName(const std::string& key) {
    return KnownNames().count(key) != 0;
}

bool IsEscapedParamName(const std::string& key) {
    return EscapedNames().count(key) != 0;
}

uint32_t EscapeParamValue(const char* source, char* target, uint32_t targetSize, bool spaceToPlus,
                          bool lenient) {
    static constexpr char kHexDigits[] = "0123456789ABCDEF";
    if (targetSize == 0) {
        return 0;
    }
    uint32_t written = 0;
    // Bytes that the next escape would need, terminating zero included.
    uint32_t needed = 4;
    char* out = target;
    for (const char* in = source; *in != '\0'; ++in) {
        const unsigned char c = static_cast<unsigned char>(*in);
        bool escape;
        if (c == ' ' && spaceToPlus && !lenient) {
            if (written + 1 >= targetSize) {
                break;
            }
            *out++ = '+';
            ++written;
            ++needed;
            continue;
        }
        escape = lenient ? IsLenientEscaped(c) : !IsStrictKept(c);
        if (escape) {
            if (needed > targetSize) {
                break;
            }
            *out++ = '%';
            *out++ = kHexDigits[c >> 4];
            *out++ = kHexDigits[c & 0x0F];
            written += 3;
            needed += 3;
        } else {
            if (written + 1 >= targetSize) {
                break;
            }
            *out++ = static_cast<char>(c);
            ++written;
            ++needed;
        }
    }
    *out = '\0';
    return written;
}

void ReportThreadImpl::InitParamNames() {
    for (const post::ParamNameRow& row : post::kParamNames) {
        paramNames[row.longName] = row.shortName;
    }
}

void ReportThreadImpl::TranslateParamNames(ReportRecord& record) const {
    bool anyLong = false;
    for (const auto& entry : record) {
        if (paramNames.count(entry.first) != 0) {
            anyLong = true;
            break;
        }
    }
    if (!anyLong) {
        return;
    }
    ReportRecord translated;
    for (auto& entry : record) {
        auto row = paramNames.find(entry.first);
        const std::string& key = row == paramNames.end() ? entry.first : row->second;
        translated[key] = std::move(entry.second);
    }
    record.swap(translated);
}

void ReportThreadImpl::SetCommonParams(const ReportRecord& params) {
    CScopedLock lock(commonParamsLock);
    std::string keptDeviceId;
    if (params.count(post::kDeviceIdKey) == 0) {
        auto old = commonParams.find(post::kDeviceIdKey);
        if (old != commonParams.end()) {
            keptDeviceId = old->second;
        }
    }
    commonParams = params;
    commonParams.erase(post::kActionKey);
    commonParams.erase(post::kTimeKey);
    if (!keptDeviceId.empty()) {
        commonParams[post::kDeviceIdKey] = keptDeviceId;
    }
}

bool ReportThreadImpl::EscapeValue(const std::string& value, std::string& out) {
    const size_t length = value.size();
    if (length > escapeCapacity) {
        escapeCapacity = static_cast<uint32_t>(length);
        escapeBufferSize = escapeCapacity * 3 + 1;
        escapeBuffer.reset(new char[escapeBufferSize]);
    }
    const uint32_t written =
        EscapeParamValue(value.c_str(), escapeBuffer.get(), escapeBufferSize, true, false);
    if (written == 0) {
        return false;
    }
    out.append(escapeBuffer.get(), written);
    return true;
}

int ReportThreadImpl::BuildRecordQuery(const ReportRecord& params, std::string& query,
                                       std::string& action) {
    query.clear();
    ReportRecord record(params);
    TranslateParamNames(record);

    ReportRecord common;
    {
        CScopedLock lock(commonParamsLock);
        common = commonParams;
    }
    std::string hardwareId;
    if (hardwareIdSource != nullptr) {
        hardwareId = hardwareIdSource();
    } else {
        HardwareIdStore::Instance().Get(hardwareId);
    }
    common[post::kHardwareIdKey] = hardwareId;
    if (common.count(post::kSdkVersionKey) == 0) {
        common[post::kSdkVersionKey] = post::kSdkVersion;
    }
    record.insert(common.begin(), common.end());

    auto actionEntry = record.find(post::kActionKey);
    action = actionEntry == record.end() ? std::string(post::kDefaultAction) : actionEntry->second;
    auto extraEntry = record.find(post::kExtraKey);
    std::string extraText = extraEntry == record.end() ? std::string() : extraEntry->second;

    bool firstKnown = true;
    for (auto entry = record.begin(); entry != record.end(); ++entry) {
        if (entry == actionEntry || entry == extraEntry) {
            continue;
        }
        if (IsKnownParamName(entry->first)) {
            if (!firstKnown) {
                query += '&';
            }
            firstKnown = false;
            query += entry->first;
            query += '=';
            query += entry->second;
            continue;
        }
        if (!extraText.empty()) {
            extraText += '&';
        }
        extraText += entry->first;
        extraText += '=';
        if (IsEscapedParamName(entry->first)) {
            if (!EscapeValue(entry->second, extraText)) {
                return post::kRecordQueryDropped;
            }
        } else {
            extraText += entry->second;
        }
    }
    if (extraText.empty()) {
        return post::kRecordQueryOk;
    }
    if (!query.empty()) {
        query += '&';
    }
    query += post::kExtraKey;
    query += '=';
    if (!EscapeValue(extraText, query)) {
        return post::kRecordQueryDropped;
    }
    return post::kRecordQueryOk;
}

void ReportThreadImpl::PostRecord(const std::string& action, const std::string& query) {
    if (IsAbandoned()) {
        return;
    }
    BuiltRecord built;
    built.action = action;
    BuildGifUrl(query, action, built.path, built.signedQuery, built.recordId, built.recordTime);
    {
        CScopedLock lock(observerLock);
        if (recordObserver) {
            recordObserver(built);
        }
    }
    if (dispatchTable && reportContext) {
        // From here the delivery engine owns the record.
        CStrategy& strategy = reportContext->GetStrategy();
        dispatchTable->Post(strategy.GetCollectorHost(), built.path, 0, built.signedQuery, 0,
                            strategy.GetCollectorPort(), built.recordId, built.action,
                            built.recordTime, false, false);
    } else if (reportContext) {
        reportContext->GetStats().AddUnreported();
    }
}

}  // namespace qzdata_report_kelvo
