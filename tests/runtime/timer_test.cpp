#include "runtime/timer.h"

#include <gtest/gtest.h>

#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "runtime/micro_time.h"
#include "support/wait.h"

namespace qzdata_report_kelvo {
namespace {

int64_t NowMs() {
    int64_t micro = 0;
    GetMicroTime(micro);
    return micro / 1000;
}

// Records when each firing ran and what the timer said about skipped periods.
class Recorder {
  public:
    void Fire(CTimer& timer) {
        int index;
        {
            std::lock_guard<std::mutex> guard(mutex);
            index = static_cast<int>(times.size());
            times.push_back(NowMs());
            skipped.push_back(timer.skipped());
        }
        if (index < static_cast<int>(blockMs.size())) {
            std::this_thread::sleep_for(std::chrono::milliseconds(blockMs[index]));
        }
        if (index < throwCount) {
            throw std::runtime_error("callback failure");
        }
    }
    size_t Count() {
        std::lock_guard<std::mutex> guard(mutex);
        return times.size();
    }
    int64_t Time(size_t i) {
        std::lock_guard<std::mutex> guard(mutex);
        return times.at(i);
    }
    int Skipped(size_t i) {
        std::lock_guard<std::mutex> guard(mutex);
        return skipped.at(i);
    }

    std::vector<int> blockMs;
    int throwCount = 0;

  private:
    std::mutex mutex;
    std::vector<int64_t> times;
    std::vector<int> skipped;
};

using Callback = CTimerCallback<Recorder>;

TEST(CTimerTest, StartIntervalZeroFiresAtOnce) {
    Recorder recorder;
    CTimer timer(0, 60000);
    const int64_t started = NowMs();
    ASSERT_TRUE(timer.start(Callback(recorder, &Recorder::Fire)));
    ASSERT_TRUE(qz_test::WaitUntil([&] { return recorder.Count() == 1; }, 2000));
    EXPECT_LT(recorder.Time(0) - started, 500);
    EXPECT_FALSE(timer.start(Callback(recorder, &Recorder::Fire)));
    timer.stop();
    EXPECT_FALSE(timer.isRunning());
}

TEST(CTimerTest, ThrowingCallbackDoesNotEndTheTimer) {
    Recorder recorder;
    recorder.throwCount = 2;
    CTimer timer(0, 10);
    ASSERT_TRUE(timer.start(Callback(recorder, &Recorder::Fire)));
    EXPECT_TRUE(qz_test::WaitUntil([&] { return recorder.Count() >= 4; }, 3000));
    timer.stop();
}

// A firing that overruns three periods makes the timer skip them: one firing, not a burst.
TEST(CTimerTest, MissedPeriodsAreSkippedNotFiredInABurst) {
    Recorder recorder;
    recorder.blockMs = {170};
    CTimer timer(0, 50);
    ASSERT_TRUE(timer.start(Callback(recorder, &Recorder::Fire)));
    ASSERT_TRUE(qz_test::WaitUntil([&] { return recorder.Count() >= 3; }, 3000));
    timer.stop();
    EXPECT_EQ(recorder.Skipped(0), 0);
    EXPECT_EQ(recorder.Skipped(1), 3);
    // The second firing waits for the next period boundary (200 ms after the first), and the
    // third follows one period later, not at once.
    EXPECT_GE(recorder.Time(1) - recorder.Time(0), 190);
    EXPECT_GE(recorder.Time(2) - recorder.Time(1), 40);
}

// The first firing is due 150 ms after start. A restart at 50 ms with the same value leaves it
// there; a different value moves it to one new interval from the restart.
TEST(CTimerTest, RestartWakesOnlyOnAChangedInterval) {
    struct Case {
        uint32_t restartTo;
        int64_t minFirstMs;
        int64_t maxFirstMs;
    };
    for (const Case& c : {Case{150, 140, 300}, Case{400, 440, 900}}) {
        SCOPED_TRACE(c.restartTo);
        Recorder recorder;
        CTimer timer(150, 150);
        const int64_t started = NowMs();
        ASSERT_TRUE(timer.start(Callback(recorder, &Recorder::Fire)));
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        timer.restart(c.restartTo);
        ASSERT_TRUE(qz_test::WaitUntil([&] { return recorder.Count() >= 1; }, 3000));
        timer.stop();
        const int64_t first = recorder.Time(0) - started;
        EXPECT_GE(first, c.minFirstMs);
        EXPECT_LE(first, c.maxFirstMs);
    }
}

TEST(CTimerTest, StopOnANeverStartedTimerDoesNothing) {
    CTimer timer(10, 10);
    timer.stop();
    EXPECT_FALSE(timer.isRunning());
    Recorder recorder;
    EXPECT_TRUE(timer.start(Callback(recorder, &Recorder::Fire)));
    EXPECT_TRUE(qz_test::WaitUntil([&] { return recorder.Count() >= 1; }));
    timer.stop();
}

// A periodic interval of 0 fires once; the timer counts as started until stop.
TEST(CTimerTest, OneShotHoldsItsCallbackUntilStop) {
    Recorder recorder;
    CTimer timer(0, 0);
    ASSERT_TRUE(timer.start(Callback(recorder, &Recorder::Fire)));
    ASSERT_TRUE(qz_test::WaitUntil([&] { return recorder.Count() == 1; }));
    EXPECT_TRUE(timer.isRunning());
    EXPECT_FALSE(timer.start(Callback(recorder, &Recorder::Fire)));
    timer.stop();
    EXPECT_FALSE(timer.isRunning());
    ASSERT_TRUE(timer.start(Callback(recorder, &Recorder::Fire)));
    EXPECT_TRUE(qz_test::WaitUntil([&] { return recorder.Count() == 2; }));
    timer.stop();
}

}  // namespace
}  // namespace qzdata_report_kelvo
