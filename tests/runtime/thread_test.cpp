#include "runtime/thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>

#include "runtime/event.h"
#include "support/wait.h"

namespace qzdata_report_kelvo {
namespace {

// Runs until released; counts its runs.
class Gate : public CRunnable {
  public:
    void run() override {
        runs.fetch_add(1);
        release.Wait(kInfinite);
    }
    std::atomic<int> runs{0};
    CEvent release;
};

class Thrower : public CRunnable {
  public:
    void run() override { throw std::runtime_error("escapes run"); }
};

TEST(CThreadTest, WaitWithoutThreadReturnsAtOnce) {
    CThread thread;
    EXPECT_TRUE(thread.wait(0));
    EXPECT_FALSE(thread.isRunning());
    EXPECT_EQ(thread.threadId(), 0u);
}

TEST(CThreadTest, StartWhileRunningIgnoresTheSecondTarget) {
    Gate first;
    Gate second;
    CThread thread;
    thread.start(first);
    ASSERT_TRUE(qz_test::WaitUntil([&] { return first.runs.load() == 1; }));
    const uint32_t id = thread.threadId();
    EXPECT_NE(id, 0u);

    thread.start(second);
    EXPECT_TRUE(thread.isRunning());
    EXPECT_EQ(thread.threadId(), id);
    EXPECT_FALSE(thread.wait(20));

    first.release.Set();
    EXPECT_TRUE(thread.wait(5000));
    EXPECT_EQ(thread.threadId(), 0u);
    EXPECT_EQ(second.runs.load(), 0);

    // A finished thread is replaced by the next start.
    thread.start(second);
    ASSERT_TRUE(qz_test::WaitUntil([&] { return second.runs.load() == 1; }));
    second.release.Set();
    thread.join();
    EXPECT_FALSE(thread.isRunning());
}

TEST(CThreadTest, ExceptionEndsTheThreadSilently) {
    Thrower thrower;
    CThread thread;
    thread.start(thrower);
    EXPECT_TRUE(thread.wait(5000));
}

TEST(CThreadTest, PlainFunctionForm) {
    static std::atomic<int> calls{0};
    int argument = 41;
    CThread thread;
    thread.start(
        [](void* value) -> unsigned {
            calls.store(*static_cast<int*>(value) + 1);
            return 0;
        },
        &argument);
    thread.join();
    EXPECT_EQ(calls.load(), 42);
}

TEST(CThreadTest, DestroyingTheObjectLeavesTheThreadRunning) {
    static Gate gate;  // must outlive the detached thread
    {
        CThread thread;
        thread.start(gate);
        ASSERT_TRUE(qz_test::WaitUntil([&] { return gate.runs.load() == 1; }));
    }
    // The thread is still blocked on the gate; releasing it lets it end on its own.
    gate.release.Set();
    CEvent probe;
    EXPECT_FALSE(probe.Wait(0));
}

TEST(CEventTest, AutoResetWakesOneWaitOnly) {
    CEvent event;
    EXPECT_FALSE(event.Wait(0));
    event.Set();
    event.Set();
    EXPECT_TRUE(event.Wait(0));
    EXPECT_FALSE(event.Wait(10));
    event.Set();
    event.Reset();
    EXPECT_FALSE(event.Wait(0));
}

}  // namespace
}  // namespace qzdata_report_kelvo
