#include <gtest/gtest.h>

#include "KestruneKit/Core/ManualRuntime.h"
#include "KestruneKit/DevTools/DevPoller.h"

namespace kestrune {
namespace {

class DevPollerTest : public ::testing::Test {
protected:
    ManualRuntime runtime;
    KestruneActivity activity;
    int runs = 0;
    DevPoller poller { runtime, activity, Seconds(60), [this] { ++runs; } };
};

TEST_F(DevPollerTest, RunsOnlyWhileWantedAtItsIntervalWithAFifthAsTolerance)
{
    runtime.advance(Seconds(600));
    EXPECT_EQ(runs, 0);
    EXPECT_TRUE(runtime.timers().empty());

    poller.setWanted("tile", true);
    EXPECT_EQ(runs, 1) << "the first holder refreshes at once";
    EXPECT_EQ(poller.lastRun(), runtime.now());
    ASSERT_EQ(runtime.timers().size(), 1u);
    EXPECT_DOUBLE_EQ(runtime.timers()[0].interval.count(), 60);
    EXPECT_DOUBLE_EQ(runtime.timers()[0].tolerance.count(), 12);

    runtime.advance(Seconds(180));
    EXPECT_EQ(runs, 4);

    // A second holder changes nothing; only the last one leaving stops the timer.
    poller.setWanted("card", true);
    EXPECT_EQ(runs, 4);
    poller.setWanted("tile", false);
    EXPECT_TRUE(poller.isActive());
    runtime.advance(Seconds(60));
    EXPECT_EQ(runs, 5);
    poller.setWanted("card", false);
    EXPECT_FALSE(poller.isActive());
    EXPECT_TRUE(runtime.timers().empty());
    runtime.advance(Seconds(600));
    EXPECT_EQ(runs, 5);
}

TEST_F(DevPollerTest, ANewHolderSoonAfterARefreshDoesNotRefreshAgain)
{
    poller.setWanted("tile", true);
    poller.setWanted("tile", false);
    runtime.advance(Seconds(10));
    EXPECT_FALSE(poller.isDue());
    poller.setWanted("card", true);
    EXPECT_EQ(runs, 1) << "10 s is less than 0.8 x 60 s";
    poller.setWanted("card", false);

    runtime.advance(Seconds(38));
    EXPECT_TRUE(poller.isDue());
    poller.setWanted("card", true);
    EXPECT_EQ(runs, 2) << "48 s is 0.8 x 60 s";
}

TEST_F(DevPollerTest, SkipsFiringsWhilePausedButRefreshNowAlwaysRuns)
{
    int told = 0;
    activity.addObserver([&] { ++told; });
    activity.raise(KestruneActivity::PauseReason::systemSleep);
    activity.raise(KestruneActivity::PauseReason::displaysSleep);
    activity.raise(KestruneActivity::PauseReason::displaysSleep);
    EXPECT_EQ(told, 2) << "watchers are told of changes only";
    poller.setWanted("tile", true);
    runtime.advance(Seconds(120));
    EXPECT_EQ(runs, 0);
    EXPECT_TRUE(poller.isActive());

    activity.lower(KestruneActivity::PauseReason::systemSleep);
    runtime.advance(Seconds(60));
    EXPECT_EQ(runs, 0) << "one reason is still raised";
    activity.lower(KestruneActivity::PauseReason::displaysSleep);
    runtime.advance(Seconds(60));
    EXPECT_EQ(runs, 1);

    activity.raise(KestruneActivity::PauseReason::sessionInactive);
    poller.refreshNow();
    EXPECT_EQ(runs, 2);
    EXPECT_EQ(poller.lastRun(), runtime.now());
}

TEST_F(DevPollerTest, ANewIntervalReArmsAtOnce)
{
    poller.setWanted("tile", true);
    runtime.advance(Seconds(50));
    poller.setInterval(Seconds(10));
    ASSERT_EQ(runtime.timers().size(), 1u);
    EXPECT_DOUBLE_EQ(runtime.timers()[0].tolerance.count(), 2);
    runtime.advance(Seconds(10));
    EXPECT_EQ(runs, 2) << "the new timer fires 10 s after the change, not at the old 60 s";
    poller.setInterval(Seconds(10));
    EXPECT_EQ(secondsBetween(runtime.now(), runtime.timers()[0].due).count(), 10) << "the same interval does not re-arm";
}

} // namespace
} // namespace kestrune
