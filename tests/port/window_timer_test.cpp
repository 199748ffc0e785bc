#include "port/window_timer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>
#include <vector>

#include "runtime/event.h"
#include "support/message_thread.h"
#include "support/wait.h"

namespace qzdata_report_kelvo {
namespace {

// Counts the calls of timers 0, 1 and 2; timer 2 then throws. The order and the threads are
// written by the callbacks only, and read once the timers are shut down.
struct Log {
    template <int kTimer>
    static void Fire(void* context) {
        auto* log = static_cast<Log*>(context);
        log->order.push_back(kTimer);
        log->threads.insert(std::this_thread::get_id());
        ++log->calls[kTimer];
        if (kTimer == 2)
            throw 42;
    }
    std::atomic<int> calls[3] = {};
    std::vector<int> order;
    std::set<std::thread::id> threads;
};

// On one thread, not the test's (the timers' own, or the message thread that set them), so one
// at a time; earliest due first; a callback that throws stops neither its timer nor the others.
// The periods are 10 ms or more apart: window timers round shorter ones up to 10 ms.
TEST(WindowTimersTest, CallbacksRunOneAtATimeOnOneThreadInDueOrder) {
    Log log;
    qz_test::MessageThread host;
    port::WindowTimers timers;
    EXPECT_EQ(timers.SetTimer(nullptr, 10, nullptr, nullptr), 0u);  // no callback: refused
    host.Run([&] {
        timers.SetTimer(nullptr, 100, &Log::Fire<0>, &log);
        timers.SetTimer(nullptr, 45, &Log::Fire<1>, &log);
        timers.SetTimer(nullptr, 30, &Log::Fire<2>, &log);
    });
    ASSERT_TRUE(qz_test::WaitUntil([&] { return log.calls[0] >= 2 && log.calls[2] >= 2; }));
    timers.Shutdown();  // every timer killed, and no new ones from then on
    EXPECT_EQ(std::vector<int>(log.order.begin(), log.order.begin() + 2), std::vector<int>({2, 1}));
    EXPECT_TRUE(log.threads.size() == 1 && !log.threads.count(std::this_thread::get_id()));
    EXPECT_EQ(timers.SetTimer(nullptr, 10, &Log::Fire<0>, &log), 0u);
}

// A timer's callback that counts its calls, then kills its own timer (`self`) or else blocks
// until released. Calls before SetTimer returned the id do nothing.
struct Probe {
    static void Run(void* context) {
        auto* probe = static_cast<Probe*>(context);
        if (probe->id != 0 && ++probe->calls == 1 && probe->self)
            probe->killed = probe->timers->KillTimer(nullptr, probe->id);
        else if (probe->id != 0 && !probe->self)
            probe->entered.Set(), probe->release.Wait(kInfinite);
    }
    port::WindowTimers* timers;
    bool self;
    std::atomic<uintptr_t> id{0};
    std::atomic<int> calls{0};
    std::atomic<bool> killed{false};
    CEvent entered{}, release{};
};

// A kill from another thread returns only once the running callback has, and no call starts
// after it; a callback may kill its own timer without waiting for itself.
TEST(WindowTimersTest, KillWaitsForARunningCallbackButNotForItself) {
    qz_test::MessageThread host;
    port::WindowTimers timers;
    timers.FailSetTimerAfterForTesting(2);  // the two timers below, then no more
    Probe blocked{&timers, false}, self{&timers, true};
    host.Run([&] { blocked.id = timers.SetTimer(nullptr, 1, &Probe::Run, &blocked); });
    ASSERT_TRUE(blocked.entered.Wait(5000));
    std::thread killer([&] { blocked.killed = timers.KillTimer(nullptr, blocked.id); });
    EXPECT_FALSE(qz_test::WaitUntil([&] { return blocked.killed.load(); }, 20));
    blocked.release.Set();
    killer.join();
    // No call after the kill, and a second kill finds no timer.
    EXPECT_TRUE(blocked.killed && !blocked.entered.Wait(20) &&
                !timers.KillTimer(nullptr, blocked.id));

    host.Run([&] { self.id = timers.SetTimer(nullptr, 1, &Probe::Run, &self); });
    EXPECT_TRUE(qz_test::WaitUntil([&] { return self.killed.load(); }));
    EXPECT_FALSE(qz_test::WaitUntil([&] { return self.calls > 1; }, 20));
    EXPECT_EQ(timers.SetTimer(nullptr, 10, &Probe::Run, &self), 0u);
}

}  // namespace
}  // namespace qzdata_report_kelvo
