#include "post/text_conversion.h"

#include <cstring>
#include <cwchar>
#include <vector>

#include "port/code_page.h"

namespace qzdata_report_kelvo {

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

bool NarrowToWide(const std::string& source, std::wstring& target, unsigned int codePage) {
    return ConvertTerminated(source.c_str(), target, codePage, port::MultiByteToWideChar);
}

bool WideToNarrow(const std::wstring& source, std::string& target, unsigned int codePage) {
    return ConvertTerminated(source.c_str(), target, codePage, port::WideCharToMultiByte);
}

void ReplaceText(std::string& target, const std::string& source, const std::string& from,
                 const std::string& to) {
    target.clear();
    const char* text = source.c_str();
    const char* pattern = from.c_str();
    const size_t patternLength = std::strlen(pattern);
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
}

std::string WideToUtf8(const std::wstring& source) {
    std::string target;
    if (!WideToNarrow(source, target, port::kCodePageUtf8)) {
        target.clear();
    }
    return target;
}

std::wstring Utf8ToWide(const std::string& source) {
    std::wstring target;
    if (!NarrowToWide(source, target, port::kCodePageUtf8)) {
        target.clear();
    }
    return target;
}

}  // namespace qzdata_report_kelvo
