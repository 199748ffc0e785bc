#include "runtime/timer.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>
#include <utility>

#include "support/wait.h"

namespace qzdata_report_kelvo {
namespace {

int64_t NowMs() {  // the timer's clock
    return std::chrono::steady_clock::now().time_since_epoch() / std::chrono::milliseconds(1);
}

// A timer of the given intervals and a callback that records when each firing ran (ms after the
// recorder was made) and the skipped periods the timer reported to it (published by `count`). The
// first firing takes `firstMs`, and every firing ends in an exception, which the timer must
// swallow.
struct Recorder {
    Recorder(uint32_t startMs, uint32_t periodMs, int firstMs = 0)
        : firstMs(firstMs), timer(startMs, periodMs) {}
    void Fire(CTimer& t) {
        const int index = count.load();
        firings.at(index) = {NowMs() - started, t.skipped()};  // when full, throws before counting
        count.fetch_add(1);
        std::this_thread::sleep_for(std::chrono::milliseconds(index == 0 ? firstMs : 0));
        throw std::runtime_error("callback failure");
    }
    bool Start() { return timer.start(CTimerCallback<Recorder>(*this, &Recorder::Fire)); }
    bool Wait(int n, int ms = 5000) {
        return qz_test::WaitUntil([&] { return count >= n; }, ms);
    }

    const int firstMs;
    const int64_t started = NowMs();
    std::atomic<int> count{0};
    std::array<std::pair<int64_t, int>, 64> firings{};
    CTimer timer;  // last: destroyed, and so stopped, first
};

// A start interval of 0 fires at once. Periodic 0 fires once and 60000 not again soon: either
// way the timer counts as started, refusing a second start, until stop.
TEST(CTimerTest, StartFiresAtOnceAndHoldsUntilStop) {
    for (uint32_t periodic : {0u, 60000u}) {
        SCOPED_TRACE(periodic);
        Recorder recorder(0, periodic);
        ASSERT_TRUE(recorder.Start() && recorder.Wait(1) && !recorder.Wait(2, 100));
        EXPECT_TRUE(recorder.timer.isRunning() && !recorder.Start());
        recorder.timer.stop();
        EXPECT_TRUE(!recorder.timer.isRunning() && recorder.Start() && recorder.Wait(2));
    }
}

// A firing that overruns three periods makes the timer skip them: one firing, not a burst. The
// second waits for the next period boundary, 400 ms after start; the third for one more.
TEST(CTimerTest, MissedPeriodsAreSkippedNotFiredInABurst) {
    Recorder recorder(0, 100, 350);
    ASSERT_TRUE(recorder.Start() && recorder.Wait(3, 3000));
    recorder.timer.stop();
    EXPECT_GE(recorder.firings[1].second, 3);  // more only when the thread was held up
    EXPECT_EQ(recorder.firings[2].second, 0);
    EXPECT_GE(recorder.firings[1].first, 390);
    EXPECT_GE(recorder.firings[2].first, 490);
}

// The first firing is due 300 ms after start. A restart at 100 ms with the same value leaves it
// there; a different value moves it to one new interval from the restart (150 ms after start).
TEST(CTimerTest, RestartWakesOnlyOnAChangedInterval) {
    for (const auto& [restartTo, dueMs] : {std::make_pair(300u, 300), std::make_pair(50u, 150)}) {
        Recorder recorder(300, 300);
        ASSERT_TRUE(recorder.Start());
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        recorder.timer.restart(restartTo);
        ASSERT_TRUE(recorder.Wait(1, 3000));
        recorder.timer.stop();
        // From 10 ms before it is due to 90 ms after.
        EXPECT_NEAR(recorder.firings[0].first, dueMs + 40, 50) << restartTo;
    }
}

}  // namespace
}  // namespace qzdata_report_kelvo
