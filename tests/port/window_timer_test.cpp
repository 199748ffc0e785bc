#include "port/window_timer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "runtime/event.h"
#include "support/wait.h"

namespace qzdata_report_kelvo {
namespace port {
namespace {

// Records which timer fired, on which thread, and whether two callbacks ever overlapped.
struct Log {
    std::mutex mutex;
    std::vector<std::string> fired;
    std::set<std::thread::id> threads;
    std::atomic<int> inside{0};
    std::atomic<bool> overlapped{false};

    void Add(const std::string& name) {
        if (inside.fetch_add(1) != 0) {
            overlapped = true;
        }
        {
            std::lock_guard<std::mutex> guard(mutex);
            fired.push_back(name);
            threads.insert(std::this_thread::get_id());
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        inside.fetch_sub(1);
    }
    size_t Count(const std::string& name) {
        std::lock_guard<std::mutex> guard(mutex);
        return std::count(fired.begin(), fired.end(), name);
    }
};

struct Named {
    Log* log;
    std::string name;
};

void Fire(void* context) {
    auto* named = static_cast<Named*>(context);
    named->log->Add(named->name);
}

TEST(WindowTimersTest, CallbacksRunOneAtATimeOnOneThreadInDueOrder) {
    Log log;
    Named fast{&log, "fast"};
    Named slow{&log, "slow"};
    WindowTimers timers;
    const uintptr_t fastId = timers.SetTimer(nullptr, 10, &Fire, &fast);
    const uintptr_t slowId = timers.SetTimer(nullptr, 35, &Fire, &slow);
    ASSERT_NE(0u, fastId);
    ASSERT_NE(0u, slowId);
    EXPECT_NE(fastId, slowId);
    ASSERT_TRUE(qz_test::WaitUntil([&] { return log.Count("slow") >= 2; }));
    EXPECT_TRUE(timers.KillTimer(nullptr, fastId));
    EXPECT_TRUE(timers.KillTimer(nullptr, slowId));

    // The fast timer fell due first and more often.
    EXPECT_GE(log.Count("fast"), 3u);
    EXPECT_FALSE(log.overlapped.load());
    std::lock_guard<std::mutex> guard(log.mutex);
    EXPECT_EQ("fast", log.fired.front());
    EXPECT_EQ(1u, log.threads.size());
    EXPECT_EQ(0u, log.threads.count(std::this_thread::get_id()));
}

struct Blocking {
    CEvent entered;
    CEvent release;
    std::atomic<int> calls{0};
};

void Block(void* context) {
    auto* blocking = static_cast<Blocking*>(context);
    ++blocking->calls;
    blocking->entered.Set();
    blocking->release.Wait(kInfinite);
}

TEST(WindowTimersTest, KillWaitsForARunningCallbackAndNoneStartsAfterIt) {
    Blocking blocking;
    WindowTimers timers;
    const uintptr_t id = timers.SetTimer(nullptr, 1, &Block, &blocking);
    ASSERT_TRUE(blocking.entered.Wait(5000));

    std::atomic<bool> killed{false};
    std::thread killer([&] {
        EXPECT_TRUE(timers.KillTimer(nullptr, id));
        killed = true;
    });
    // The kill cannot return while the callback still runs.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(killed.load());
    blocking.release.Set();
    killer.join();
    EXPECT_TRUE(killed.load());

    const int calls = blocking.calls.load();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(calls, blocking.calls.load());
    EXPECT_FALSE(timers.KillTimer(nullptr, id));
}

struct SelfKill {
    WindowTimers* timers;
    std::atomic<uintptr_t> id{0};
    std::atomic<int> calls{0};
    std::atomic<bool> killResult{false};
};

void KillItself(void* context) {
    auto* self = static_cast<SelfKill*>(context);
    const uintptr_t id = self->id.load();
    if (id == 0) {
        return;  // fired before SetTimer returned the id
    }
    ++self->calls;
    self->killResult = self->timers->KillTimer(nullptr, id);
}

TEST(WindowTimersTest, ACallbackMayKillItsOwnTimer) {
    WindowTimers timers;
    SelfKill self;
    self.timers = &timers;
    self.id = timers.SetTimer(nullptr, 1, &KillItself, &self);
    ASSERT_TRUE(qz_test::WaitUntil([&] { return self.calls.load() == 1; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(1, self.calls.load());
    EXPECT_TRUE(self.killResult.load());
}

void Throw(void*) {
    throw 42;
}

TEST(WindowTimersTest, AThrowingCallbackDoesNotStopTheOthers) {
    Log log;
    Named named{&log, "after"};
    WindowTimers timers;
    timers.SetTimer(nullptr, 1, &Throw, nullptr);
    timers.SetTimer(nullptr, 5, &Fire, &named);
    EXPECT_TRUE(qz_test::WaitUntil([&] { return log.Count("after") >= 2; }));
}

TEST(WindowTimersTest, RefusedTimers) {
    WindowTimers timers;
    EXPECT_EQ(0u, timers.SetTimer(nullptr, 10, nullptr, nullptr));
    timers.FailSetTimerAfterForTesting(1);
    Log log;
    Named named{&log, "x"};
    EXPECT_NE(0u, timers.SetTimer(nullptr, 1000, &Fire, &named));
    EXPECT_EQ(0u, timers.SetTimer(nullptr, 1000, &Fire, &named));
    timers.FailSetTimerAfterForTesting(-1);
    EXPECT_NE(0u, timers.SetTimer(nullptr, 1000, &Fire, &named));
    timers.Shutdown();
    EXPECT_EQ(0u, timers.SetTimer(nullptr, 1000, &Fire, &named));
    EXPECT_EQ(0u, log.Count("x"));
}

}  // namespace
}  // namespace port
}  // namespace qzdata_report_kelvo
