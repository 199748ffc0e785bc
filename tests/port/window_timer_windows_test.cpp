// Window timers on Windows: callbacks run on the thread of the host's message loop, whichever
// thread sets or kills them.
#include <windows.h>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include "port/window_timer.h"
#include "runtime/event.h"
#include "support/message_thread.h"
#include "support/wait.h"

namespace qzdata_report_kelvo {
namespace port {
namespace {

// Counts its calls, notes their order, overlaps and thread; the first call runs `first`.
struct Counter {
    static void Fire(void* context) {
        auto* counter = static_cast<Counter*>(context);
        overlaps += running++;
        sequence.push_back(counter);
        counter->thread = GetCurrentThreadId();
        if (++counter->calls == 1 && counter->first)
            counter->first();
        --running;
    }
    static inline std::atomic<int> running{0}, overlaps{0};
    static inline std::vector<const Counter*> sequence;  // read while no timer runs
    std::atomic<int> calls{0};
    std::atomic<DWORD> thread{0};
    std::function<void()> first;
};

// The host's window and a null window both lead to the host's message thread, also for timers set
// from another thread; a window of a thread that has no timers yet is refused on other
// threads. A callback that handles messages (as a modal loop does) starts no other callback
// inside; one that fell due meanwhile runs as soon as it returns, ahead of its next call.
TEST(WindowTimersWindowsTest, CallbacksRunOnTheHostsMessageThread) {
    qz_test::MessageThread host;
    HWND window = nullptr;
    DWORD hostThread = 0;
    const auto makeWindow = [] {
        return CreateWindowExW(0, L"STATIC", L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr,
                               nullptr);
    };
    host.Run([&] { window = makeWindow(), hostThread = GetCurrentThreadId(); });
    const HWND foreign = makeWindow();  // the test's thread has no timers
    ASSERT_TRUE(window != nullptr && foreign != nullptr);
    WindowTimers modal, timers;
    Counter looping, late, own, posted, null, nullFromTest;
    looping.first = [&] {
        modal.SetTimer(nullptr, 10, &Counter::Fire, &late);
        qz_test::PumpMessagesFor(200);
    };
    Counter::sequence.clear();
    host.Run([&] { modal.SetTimer(nullptr, 10, &Counter::Fire, &looping); });
    ASSERT_TRUE(qz_test::WaitUntil([&] { return looping.calls > 1 && late.calls > 0; }));
    modal.Shutdown();
    EXPECT_EQ(Counter::sequence.at(1), &late);
    host.Run([&] { EXPECT_NE(timers.SetTimer(window, 10, &Counter::Fire, &own), 0u); });
    timers.SetTimer(window, 10, &Counter::Fire, &posted);
    host.Run([&] { EXPECT_EQ(timers.SetTimer(foreign, 10, &Counter::Fire, &own), 0u); });
    host.Run([&] { timers.SetTimer(nullptr, 10, &Counter::Fire, &null); });
    // Set from the test's thread, fires on the host's: the thread of the first null-window timer.
    timers.SetTimer(nullptr, 10, &Counter::Fire, &nullFromTest);
    ASSERT_TRUE(qz_test::WaitUntil([&] {
        return own.calls > 1 && posted.calls > 1 && null.calls > 1 && nullFromTest.calls > 1;
    }));
    for (const Counter* counter : {&own, &posted, &null, &nullFromTest})
        EXPECT_EQ(counter->thread.load(), hostThread);
    timers.Shutdown();
    EXPECT_EQ(Counter::overlaps.load(), 0);
    DestroyWindow(foreign);
}

// A timer message already queued when its timer was killed runs nothing. Shutdown from another
// thread waits for a running callback, and the timers' window goes with the message thread's next
// look at its queue.
TEST(WindowTimersWindowsTest, NothingFiresAfterAKillOrShutdown) {
    const wchar_t* const timersClass = L"qzdata_report_kelvo.WindowTimers";
    qz_test::MessageThread host;
    WindowTimers timers;
    Counter killed, held;
    uintptr_t killedId = 0;
    HWND own = nullptr;
    host.Run([&] {
        killedId = timers.SetTimer(nullptr, 10, &Counter::Fire, &killed);
        own = FindWindowExW(HWND_MESSAGE, nullptr, timersClass, nullptr);
    });
    ASSERT_TRUE(own != nullptr);
    ASSERT_TRUE(qz_test::WaitUntil([&] { return killed.calls > 0; }));
    EXPECT_TRUE(timers.KillTimer(nullptr, killedId));
    const int calls = killed.calls;
    PostMessageW(own, WM_TIMER, killedId, 0);
    CEvent entered, release;
    held.first = [&] { entered.Set(), release.Wait(kInfinite); };
    host.Run([&] { timers.SetTimer(nullptr, 10, &Counter::Fire, &held); });
    ASSERT_TRUE(entered.Wait(5000));  // posted messages go before timers: handled by now
    std::atomic<bool> shut{false};
    std::thread stopper([&] { timers.Shutdown(), shut = true; });
    EXPECT_FALSE(qz_test::WaitUntil([&] { return shut.load(); }, 50));
    release.Set();
    stopper.join();
    EXPECT_TRUE(qz_test::WaitUntil([&] {
        host.Run([&] { own = FindWindowExW(HWND_MESSAGE, nullptr, timersClass, nullptr); });
        return own == nullptr;
    }));
    EXPECT_EQ(killed.calls.load(), calls);
    EXPECT_EQ(held.calls.load(), 1);
    host.Run([&] { EXPECT_EQ(timers.SetTimer(nullptr, 10, &Counter::Fire, &held), 0u); });
}

}  // namespace
}  // namespace port
}  // namespace qzdata_report_kelvo
