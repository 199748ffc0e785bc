#include "port/port.h"

#include "post/text_conversion.h"

#include <cstring>
#include <cwchar>
#include <vector>

#include "port/code_page.h"

namespace qzdata_report_kelvo_internal {

namespace {

// The sizing protocol of the platform conversions: ask for the size of the zero-terminated
// source (terminator included), convert into a buffer of that size, and succeed only when the
// whole of it was written.
template <class In, class Out, class Convert>
bool ConvertTerminated(const In* source, std::basic_string<Out>& target, unsigned codePage,
                       Convert convert) {
    target.clear();
    const int needed = convert(codePage, source, -1, nullptr, 0);
    if (needed <= 0) {
        return false;
    }
    std::vector<Out> buffer(static_cast<size_t>(needed));
    const int converted = convert(codePage, source, -1, buffer.data(), needed);
    target.assign(buffer.data(), static_cast<size_t>(needed - 1));
    return converted == needed;
}

}  // namespace

bool QZA2W(const std::string& source, std::wstring& target, unsigned int codePage) {
    try {
        return ConvertTerminated(source.c_str(), target, codePage,
                                 qzdata_report_kelvo::port::MultiByteToWideChar);
    } catch (...) {
        return false;
    }
}

bool QZW2A(const std::wstring& source, std::string& target, unsigned int codePage) {
    try {
        return ConvertTerminated(source.c_str(), target, codePage,
                                 qzdata_report_kelvo::port::WideCharToMultiByte);
    } catch (...) {
        return false;
    }
}

void StrReplace(std::string& target, const std::string& source, const std::string& from,
                const std::string& to) {
    try {
        target.clear();
        const char* text = source.c_str();
        const char* pattern = from.c_str();
        const size_t patternLength = std::strlen(pattern);
        // An empty pattern would match at the same place forever; the host gets the copy.
        if (patternLength == 0) {
            target = text;
            return;
        }
        const char* position = text;
        while (const char* match = std::strstr(position, pattern)) {
            target.append(position, static_cast<size_t>(match - position));
            target += to;
            position = match + patternLength;
        }
        target += position;
    } catch (...) {
        target.clear();
    }
}

}  // namespace qzdata_report_kelvo_internal

namespace qzdata_report_kelvo {

std::string WideToUtf8(const std::wstring& source) {
    std::string target;
    if (!qzdata_report_kelvo_internal::QZW2A(source, target, port::kCodePageUtf8)) {
        target.clear();
    }
    return target;
}

std::wstring Utf8ToWide(const std::string& source) {
    std::wstring target;
    if (!qzdata_report_kelvo_internal::QZA2W(source, target, port::kCodePageUtf8)) {
        target.clear();
    }
    return target;
}

}  // namespace qzdata_report_kelvo
