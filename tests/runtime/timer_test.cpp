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

// Records when each firing ran and the skipped periods the timer reported to it (published by
// `count`). The first firing takes `firstMs`, and every firing ends in an exception, which the
// timer must swallow.
struct Recorder {
    void Fire(CTimer& timer) {
        const size_t index = count.load();
        firings.at(index) = {NowMs(), timer.skipped()};  // when full, throws before counting
        count.fetch_add(1);
        std::this_thread::sleep_for(std::chrono::milliseconds(index == 0 ? firstMs : 0));
        throw std::runtime_error("callback failure");
    }
    bool Start(CTimer& timer) {
        return timer.start(CTimerCallback<Recorder>(*this, &Recorder::Fire));
    }

    int firstMs = 0;
    std::atomic<size_t> count{0};
    std::array<std::pair<int64_t, int>, 64> firings{};
};

// A start interval of 0 fires at once. Periodic 0 fires once and 60000 not again soon: either
// way the timer counts as started, refusing a second start, until stop.
TEST(CTimerTest, StartFiresAtOnceAndHoldsUntilStop) {
    for (uint32_t periodic : {0u, 60000u}) {
        SCOPED_TRACE(periodic);
        Recorder recorder;
        CTimer timer(0, periodic);
        ASSERT_TRUE(recorder.Start(timer));
        ASSERT_TRUE(qz_test::WaitUntil([&] { return recorder.count.load() == 1; }));
        EXPECT_FALSE(qz_test::WaitUntil([&] { return recorder.count.load() > 1; }, 100));
        EXPECT_TRUE(timer.isRunning());
        EXPECT_FALSE(recorder.Start(timer));
        timer.stop();
        EXPECT_FALSE(timer.isRunning());
        ASSERT_TRUE(recorder.Start(timer));
        EXPECT_TRUE(qz_test::WaitUntil([&] { return recorder.count.load() == 2; }));
    }
}

// A firing that overruns three periods makes the timer skip them: one firing, not a burst. The
// second waits for the next period boundary, 400 ms after start; the third for one more.
TEST(CTimerTest, MissedPeriodsAreSkippedNotFiredInABurst) {
    Recorder recorder{350};
    CTimer timer(0, 100);
    const int64_t started = NowMs();
    ASSERT_TRUE(recorder.Start(timer));
    ASSERT_TRUE(qz_test::WaitUntil([&] { return recorder.count.load() >= 3; }, 3000));
    timer.stop();
    EXPECT_GE(recorder.firings[1].second, 3);  // more only when the thread was held up
    EXPECT_EQ(recorder.firings[2].second, 0);
    EXPECT_GE(recorder.firings[1].first - started, 390);
    EXPECT_GE(recorder.firings[2].first - started, 490);
}

// The first firing is due 300 ms after start. A restart at 100 ms with the same value leaves it
// there; a different value moves it to one new interval from the restart (150 ms after start).
TEST(CTimerTest, RestartWakesOnlyOnAChangedInterval) {
    for (const auto& [restartTo, earliest, latest] :
         {std::make_tuple(300u, 290, 390), std::make_tuple(50u, 140, 240)}) {
        SCOPED_TRACE(restartTo);
        Recorder recorder;
        CTimer timer(300, 300);
        const int64_t started = NowMs();
        ASSERT_TRUE(recorder.Start(timer));
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        timer.restart(restartTo);
        ASSERT_TRUE(qz_test::WaitUntil([&] { return recorder.count.load() >= 1; }, 3000));
        timer.stop();
        EXPECT_GE(recorder.firings[0].first - started, earliest);
        EXPECT_LE(recorder.firings[0].first - started, latest);
    }
}

}  // namespace
}  // namespace qzdata_report_kelvo
