#include "port/debug_output.h"

#include <cstdio>
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

void Emit(const std::string& text) {
    std::shared_ptr<DebugSink> sink;
    {
        std::lock_guard<std::mutex> lock(SinkMutex());
        sink = Sink();
    }
    if (sink) {
        (*sink)(text);
        return;
    }
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
}

}  // namespace

void OutputDebugStringA(const std::string& text) {
    Emit(text);
}

void OutputDebugStringW(const std::wstring& text) {
    std::string narrow;
    if (!text.empty()) {
        const int length = static_cast<int>(text.size());
        const int needed = WideCharToMultiByte(kCodePageUtf8, text.data(), length, nullptr, 0);
        if (needed > 0) {
            narrow.resize(static_cast<size_t>(needed));
            WideCharToMultiByte(kCodePageUtf8, text.data(), length, &narrow[0], needed);
        }
    }
    Emit(narrow);
}

void SetDebugSink(DebugSink sink) {
    std::lock_guard<std::mutex> lock(SinkMutex());
    Sink() = sink ? std::make_shared<DebugSink>(std::move(sink)) : nullptr;
}

}  // namespace port
}  // namespace qzdata_report_kelvo
