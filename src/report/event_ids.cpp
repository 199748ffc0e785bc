#include "report/event_ids.h"

#include <map>

#include "codec/text.h"
#include "port/code_page.h"
#include "post/text_conversion.h"
#include "report/constants.h"

namespace qzdata_report_kelvo {

namespace {

// Made while the module loads, never emptied.
std::map<std::string, std::string, text::CaseInsensitiveLess> eidDescriptions;

// The kept bytes, and with them the separator unless it is escaped too.
text::EscapeStyle EidStyle(bool escapeSlash) {
    text::EscapeStyle style{text::ByteSet(report::kEidKeptBytes), report::kEidEscapeMark,
                            text::HexCase::kLower};
    style.doubleMark = true;
    if (!escapeSlash) {
        style.kept.AddRange(report::kEidSeparator, report::kEidSeparator);
    }
    return style;
}

bool SetDescription(const std::string& eid, const std::wstring& desc) {
    std::string utf8;
    if (!WideToNarrow(desc, utf8, port::kCodePageUtf8)) {
        return false;
    }
    eidDescriptions[eid] = utf8;
    return true;
}

}  // namespace

std::string TranslateEid(const std::string& path) {
    std::string result;
    size_t start = 0;
    while (true) {
        const size_t end = path.find(report::kEidSeparator, start);
        const std::string segment =
            path.substr(start, end == std::string::npos ? std::string::npos : end - start);
        if (!segment.empty()) {
            auto entry = eidDescriptions.find(segment);
            result += entry == eidDescriptions.end() ? segment : entry->second;
        }
        if (end == std::string::npos) {
            break;
        }
        result += report::kEidSeparator;
        start = end + 1;
    }
    return result;
}

std::string DescribeEid(const std::string& path, const char* desc) {
    std::string result =
        (desc != nullptr && desc[0] != '\0') ? std::string(desc) : TranslateEid(path);
    if (result == path) {
        result.clear();
    }
    return result;
}

bool AddEidDescriptions(const std::vector<EidDescPair>& list) {
    bool allConverted = true;
    for (const EidDescPair& pair : list) {
        allConverted = SetDescription(pair.eid, pair.desc) && allConverted;
    }
    return allConverted;
}

bool AddEidDescriptions(const EidDescPtrPair* list) {
    bool allConverted = true;
    for (; list != nullptr && list->eid != nullptr; ++list) {
        const std::wstring desc = list->desc == nullptr ? std::wstring() : list->desc;
        allConverted = SetDescription(list->eid, desc) && allConverted;
    }
    return allConverted;
}

bool EscapeEidText(const std::string& in, std::string* out, bool escapeSlash) {
    static const text::EscapeStyle withSlash = EidStyle(false);
    static const text::EscapeStyle slashEscaped = EidStyle(true);
    if (out == nullptr) {
        return false;
    }
    std::string result;
    result.reserve(report::kEidEscapeReserve);
    text::AppendEscaped(in, escapeSlash ? slashEscaped : withSlash, result);
    *out = std::move(result);
    return true;
}

bool UnescapeEidText(const std::string& in, std::string* out) {
    if (out == nullptr) {
        return false;
    }
    std::string result;
    result.reserve(in.size());
    for (size_t i = 0; i < in.size();) {
        if (in[i] != report::kEidEscapeMark) {
            result += in[i++];
            continue;
        }
        if (i + 1 < in.size() && in[i + 1] == report::kEidEscapeMark) {
            result += report::kEidEscapeMark;
            i += 2;
            continue;
        }
        const int high = i + 2 < in.size() ? text::HexDigitValue(in[i + 1]) : -1;
        const int low = i + 2 < in.size() ? text::HexDigitValue(in[i + 2]) : -1;
        if (high >= 0 && low >= 0) {
            result += static_cast<char>(high * 16 + low);
            i += 3;
            continue;
        }
        return false;
    }
    *out = std::move(result);
    return true;
}

}  // namespace qzdata_report_kelvo
