#include "port/window_timer.h"

#include <windows.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <new>
#include <vector>

namespace qzdata_report_kelvo {
namespace port {

namespace {

// Messages of the timers' own window class, posted (never sent) so that no thread ever blocks on
// a message thread that may itself be waiting for that thread.
constexpr UINT kSetMessage = WM_APP + 1;    // wParam: the id of a timer to set on this window
constexpr UINT kKillMessage = WM_APP + 2;   // wParam: the id of a timer to kill on this window
constexpr UINT kCloseMessage = WM_APP + 3;  // the timers are shut down: destroy this window
constexpr UINT kFireMessage = WM_APP + 4;   // wParam: the id of a timer that fell due meanwhile

// How long a kill from another thread waits for a callback that runs on a message thread. The
// callbacks are short; a host whose callback waits for the killing thread would otherwise hang
// both threads for good.
constexpr std::chrono::milliseconds kCallbackWaitBound(5000);

const wchar_t kWindowClassName[] = L"qzdata_report_kelvo.WindowTimers";

const char kModuleAnchor = 0;  // an address inside this module, to find its instance handle

HINSTANCE ThisModule() {
    HMODULE module = nullptr;
    GetModuleHandleExW(
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
        reinterpret_cast<LPCWSTR>(&kModuleAnchor), &module);
    return module;
}

}  // namespace

struct WindowTimers::Impl {
    struct Timer {
        TimerProc proc;
        void* context;
        UINT elapseMs;
        HWND window;  // the message window of the thread the callbacks run on
        DWORD thread;
        bool set;  // the system timer exists; false while a kSetMessage is on its way
    };
    // One message-only window per message thread: the timers live on it rather than on the
    // host's window, so that their ids never meet the host's own timers, and so that the window
    // proc can tell a killed id from a live one.
    struct Home {
        DWORD thread;
        HWND window;
    };

    std::mutex mutex;
    std::condition_variable finished;  // a callback returned
    std::map<uintptr_t, Timer> timers;
    std::vector<Home> homes;
    DWORD nullWindowThread = 0;  // stands for a null window: the thread of the first such call
    uintptr_t nextId = 1;
    uintptr_t runningId = 0;
    DWORD runningThread = 0;
    std::vector<uintptr_t> deferred;  // fell due while another callback ran
    bool stopping = false;
    int failAfter = -1;

