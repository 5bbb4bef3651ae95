// Screen Time's counting on a clock the test moves: the active app's stretches, not while the
// session is paused or the user is away, split at midnight, kept in a real SQLite file that a
// second start reads back.

#include <chrono>
#include <cstdlib>
#include <optional>

#include <QLabel>
#include <gtest/gtest.h>

#include "KestruneDock/ScreenTimeWidgets/ScreenTimeCenter.h"
#include "KestruneDock/ScreenTimeWidgets/ScreenTimeWidget.h"
#include "KestruneKit/Core/ManualRuntime.h"
#include "KestruneKit/DevTools/KestruneActivity.h"
#include "KestruneKit/ScreenTime/ScreenTimeStore.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune {
namespace {

using namespace std::chrono;

Date utc(int y, unsigned m, unsigned d, int hour, int minute)
{
    return Date(sys_days(year(y) / month(m) / day(d)) + hours(hour) + minutes(minute));
}

double secondsOf(const std::vector<std::pair<std::string, double>>& apps, const std::string& app)
{
    for (const auto& [name, seconds] : apps)
        if (name == app)
            return seconds;
    return 0;
}

TEST(ScreenTime, CountsTheActiveAppButNotPausesAwayTimeOrTheOtherDay)
{
    setenv("TZ", "UTC", 1);
    tzset();
    test::TemporaryFolder folder;
    ManualRuntime runtime(utc(2026, 11, 24, 9, 0));
    KestruneActivity activity;
    {
        ScreenTimeCenter center(runtime, folder.file("screen-time.sqlite"), activity);
        // The user's last touch of keyboard or mouse; none yet means always at it.
        std::optional<Date> lastInput;
        center.idleTime = [&] { return lastInput ? secondsBetween(*lastInput, runtime.now()) : Seconds(0); };
        center.setActive("Firefox");
        runtime.advance(Seconds(120));
        center.setActive("Terminal");
        runtime.advance(Seconds(60));
        // Locked: the minute before counts, the ten minutes locked do not.
        activity.raise(KestruneActivity::PauseReason::sessionInactive);
        runtime.advance(Seconds(600));
        activity.lower(KestruneActivity::PauseReason::sessionInactive);
        // Twenty minutes at the terminal, the last seven of them away from the keyboard: the
        // five-minute writes count up to the one at fifteen (two minutes away is not yet away), the
        // one at twenty nothing.
        runtime.advance(Seconds(13 * 60));
        lastInput = runtime.now();
        runtime.advance(Seconds(7 * 60));
        center.flush();
        lastInput.reset();
        ASSERT_TRUE(runtime.runUntil([&] { return secondsOf(center.summary().today, "Terminal") > 0; }));
        runtime.runUntil([] { return false; }, Seconds(0.2));
        EXPECT_NEAR(secondsOf(center.summary().today, "Firefox"), 120, 0.5);
        EXPECT_NEAR(secondsOf(center.summary().today, "Terminal"), 60 + 15 * 60, 0.5);
        EXPECT_EQ(center.summary().today.front().first, "Terminal") << "longest first";
        EXPECT_EQ(center.summary().week.size(), 7u);

        // Into the night: the stretch over midnight goes half to each day.
        center.setActive(std::nullopt);
        runtime.advance(secondsBetween(runtime.now(), utc(2026, 11, 24, 23, 58)));
        center.setActive("Editor");
        runtime.advance(Seconds(240));
        center.setActive(std::nullopt);
        ASSERT_TRUE(runtime.runUntil([&] { return secondsOf(center.summary().today, "Editor") > 0; }));
        EXPECT_NEAR(secondsOf(center.summary().today, "Editor"), 120, 0.5);
        EXPECT_NEAR(center.summary().week[5].second, 120 + 60 + 15 * 60 + 120, 1) << "yesterday's total";
    }
    // A second start reads the record back.
    ScreenTimeStore store(folder.file("screen-time.sqlite"));
    EXPECT_NEAR(secondsOf(store.day("2026-11-24"), "Editor"), 120, 0.5);
    EXPECT_NEAR(secondsOf(store.day("2026-11-25"), "Editor"), 120, 0.5);
    store.forgetBefore("2026-11-25");
    EXPECT_TRUE(store.day("2026-11-24").empty());

    // A record that cannot be kept says so.
    ScreenTimeStore broken(folder.path());
    EXPECT_FALSE(broken.isOpen());
    EXPECT_FALSE(broken.failure().empty());
    EXPECT_EQ(ScreenTimeWidget::durationText(3 * 3600 + 12 * 60 + 59), QStringLiteral("3 h 12 min"));
    EXPECT_EQ(ScreenTimeWidget::durationText(59), QStringLiteral("Under a minute"));
    unsetenv("TZ");
    tzset();
}

} // namespace
} // namespace kestrune
