#include "codec/utils.h"

#include <cstdio>
#include <vector>

#include "codec/constants.h"
#include "codec/md5.h"
#include "codec/text.h"
#include "codec/wire_names.h"
#include "deployment_config.h"
#include "port/env.h"
#include "port/file_system.h"

namespace qzdata_report_kelvo {

namespace {

// Formats into a buffer of the fixed size the text form allows; no value can overflow it.
template <size_t Size, class... Args>
std::string Format(const char* pattern, Args... args) {
    char buffer[Size];
    const int written = std::snprintf(buffer, sizeof(buffer), pattern, args...);
    if (written <= 0) {
        return std::string();
    }
    const size_t length = static_cast<size_t>(written);
    return std::string(buffer, length < Size ? length : Size - 1);
}

// The time as signed decimal of its low 32 bits: the collector computes the key the same way.
std::string TimeText(int64_t time) {
    return Int32ToString(static_cast<int32_t>(static_cast<uint32_t>(time)));
}

}  // namespace

void AppendNumber(std::string& text, uint16_t value) {
    text += UInt16ToString(value);
}

void AppendNumber(std::string& text, int32_t value) {
    text += Int32ToString(value);
}

void AppendNumber(std::string& text, double value) {
    text += Format<codec::kDoubleTextSize>("%.0f", value);
}

void AppendNumber(std::string& text, uint64_t value) {
    text += UInt64ToString(value);
}

std::string Int32ToString(int32_t value) {
    return Format<codec::kInt32TextSize>("%d", static_cast<int>(value));
}

std::string UInt32ToString(uint32_t value) {
    return Format<codec::kUInt64TextSize>("%lu", static_cast<unsigned long>(value));
}

std::string UInt64ToString(uint64_t value) {
    return Format<codec::kUInt64TextSize>("%llu", static_cast<unsigned long long>(value));
}

std::string UInt16ToString(uint16_t value) {
    return Format<codec::kUInt16TextSize>("%u", static_cast<unsigned>(value));
}

std::string FormatLocalStamp() {
    port::LocalTime now;
    port::GetLocalTime(&now);
    // Room for out-of-range fields too, so that the text is never cut silently.
    return Format<64>("%04d%02d%02d%02d%02d%02d%03d", now.year, now.month, now.day, now.hour,
                      now.minute, now.second, now.milliseconds);
}

std::string FormatNowField() {
    return TimeText(port::Time64()) + '\t';
}

double SecondsSince(int64_t time) {
    return static_cast<double>(port::Time64() - time);
}

std::string FormatGuidText() {
    uint8_t bytes[16];
    text::NewUuid4(bytes);
    return text::UuidText(bytes, text::UuidForm::kPlain);
}

bool EnsureDirectory(const std::string& path) {
    if (path.empty()) {
        return false;
    }
    // Walk up to the first ancestor that exists (or has no parent), then create downwards.
    // Iterative rather than recursive so that a path of many separators cannot exhaust the stack.
    std::vector<std::string> missing;
    std::string current = path;
    for (;;) {
        const port::PathKind kind = port::GetPathKind(current);
        if (kind == port::PathKind::kOther) {
            return false;
        }
        if (kind == port::PathKind::kDirectory) {
            break;
        }
        missing.push_back(current);
        const size_t separator = current.find_last_of("/\\");
        if (separator == std::string::npos || separator == 0) {
            break;
        }
        current.resize(separator);
    }
    for (auto level = missing.rbegin(); level != missing.rend(); ++level) {
        // A trailing separator names the same directory as its parent, made just before.
        const size_t separator = level->find_last_of("/\\");
        if (separator != std::string::npos && separator != 0 && separator + 1 == level->size()) {
            continue;
        }
        if (port::MakeDirectory(*level) == port::MakeDirectoryResult::kFailed) {
            return false;
        }
    }
    return true;
}

void RequestKey(const std::string& text, std::string& key) {
    key.clear();
    if (text.empty()) {
        return;
    }
    Md5Context context;
    context.Start(text);
    key = context.HexDigest();
}

void BuildSignedQuery(const std::string& extra, const std::string& act, std::string& query,
                      const std::string& guid, int64_t time, bool withAct) {
    query.clear();
    if (withAct) {
        query += wire::kFieldAct;
        query += act;
        query += wire::kFieldRecordId;
        query += guid;
    }
    const std::string timeText = TimeText(time);
    std::string key;
    RequestKey(act + timeText + deployment::kRequestSalt, key);
    query += wire::kFieldKey;
    query += key;
    query += wire::kFieldTime;
    query += timeText;
    if (!extra.empty()) {
        if (extra[0] != '&') {
            query += '&';
        }
        query += extra;
    }
}

bool BuildGifUrl(const std::string& extra, const std::string& act, std::string& path,
                 std::string& query, std::string& guid, int64_t& time) {
    guid = FormatGuidText();
    time = port::Time64();
    BuildSignedQuery(extra, act, query, guid, time, false);
    path = wire::kGifPathPrefix;
    path += act;
    path += wire::kGifPathSuffix;
    return true;
}

void EscapeUrl(const std::string& input, std::string& output) {
    static const text::EscapeStyle style{text::ByteSet(codec::kUrlKeepSet)};
    output.clear();
    output.reserve(input.size());
    text::AppendEscaped(input, style, output);
}

}  // namespace qzdata_report_kelvo