    static LRESULT CALLBACK WindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
    static ATOM WindowClass();
    HWND HomeWindow(DWORD thread, const std::shared_ptr<Impl>& self);
    void Fire(HWND window, uintptr_t id);
    void SetPosted(HWND window, uintptr_t id);
    void WaitForCallback(std::unique_lock<std::mutex>& guard, uintptr_t id);
};

ATOM WindowTimers::Impl::WindowClass() {
    static const ATOM atom = [] {
        WNDCLASSEXW windowClass = {};
        windowClass.cbSize = sizeof(windowClass);
        windowClass.lpfnWndProc = &Impl::WindowProc;
        windowClass.hInstance = ThisModule();
        windowClass.lpszClassName = kWindowClassName;
        return RegisterClassExW(&windowClass);
    }();
    return atom;
}

LRESULT CALLBACK WindowTimers::Impl::WindowProc(HWND window, UINT message, WPARAM wParam,
                                                LPARAM lParam) {
    auto* holder =
        reinterpret_cast<std::shared_ptr<Impl>*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    if (message == WM_NCDESTROY) {
        SetWindowLongPtrW(window, GWLP_USERDATA, 0);
        delete holder;
        return DefWindowProcW(window, message, wParam, lParam);
    }
    if (holder == nullptr) {
        return DefWindowProcW(window, message, wParam, lParam);
    }
    switch (message) {
        case WM_TIMER:
        case kFireMessage: {
            // A copy: a callback may shut the timers down, which destroys this window and its
            // holder, or may even destroy the owning object.
            const std::shared_ptr<Impl> self = *holder;
            self->Fire(window, wParam);
            return 0;
        }
        case kSetMessage: {
            const std::shared_ptr<Impl> self = *holder;
            self->SetPosted(window, wParam);
            return 0;
        }
        case kKillMessage:
            ::KillTimer(window, wParam);
            return 0;
        case kCloseMessage:
            // Destroying the window ends every system timer on it.
            DestroyWindow(window);
            return 0;
        default:
            return DefWindowProcW(window, message, wParam, lParam);
    }
}

// Called with the lock held. The window of `thread`, made on the spot when `thread` is the
// calling one (a window belongs to the thread that creates it); null when there is none.
HWND WindowTimers::Impl::HomeWindow(DWORD thread, const std::shared_ptr<Impl>& self) {
    const DWORD current = GetCurrentThreadId();
    for (auto it = homes.begin(); it != homes.end(); ++it) {
        if (it->thread != thread) {
            continue;
        }
        // A thread id is reused once its thread ended, and the thread's windows ended with it.
        if (thread != current || IsWindow(it->window)) {
            return it->window;
        }
        homes.erase(it);
        break;
    }
    if (thread != current || WindowClass() == 0) {
        return nullptr;
    }
    // Creation sends only messages that the window proc passes on without the lock.
    const HWND window = CreateWindowExW(0, kWindowClassName, L"", 0, 0, 0, 0, 0, HWND_MESSAGE,
                                        nullptr, ThisModule(), nullptr);
    if (window == nullptr) {
        return nullptr;
    }
    auto* holder = new (std::nothrow) std::shared_ptr<Impl>(self);
    if (holder == nullptr) {
        DestroyWindow(window);
        return nullptr;
    }
    SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(holder));
    try {
        homes.push_back(Home{thread, window});
    } catch (...) {
        DestroyWindow(window);
        return nullptr;
    }
    return window;
}

void WindowTimers::Impl::Fire(HWND window, uintptr_t id) {
    std::unique_lock<std::mutex> guard(mutex);
    const auto it = timers.find(id);
    if (it == timers.end() || it->second.window != window) {
        // Killed, while its system timer lived on or its message was already in the queue.
        guard.unlock();
        ::KillTimer(window, id);
        return;
    }
    if (runningId != 0) {
        // A callback runs (with a message loop inside it, or on another message thread): one at
        // a time. This timer fires once when that callback returns, ahead of the next firing of
        // the one that ran, so that a long callback does not starve the others.
        if (runningId != id && std::find(deferred.begin(), deferred.end(), id) == deferred.end()) {
            try {
                deferred.push_back(id);
            } catch (...) {
            }
        }
        return;
    }
    const TimerProc proc = it->second.proc;
    void* const context = it->second.context;
    runningId = id;
    runningThread = GetCurrentThreadId();
    guard.unlock();
    try {
        proc(context);
    } catch (...) {
    }
    guard.lock();
    runningId = 0;
    runningThread = 0;
    finished.notify_all();
    // Posted messages go before timer messages.
    for (const uintptr_t due : deferred) {
        const auto waiting = timers.find(due);
        if (waiting != timers.end()) {
            PostMessageW(waiting->second.window, kFireMessage, due, 0);
        }
    }
    deferred.clear();
}

void WindowTimers::Impl::SetPosted(HWND window, uintptr_t id) {
    std::lock_guard<std::mutex> guard(mutex);
    const auto it = timers.find(id);
    if (it == timers.end() || it->second.window != window || it->second.set) {
        return;  // killed before this message arrived
    }
    if (::SetTimer(window, id, it->second.elapseMs, nullptr) != 0) {
        it->second.set = true;
    } else {
        timers.erase(it);  // its id was given out already; the timer just never fires
    }
}

// Called with the lock held. Waits until no callback of `id` (0: of any timer) runs, unless it runs
// on the calling thread, which is then inside that callback; gives up after the bound.
void WindowTimers::Impl::WaitForCallback(std::unique_lock<std::mutex>& guard, uintptr_t id) {
    const DWORD current = GetCurrentThreadId();
    finished.wait_for(guard, kCallbackWaitBound, [&] {
        return runningId == 0 || (id != 0 && runningId != id) || runningThread == current;
    });
}

WindowTimers::WindowTimers() : impl(std::make_shared<Impl>()) {}

WindowTimers::~WindowTimers() {
    Shutdown();
}

void WindowTimers::Shutdown() {
    std::vector<HWND> own;
    {
        std::unique_lock<std::mutex> guard(impl->mutex);
        impl->stopping = true;
        impl->timers.clear();
        const DWORD current = GetCurrentThreadId();
        for (const Impl::Home& home : impl->homes) {
            if (home.thread == current) {
                own.push_back(home.window);
            } else {
                // Only its own thread may destroy a window. Should the post fail, the window
                // proc still kills each timer whose id it no longer knows.
                PostMessageW(home.window, kCloseMessage, 0, 0);
            }
        }
        impl->homes.clear();
        impl->WaitForCallback(guard, 0);
    }
    // Outside the lock: destruction runs the window proc, which drops its share of the state.
    for (HWND window : own) {
        DestroyWindow(window);
    }
}

uintptr_t WindowTimers::SetTimer(void* window, uint32_t elapseMs, TimerProc proc, void* context) {
    if (proc == nullptr) {
        return 0;
    }
    DWORD thread = 0;
    if (window != nullptr) {
        DWORD process = 0;
        thread = GetWindowThreadProcessId(static_cast<HWND>(window), &process);
        if (thread == 0 || process != GetCurrentProcessId()) {
            return 0;
        }
    }
    std::lock_guard<std::mutex> guard(impl->mutex);
    if (impl->stopping || impl->failAfter == 0) {
        return 0;
    }
    if (impl->failAfter > 0) {
        --impl->failAfter;
    }
    const DWORD current = GetCurrentThreadId();
    if (window == nullptr) {
        if (impl->nullWindowThread == 0) {
            impl->nullWindowThread = current;
        }
        thread = impl->nullWindowThread;
    }
    const HWND home = impl->HomeWindow(thread, impl);
    if (home == nullptr) {
        return 0;
    }
    const uintptr_t id = impl->nextId++;
    Impl::Timer timer{proc, context, elapseMs == 0 ? 1 : elapseMs, home, thread, false};
    if (thread == current) {
        if (::SetTimer(home, id, timer.elapseMs, nullptr) == 0) {
            return 0;
        }
        timer.set = true;
    } else if (!PostMessageW(home, kSetMessage, id, 0)) {
        return 0;
    }
    // The message thread looks the timer up under the lock held here, so it finds it.
    try {
        impl->timers.emplace(id, timer);
    } catch (...) {
        if (timer.set) {
            ::KillTimer(home, id);
        }
        return 0;
    }
    return id;
}

bool WindowTimers::KillTimer(void* window, uintptr_t id) {
    // Ids are unique among this object's timers, whatever window they were set for.
    (void)window;
    std::unique_lock<std::mutex> guard(impl->mutex);
    const auto it = impl->timers.find(id);
    if (it == impl->timers.end()) {
        return false;
    }
    const Impl::Timer timer = it->second;
    impl->timers.erase(it);
    if (timer.thread == GetCurrentThreadId()) {
        ::KillTimer(timer.window, id);
    } else if (timer.set) {
        PostMessageW(timer.window, kKillMessage, id, 0);
    }
    impl->WaitForCallback(guard, id);
    return true;
}

void WindowTimers::FailSetTimerAfterForTesting(int successes) {
    std::lock_guard<std::mutex> guard(impl->mutex);
    impl->failAfter = successes;
}

}  // namespace port
}  // namespace qzdata_report_kelvo
