#include "host_loop.h"

#include <windows.h>

void RunHostLoopFor(std::chrono::milliseconds duration) {
    const ULONGLONG deadline = GetTickCount64() + static_cast<ULONGLONG>(duration.count());
    for (ULONGLONG now = GetTickCount64(); now < deadline; now = GetTickCount64()) {
        MsgWaitForMultipleObjects(0, nullptr, FALSE, static_cast<DWORD>(deadline - now),
                                  QS_ALLINPUT);
        MSG message;
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
            TranslateMessage(&message);
            DispatchMessageW(&message);
        }
    }
}
