#include "KestruneKit/Calendar/TimeProgress.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "KestruneKit/Core/RawNames.h"

namespace kestrune {

namespace {

constexpr RawNames<ProgressSpan, 4> spanNames { { {
    { ProgressSpan::year, "year" },
    { ProgressSpan::month, "month" },
    { ProgressSpan::week, "week" },
    { ProgressSpan::day, "day" },
} } };

constexpr double secondsPerDay = 86400;

struct Stretch {
    double elapsed = 0;
    double length = 1;
};

// On the wall clock: every day 24 hours long, so that noon is half the day on any day.
Stretch stretchOf(ProgressSpan span, const CivilTime& time, int firstWeekday)
{
    double today = secondOfDay(time);
    switch (span) {
    case ProgressSpan::year:
        return { (dayOfYear(time) - 1) * secondsPerDay + today, daysInYear(time.year) * secondsPerDay };
    case ProgressSpan::month:
        return { (time.day - 1) * secondsPerDay + today, daysInMonth(time.year, time.month) * secondsPerDay };
    case ProgressSpan::week:
        return { ((dayOfWeek(time) - firstWeekday + 7) % 7) * secondsPerDay + today, 7 * secondsPerDay };
    case ProgressSpan::day:
        return { today, secondsPerDay };
    }
    return {};
}

} // namespace

std::string_view toString(ProgressSpan span)
{
    return spanNames.name(span);
}

std::optional<ProgressSpan> progressSpanFromString(std::string_view raw)
{
    return spanNames.value(raw);
}

double progressGone(ProgressSpan span, const CivilTime& time, int firstWeekday)
{
    Stretch stretch = stretchOf(span, time, firstWeekday);
    return std::clamp(stretch.elapsed / stretch.length, 0.0, 1.0);
}

Seconds untilProgressStep(ProgressSpan span, const CivilTime& time, int steps, int firstWeekday)
{
    Stretch stretch = stretchOf(span, time, firstWeekday);
    double step = stretch.length / std::max(steps, 1);
    double next = (std::floor(stretch.elapsed / step) + 1) * step;
    return Seconds(std::max(next - stretch.elapsed, 0.001));
}

std::string countdownText(long days)
{
    if (days == 0)
        return "Today";
    if (days == 1)
        return "1 day";
    if (days == -1)
        return "Yesterday";
    if (days > 0)
        return std::to_string(days) + " days";
    return std::to_string(-days) + " days ago";
}

std::string clockWords(int hour, int minute)
{
    static constexpr std::array<const char*, 12> hours { "twelve", "one", "two", "three", "four", "five",
                                                         "six", "seven", "eight", "nine", "ten", "eleven" };
    static constexpr std::array<const char*, 12> fives { "", "five past", "ten past", "quarter past",
                                                         "twenty past", "twenty-five past", "half past",
                                                         "twenty-five to", "twenty to", "quarter to", "ten to", "five to" };
    int step = (minute + 2) / 5;  // to the nearest five minutes
    int shown = (hour + (step >= 7 ? 1 : 0)) % 24;
    step %= 12;
    if (step == 0) {
        if (shown == 0)
            return "midnight";
        if (shown == 12)
            return "noon";
        return std::string(hours[static_cast<size_t>(shown % 12)]) + " o\u2019clock";
    }
    return std::string(fives[static_cast<size_t>(step)]) + " " + hours[static_cast<size_t>(shown % 12)];
}

} // namespace kestrune
