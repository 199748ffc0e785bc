#include "port/port.h"

#include "report/event_ids.h"

#include <cstring>
#include <map>

#include "port/code_page.h"
#include "post/record_format.h"
#include "report/constants.h"

namespace qzdata_report_kelvo {

namespace {

// Made while the module loads, never emptied.
std::map<std::string, std::string, CaseInsensitiveLess> eidDescriptions;

int HexValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

bool SetDescription(const std::string& eid, const std::wstring& desc) {
    std::string utf8;
    if (!qzdata_report_kelvo_internal::QZW2A(desc, utf8, port::kCodePageUtf8)) {
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
    static constexpr char kHexDigits[] = "0123456789abcdef";
    if (out == nullptr) {
        return false;
    }
    std::string result;
    result.reserve(report::kEidEscapeReserve);
    for (char c : in) {
        if (c == report::kEidEscapeMark) {
            result += "..";
        } else if ((c != '\0' && std::strchr(report::kEidKeptBytes, c) != nullptr) ||
                   (c == report::kEidSeparator && !escapeSlash)) {
            result += c;
        } else {
            const unsigned char byte = static_cast<unsigned char>(c);
            result += report::kEidEscapeMark;
            result += kHexDigits[byte >> 4];
            result += kHexDigits[byte & 0x0F];
        }
    }
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
        if (i + 2 < in.size() && HexValue(in[i + 1]) >= 0 && HexValue(in[i + 2]) >= 0) {
            result += static_cast<char>(HexValue(in[i + 1]) * 16 + HexValue(in[i + 2]));
            i += 3;
            continue;
        }
        return false;
    }
    *out = std::move(result);
    return true;
}

}  // namespace qzdata_report_kelvo
