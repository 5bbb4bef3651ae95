#include <atomic>
#include <thread>
#include <vector>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <gtest/gtest.h>

#include "tests/helpers/QtSpin.h"

#include "KestruneDock/App/QtRuntime.h"

namespace kestrune {
namespace {

using test::spinUntil;

TEST(QtRuntime, RunsPostedWorkOnTheMainThreadInOrderFromAnyThread)
{
    QtRuntime runtime;
    std::vector<int> order;
    std::atomic<int> offMain { 0 };
    auto main = std::this_thread::get_id();
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread)
        threads.emplace_back([&, thread] {
            for (int item = 0; item < 50; ++item)
                runtime.post([&, thread, item] {
                    if (std::this_thread::get_id() != main)
                        ++offMain;
                    order.push_back(thread * 1000 + item);
                });
        });
    for (auto& thread : threads)
        thread.join();
    ASSERT_TRUE(spinUntil([&] { return order.size() == 200; }));
    EXPECT_EQ(offMain, 0);
    // Each thread's posts keep their order.
    for (int thread = 0; thread < 4; ++thread) {
        int last = -1;
        for (int value : order)
            if (value / 1000 == thread) {
                EXPECT_GT(value % 1000, last);
                last = value % 1000;
            }
    }
}

TEST(QtRuntime, FiresTimersOnceOrRepeatedlyAndStopsThemTheMomentTheyAreCancelled)
{
    QtRuntime runtime;
    int once = 0, repeating = 0, dropped = 0, selfCancelled = 0;
    TimerHandle single = runtime.schedule(Seconds(0.01), TimerRepeat::once, Seconds(0), [&] { ++once; });
    TimerHandle tick = runtime.schedule(Seconds(0.01), TimerRepeat::repeating, Seconds(0), [&] { ++repeating; });
    {
        TimerHandle gone = runtime.schedule(Seconds(0.01), TimerRepeat::once, Seconds(0), [&] { ++dropped; });
    }
    TimerHandle self;
    self = runtime.schedule(Seconds(0.01), TimerRepeat::repeating, Seconds(0), [&] {
        ++selfCancelled;
        self.cancel();
    });
    ASSERT_TRUE(spinUntil([&] { return repeating >= 3 && once == 1 && selfCancelled == 1; }));
    EXPECT_FALSE(single.isArmed());
    EXPECT_TRUE(tick.isArmed());

    // A cancelled timer is gone from the event loop at once: nothing left to wake an idle dock.
    tick.cancel();
    spinUntil([] { return false; }, 100);
    EXPECT_EQ(runtime.liveTimers(), 0);
    int stopped = repeating;
    spinUntil([] { return false; }, 100);
    EXPECT_EQ(repeating, stopped);
    EXPECT_EQ(dropped, 0);
    EXPECT_EQ(once, 1);
    EXPECT_EQ(selfCancelled, 1);

    // A long one-shot that is dropped holds no timer either.
    {
        TimerHandle longOne = runtime.schedule(Seconds(3600), TimerRepeat::once, Seconds(720), [] {});
        EXPECT_EQ(runtime.liveTimers(), 1);
    }
    spinUntil([] { return false; }, 50);
    EXPECT_EQ(runtime.liveTimers(), 0);
}

TEST(QtRuntime, TurnsToleranceIntoHowCoarseATimerMayBe)
{
    EXPECT_EQ(QtRuntime::timerType(Seconds(0)), Qt::PreciseTimer);
    EXPECT_EQ(QtRuntime::timerType(Seconds(0.1)), Qt::CoarseTimer);
    EXPECT_EQ(QtRuntime::timerType(Runtime::defaultTolerance(Seconds(30))), Qt::VeryCoarseTimer);

    // Timers of the same due time and coarse tolerance still fire, whatever their kind.
    QtRuntime runtime;
    int fired = 0;
    TimerHandle coarse = runtime.schedule(Seconds(0.05), TimerRepeat::once, Seconds(0.01), [&] { ++fired; });
    TimerHandle veryCoarse = runtime.schedule(Seconds(0.05), TimerRepeat::once, Seconds(1), [&] { ++fired; });
    EXPECT_TRUE(spinUntil([&] { return fired == 2; }, 4000));
}

} // namespace
} // namespace kestrune
