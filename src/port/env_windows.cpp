#include "port/env.h"

#include <windows.h>

#include <ntsecapi.h>
#include <rpc.h>

#include <climits>
#include <cstring>
#include <ctime>

namespace qzdata_report_kelvo {
namespace port {

namespace {

class WindowsEnv final : public Env {
  public:
    uint32_t GetTickCount() override { return static_cast<uint32_t>(::GetTickCount()); }

    void Sleep(uint32_t milliseconds) override {
        // INFINITE is 0xFFFFFFFF: the longest finite wait is one millisecond shorter.
        ::Sleep(milliseconds == INFINITE ? INFINITE - 1 : milliseconds);
    }

    bool QueryPerformanceCounter(int64_t* counter) override {
        LARGE_INTEGER value;
        if (!::QueryPerformanceCounter(&value)) {
            return false;
        }
        *counter = static_cast<int64_t>(value.QuadPart);
        return true;
    }

    bool QueryPerformanceFrequency(int64_t* frequency) override {
        LARGE_INTEGER value;
        if (!::QueryPerformanceFrequency(&value) || value.QuadPart <= 0) {
            return false;
        }
        *frequency = static_cast<int64_t>(value.QuadPart);
        return true;
    }

    void GetLocalTime(LocalTime* out) override {
        SYSTEMTIME now;
        ::GetLocalTime(&now);
        out->year = now.wYear;
        out->month = now.wMonth;
        out->day = now.wDay;
        out->hour = now.wHour;
        out->minute = now.wMinute;
        out->second = now.wSecond;
        out->milliseconds = now.wMilliseconds;
    }

    int64_t Time64() override { return static_cast<int64_t>(_time64(nullptr)); }

    bool RandomBytes(void* buffer, size_t size) override {
        auto* out = static_cast<unsigned char*>(buffer);
        size_t done = 0;
        while (done < size) {
            const size_t left = size - done;
            const ULONG chunk = left > ULONG_MAX ? ULONG_MAX : static_cast<ULONG>(left);
            if (!RtlGenRandom(out + done, chunk)) {
                std::memset(buffer, 0, size);
                return false;
            }
            done += chunk;
        }
        return true;
    }

    bool NewUuid(uint8_t (&bytes)[16]) override {
        UUID id;
        if (::UuidCreate(&id) != RPC_S_OK) {
            std::memset(bytes, 0, sizeof(bytes));
            return false;
        }
        // The text form reads the three leading fields as numbers, most significant byte first.
        for (int i = 0; i < 4; ++i) {
            bytes[i] = static_cast<uint8_t>(id.Data1 >> (24 - 8 * i));
        }
        bytes[4] = static_cast<uint8_t>(id.Data2 >> 8);
        bytes[5] = static_cast<uint8_t>(id.Data2);
        bytes[6] = static_cast<uint8_t>(id.Data3 >> 8);
        bytes[7] = static_cast<uint8_t>(id.Data3);
        std::memcpy(bytes + 8, id.Data4, sizeof(id.Data4));
        return true;
    }
};

}  // namespace

Env* Env::Default() {
    // Never destroyed: detached threads may still read the clock while the process exits.
    static Env* const env = new WindowsEnv();
    return env;
}

}  // namespace port
}  // namespace qzdata_report_kelvo
