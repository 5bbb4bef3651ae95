#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "KestruneKit/Core/LoopRuntime.h"
#include "KestruneKit/Core/ManualRuntime.h"

namespace kestrune {
namespace {

TEST(ManualRuntime, FiresTimersInDueOrderEachAtItsOwnTime)
{
    ManualRuntime runtime;
    Date start = runtime.now();
    std::vector<std::pair<std::string, double>> fired;
    auto record = [&](std::string name) {
        return [&, name] { fired.emplace_back(name, secondsBetween(start, runtime.now()).count()); };
    };
    TimerHandle late = runtime.schedule(Seconds(5), TimerRepeat::once, Seconds(0), record("late"));
    TimerHandle tick = runtime.schedule(Seconds(2), TimerRepeat::repeating, Seconds(0.4), record("tick"));
    TimerHandle early = runtime.schedule(Seconds(1), TimerRepeat::once, Seconds(0), record("early"));

    runtime.advance(Seconds(6));

    std::vector<std::pair<std::string, double>> expected {
        { "early", 1 }, { "tick", 2 }, { "tick", 4 }, { "late", 5 }, { "tick", 6 },
    };
    EXPECT_EQ(fired, expected);
    EXPECT_DOUBLE_EQ(secondsBetween(start, runtime.now()).count(), 6);
    EXPECT_FALSE(early.isArmed());
    EXPECT_TRUE(tick.isArmed());
    ASSERT_EQ(runtime.timers().size(), 1u);
    EXPECT_DOUBLE_EQ(runtime.timers()[0].tolerance.count(), 0.4);
}

TEST(ManualRuntime, DroppedOrCancelledHandlesNeverFireAgain)
{
    ManualRuntime runtime;
    int dropped = 0, selfCancelled = 0, rescheduled = 0;
    {
        TimerHandle handle = runtime.schedule(Seconds(1), TimerRepeat::once, Seconds(0), [&] { ++dropped; });
    }
    TimerHandle self;
    self = runtime.schedule(Seconds(1), TimerRepeat::repeating, Seconds(0), [&] {
        ++selfCancelled;
        self.cancel();
    });
    // A callback that replaces its own timer, as a poller re-arming on a new interval does.
    TimerHandle replacing;
    replacing = runtime.schedule(Seconds(1), TimerRepeat::repeating, Seconds(0), [&] {
        ++rescheduled;
        replacing = runtime.schedule(Seconds(10), TimerRepeat::repeating, Seconds(0), [&] { ++rescheduled; });
    });

    runtime.advance(Seconds(25));

    EXPECT_EQ(dropped, 0);
    EXPECT_EQ(selfCancelled, 1);
    EXPECT_EQ(rescheduled, 3); // at 1, then 11 and 21
}

TEST(ManualRuntime, RunsWorkPostedFromOtherThreadsInOrder)
{
    ManualRuntime runtime;
    std::vector<int> seen;
    std::thread worker([&] {
        for (int i = 0; i < 100; ++i)
            runtime.post([&seen, i] { seen.push_back(i); });
    });
    EXPECT_TRUE(runtime.runUntil([&] { return seen.size() == 100; }));
    worker.join();
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(seen[static_cast<size_t>(i)], i);
    EXPECT_FALSE(runtime.runUntil([] { return false; }, Seconds(0.05)));
}

TEST(LoopRuntime, RunsTimersAndPostsUntilQuit)
{
    LoopRuntime runtime;
    std::atomic<int> ticks = 0;
    bool posted = false;
    std::thread poster;
    TimerHandle tick = runtime.schedule(Seconds(0.01), TimerRepeat::repeating, Seconds(0.002), [&] {
        if (++ticks != 3)
            return;
        poster = std::thread([&] {
            runtime.post([&] {
                posted = true;
                runtime.quit();
            });
        });
    });
    TimerHandle never = runtime.schedule(Seconds(3600), TimerRepeat::once, Seconds(0), [] { FAIL(); });
    runtime.run();
    poster.join();
    EXPECT_GE(ticks.load(), 3);
    EXPECT_TRUE(posted);
}

} // namespace
} // namespace kestrune
