#include "report/event_text.h"

#include <cstdio>
#include <cstring>
#include <vector>

#include "port/code_page.h"
#include "port/debug_output.h"
#include "port/env.h"
#include "report/constants.h"

namespace qzdata_report_kelvo {

std::string FormatEventTime() {
    // The local calendar is worked out once a second per thread: every event asks for it, and
    // the conversion costs more than the rest of building a record.
    thread_local int64_t cachedSecond = -1;
    thread_local std::string cachedText;
    const int64_t second = port::Time64();
    if (second != cachedSecond) {
        port::LocalTime now;
        port::GetLocalTime(&now);
        char text[32];
        std::snprintf(text, sizeof(text), report::kEventTimeFormat, now.year, now.month, now.day,
                      now.hour, now.minute, now.second);
        cachedText = text;
        cachedSecond = second;
    }
    return cachedText;
}

std::string FormatTraceLine(const char* name, const char* const* firstKeys, size_t firstKeyCount,
                            const ReportRecord& record) {
    std::string text;
    auto appendItem = [&text](const std::string& key, const std::string& value) {
        if (!text.empty()) {
            text += ", ";
        }
        text += key;
        text += ": ";
        text += value;
    };
    for (size_t i = 0; i < firstKeyCount; ++i) {
        auto entry = record.find(firstKeys[i]);
        if (entry != record.end()) {
            appendItem(entry->first, entry->second);
        }
    }
    for (const auto& entry : record) {
        bool listed = false;
        for (size_t i = 0; i < firstKeyCount && !listed; ++i) {
            listed = entry.first == firstKeys[i];
        }
        if (!listed) {
            appendItem(entry.first, entry.second);
        }
    }
    std::string line(name);
    line += '[';
    line += text;
    line += "]\n";
    return line;
}

void WriteTrace(const char* name, const char* const* firstKeys, size_t firstKeyCount,
                const ReportRecord& record) {
    const std::string line = FormatTraceLine(name, firstKeys, firstKeyCount, record);
    const int length = static_cast<int>(line.size());
    const int needed =
        port::MultiByteToWideChar(port::kCodePageUtf8, line.data(), length, nullptr, 0);
    if (needed > 0) {
        std::vector<wchar_t> wide(static_cast<size_t>(needed));
        const int converted = port::MultiByteToWideChar(port::kCodePageUtf8, line.data(), length,
                                                        wide.data(), needed);
        if (converted > 0) {
            port::OutputDebugStringW(std::wstring(wide.data(), static_cast<size_t>(converted)));
            return;
        }
    }
    port::OutputDebugStringA(line);
}

}  // namespace qzdata_report_kelvo
