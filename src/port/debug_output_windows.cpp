#include "port/debug_output.h"

#include <windows.h>

#include <memory>
#include <mutex>

#include "port/code_page.h"

namespace qzdata_report_kelvo {
namespace port {

namespace {

std::mutex& SinkMutex() {
    static std::mutex mutex;
    return mutex;
}

std::shared_ptr<DebugSink>& Sink() {
    static std::shared_ptr<DebugSink> sink;
    return sink;
}

// The installed sink, copied under the lock so that it is called without it.
std::shared_ptr<DebugSink> CurrentSink() {
    std::lock_guard<std::mutex> lock(SinkMutex());
    return Sink();
}

std::string ToUtf8(const std::wstring& text) {
    std::string narrow;
    if (!text.empty()) {
        const int length = static_cast<int>(text.size());
        const int needed = WideCharToMultiByte(kCodePageUtf8, text.data(), length, nullptr, 0);
        if (needed > 0) {
            narrow.resize(static_cast<size_t>(needed));
            WideCharToMultiByte(kCodePageUtf8, text.data(), length, &narrow[0], needed);
        }
    }
    return narrow;
}

}  // namespace

void OutputDebugStringA(const std::string& text) {
    if (std::shared_ptr<DebugSink> sink = CurrentSink()) {
        (*sink)(text);
        return;
    }
    ::OutputDebugStringA(text.c_str());
}

void OutputDebugStringW(const std::wstring& text) {
    if (std::shared_ptr<DebugSink> sink = CurrentSink()) {
        (*sink)(ToUtf8(text));
        return;
    }
    ::OutputDebugStringW(text.c_str());
}

void SetDebugSink(DebugSink sink) {
    std::lock_guard<std::mutex> lock(SinkMutex());
    Sink() = sink ? std::make_shared<DebugSink>(std::move(sink)) : nullptr;
}

}  // namespace port
}  // namespace qzdata_report_kelvo
