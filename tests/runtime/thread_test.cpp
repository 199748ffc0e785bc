#include "runtime/thread.h"

#include <gtest/gtest.h>

#include <atomic>

#include "runtime/event.h"
#include "support/wait.h"

namespace qzdata_report_kelvo {
namespace {

// Runs until released; counts its runs.
struct Gate : CRunnable {
    void run() override { runs.fetch_add(1), release.Wait(kInfinite); }
    std::atomic<int> runs{0};
    CEvent release;
};

TEST(CThreadTest, OneThreadAtATimeInEitherFormDetachedOnDestroy) {
    CThread thread;
    EXPECT_TRUE(thread.wait(0));  // nothing to wait for
    Gate first, second;
    thread.start(first);
    ASSERT_TRUE(qz_test::WaitUntil([&] { return first.runs.load() == 1; }));
    const uint32_t id = thread.threadId();  // a new one differs, so this one is not 0
    thread.start(second);                   // ignored while the thread runs
    EXPECT_TRUE(thread.threadId() == id && !thread.wait(20));
    first.release.Set();
    EXPECT_TRUE(thread.wait(5000) && thread.threadId() == 0u);
    // A finished thread is replaced by the next start.
    thread.start(second);
    ASSERT_TRUE(qz_test::WaitUntil([&] { return second.runs.load() == 1; }));
    EXPECT_NE(thread.threadId(), id);
    second.release.Set();
    thread.join();
    // The plain function form; an exception that escapes it ends the thread silently.
    std::atomic<int> value{41};
    thread.start([](void* v) -> unsigned { throw ++*static_cast<std::atomic<int>*>(v); }, &value);
    EXPECT_TRUE(thread.wait(5000) && value.load() == 42);
    // Destroying the object leaves a running thread to end by itself.
    static CEvent release;
    CThread().start([](void*) -> unsigned { return release.Wait(kInfinite) ? 0 : 1; }, nullptr);
    release.Set();
}

}  // namespace
}  // namespace qzdata_report_kelvo
