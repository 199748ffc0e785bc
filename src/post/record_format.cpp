#include "post/record_format.h"

#include <algorithm>
#include <set>
#include <utility>

#include "codec/text.h"
#include "codec/wire_names.h"
#include "identity/hardware_id_store.h"
#include "library_version.h"
#include "post/constants.h"

namespace qzdata_report_kelvo {

namespace {

using NameSet = std::set<std::string, text::CaseInsensitiveLess>;

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

text::EscapeStyle StrictStyle(bool blankAsPlus) {
    text::EscapeStyle style{text::ByteSet(post::kStrictKeptMarks)};
    style.kept.AddRange('0', '9').AddRange('a', 'z').AddRange('A', 'Z');
    style.blankAsPlus = blankAsPlus;
    return style;
}

text::EscapeStyle LenientStyle() {
    text::ByteSet escaped(post::kLenientEscapedMarks);
    escaped.AddRange(0, ' ');
    return text::EscapeStyle{escaped.Complement()};
}

const text::EscapeStyle& StyleOf(ParamEscape mode) {
    static const text::EscapeStyle strictPlus = StrictStyle(true);
    static const text::EscapeStyle strict = StrictStyle(false);
    static const text::EscapeStyle lenient = LenientStyle();
    switch (mode) {
        case ParamEscape::kStrictBlankAsPlus:
            return strictPlus;
        case ParamEscape::kStrict:
            return strict;
        case ParamEscape::kLenient:
            break;
    }
    return lenient;
}

}  // namespace

bool IsKnownParamName(const std::string& key) {
    return KnownNames().count(key) != 0;
}

bool IsEscapedParamName(const std::string& key) {
    return EscapedNames().count(key) != 0;
}

uint32_t EscapeParamValue(const char* source, char* target, uint32_t targetSize, ParamEscape mode) {
    if (targetSize == 0) {
        return 0;
    }
    const text::EscapeStyle& style = StyleOf(mode);
    uint32_t written = 0;
    for (const char* in = source; *in != '\0'; ++in) {
        char piece[text::kMaxEscapedByte];
        const uint32_t length =
            static_cast<uint32_t>(text::EscapeByte(static_cast<unsigned char>(*in), style, piece));
        // The piece and the terminating zero must fit.
        if (written + length + 1 > targetSize) {
            break;
        }
        std::copy(piece, piece + length, target + written);
        written += length;
    }
    target[written] = '\0';
    return written;
}

RecordFormatter::RecordFormatter()
    : escapeBuffer(new char[post::kEscapeBufferSize]),
      escapeCapacity(post::kEscapeCapacity),
      escapeBufferSize(post::kEscapeBufferSize) {
    for (const post::ParamNameRow& row : post::kParamNames) {
        paramNames[row.longName] = row.shortName;
    }
}

void RecordFormatter::TranslateParamNames(ReportRecord& record) const {
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

void RecordFormatter::SetCommonParams(const ReportRecord& params) {
    CScopedLock lock(commonParamsLock);
    std::string keptDeviceId;
    if (params.count(wire::kRecordKeyDeviceId) == 0) {
        auto old = commonParams.find(wire::kRecordKeyDeviceId);
        if (old != commonParams.end()) {
            keptDeviceId = old->second;
        }
    }
    commonParams = params;
    commonParams.erase(wire::kRecordKeyAction);
    commonParams.erase(wire::kRecordKeyTime);
    if (!keptDeviceId.empty()) {
        commonParams[wire::kRecordKeyDeviceId] = keptDeviceId;
    }
}

ReportRecord RecordFormatter::GetCommonParams() {
    CScopedLock lock(commonParamsLock);
    return commonParams;
}

bool RecordFormatter::EscapeValue(const std::string& value, std::string& out) {
    const size_t length = value.size();
    if (length > escapeCapacity) {
        escapeCapacity = static_cast<uint32_t>(length);
        escapeBufferSize = escapeCapacity * 3 + 1;
        escapeBuffer.reset(new char[escapeBufferSize]);
    }
    const uint32_t written = EscapeParamValue(value.c_str(), escapeBuffer.get(), escapeBufferSize,
                                              ParamEscape::kStrictBlankAsPlus);
    if (written == 0) {
        return false;
    }
    out.append(escapeBuffer.get(), written);
    return true;
}

RecordQueryResult RecordFormatter::BuildRecordQuery(const ReportRecord& params, std::string& query,
                                                    std::string& action) {
    query.clear();
    ReportRecord record(params);
    TranslateParamNames(record);

    ReportRecord common = GetCommonParams();
    std::string hardwareId;
    HardwareIdStore::Instance().Get(hardwareId);
    common[wire::kRecordKeyHardwareId] = hardwareId;
    if (common.count(wire::kRecordKeySdkVersion) == 0) {
        common[wire::kRecordKeySdkVersion] = version::kSdkVersion;
    }
    record.insert(common.begin(), common.end());

    auto actionEntry = record.find(wire::kRecordKeyAction);
    action = actionEntry == record.end() ? std::string(wire::kEventAction) : actionEntry->second;
    auto extraEntry = record.find(wire::kRecordKeyExtra);
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
                return RecordQueryResult::kDropped;
            }
        } else {
            extraText += entry->second;
        }
    }
    if (extraText.empty()) {
        return RecordQueryResult::kOk;
    }
    if (!query.empty()) {
        query += '&';
    }
    query += wire::kRecordKeyExtra;
    query += '=';
    if (!EscapeValue(extraText, query)) {
        return RecordQueryResult::kDropped;
    }
    return RecordQueryResult::kOk;
}

}  // namespace qzdata_report_kelvo
