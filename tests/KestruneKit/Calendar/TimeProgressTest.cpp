// The sums of the time widgets: shares of a span gone and when the next step is due, days to a
// date, week numbers, the time in words.

#include <gtest/gtest.h>

#include "KestruneKit/Calendar/TimeProgress.h"

namespace kestrune {
namespace {

TEST(TimeProgress, SharesGoneFollowTheWallClockAndTheCalendar)
{
    CivilTime noonFirstJuly { 2026, 7, 1, 12, 0, 0 };
    EXPECT_DOUBLE_EQ(progressGone(ProgressSpan::day, noonFirstJuly), 0.5);
    EXPECT_NEAR(progressGone(ProgressSpan::month, noonFirstJuly), 0.5 / 31, 1e-12);
    // 181 days and a half of 365.
    EXPECT_NEAR(progressGone(ProgressSpan::year, noonFirstJuly), 181.5 / 365, 1e-12);
    // A leap year is a day longer.
    EXPECT_NEAR(progressGone(ProgressSpan::year, CivilTime { 2028, 7, 1, 12 }), 182.5 / 366, 1e-12);
    // 1 July 2026 is a Wednesday: two days and a half into a Monday week, three and a half into a
    // Sunday one.
    EXPECT_NEAR(progressGone(ProgressSpan::week, noonFirstJuly), 2.5 / 7, 1e-12);
    EXPECT_NEAR(progressGone(ProgressSpan::week, noonFirstJuly, 6), 3.5 / 7, 1e-12);
    EXPECT_DOUBLE_EQ(progressGone(ProgressSpan::year, CivilTime { 2026, 1, 1 }), 0);
    EXPECT_LT(progressGone(ProgressSpan::year, CivilTime { 2026, 12, 31, 23, 59, 59.99 }), 1);
    EXPECT_EQ(progressSpanFromString("month"), ProgressSpan::month);
    EXPECT_EQ(progressSpanFromString("decade"), std::nullopt);
}

TEST(TimeProgress, TheNextStepIsWhenTheShownFigureChanges)
{
    // A day in whole percent steps every 864 s; at 00:10 the next is at 14:24.
    EXPECT_NEAR(untilProgressStep(ProgressSpan::day, CivilTime { 2026, 3, 3, 0, 10 }, 100).count(), 264, 1e-6);
    // Exactly on a step, the wait is a whole step, never zero.
    EXPECT_NEAR(untilProgressStep(ProgressSpan::day, CivilTime { 2026, 3, 3, 0, 14, 24 }, 100).count(), 864, 1e-6);
    // A year in whole percent steps is more than three days: a tile wakes a few times a week.
    EXPECT_GT(untilProgressStep(ProgressSpan::year, CivilTime { 2026, 1, 1, 0, 0, 1 }, 100).count(), 3 * 86400);
}

TEST(TimeProgress, CountdownsCalendarDaysAndWeeks)
{
    CivilTime lateEvening { 2026, 12, 24, 23, 59 };
    auto christmas = parseDay("2026-12-25");
    ASSERT_TRUE(christmas);
    EXPECT_EQ(daysBetween(lateEvening, *christmas), 1);
    EXPECT_EQ(countdownText(daysBetween(lateEvening, *christmas)), "1 day");
    EXPECT_EQ(countdownText(daysBetween(CivilTime { 2026, 12, 25, 8 }, *christmas)), "Today");
    EXPECT_EQ(countdownText(daysBetween(CivilTime { 2026, 12, 26 }, *christmas)), "Yesterday");
    EXPECT_EQ(countdownText(daysBetween(CivilTime { 2027, 1, 4 }, *christmas)), "10 days ago");
    EXPECT_EQ(countdownText(daysBetween(CivilTime { 2026, 2, 1 }, CivilTime { 2026, 3, 1 })), "28 days");
    EXPECT_FALSE(parseDay("2026-02-29"));
    EXPECT_FALSE(parseDay("2026-2-3"));
    EXPECT_FALSE(parseDay("soon"));
    EXPECT_TRUE(parseDay("2028-02-29"));

    // ISO weeks: 1 January 2021 was a Friday, in week 53 of 2020; 31 December 2024 is in week 1.
    EXPECT_EQ(isoWeek(CivilTime { 2021, 1, 1 }), 53);
    EXPECT_EQ(isoWeek(CivilTime { 2024, 12, 31 }), 1);
    EXPECT_EQ(isoWeek(CivilTime { 2026, 11, 24 }), 48);
    EXPECT_EQ(dayOfWeek(CivilTime { 2026, 11, 24 }), 1);
}

TEST(TimeProgress, TheTimeInWords)
{
    EXPECT_EQ(clockWords(16, 0), "four o\u2019clock");
    EXPECT_EQ(clockWords(16, 14), "quarter past four");
    EXPECT_EQ(clockWords(16, 31), "half past four");
    EXPECT_EQ(clockWords(16, 37), "twenty-five to five");
    EXPECT_EQ(clockWords(11, 58), "noon");
    EXPECT_EQ(clockWords(23, 59), "midnight");
    EXPECT_EQ(clockWords(0, 2), "midnight");
    EXPECT_EQ(clockWords(0, 50), "ten to one");
    EXPECT_EQ(clockWords(12, 5), "five past twelve");
}

} // namespace
} // namespace kestrune
