#pragma once
// OVERVIEW
// The time on a wall clock and a calendar page: year, month, day, hour, minute and second as the
// local time zone (or any other) shows them. The time widgets reason in it, so that "half the day
// is gone" at noon also on the day the clocks change, and tests give it as plainly as people read it.
//
// TYPICAL USAGE
//   CivilTime now = localCivilTime(runtime.now());
//   int weekday = dayOfWeek(now);                 // 0 Monday … 6 Sunday
//   long days = daysBetween(now, CivilTime { 2026, 12, 25 });
//
// Pure functions but `localCivilTime`; any thread.

#include <optional>
#include <string_view>

#include "KestruneKit/Core/Runtime.h"

namespace kestrune {

struct CivilTime {
    int year = 1970;
    int month = 1;   // 1 … 12
    int day = 1;     // 1 … 31
    int hour = 0;    // 0 … 23
    int minute = 0;
    double second = 0;
    bool operator==(const CivilTime&) const = default;
};

// In the process's local time zone.
[[nodiscard]] CivilTime localCivilTime(Date moment);

[[nodiscard]] bool isLeapYear(int year);
[[nodiscard]] int daysInMonth(int year, int month);
[[nodiscard]] int daysInYear(int year);
// 1 for the first of January.
[[nodiscard]] int dayOfYear(const CivilTime& time);
// 0 for Monday to 6 for Sunday.
[[nodiscard]] int dayOfWeek(const CivilTime& time);
// Whole calendar days from `from`'s date to `to`'s, negative when `to` is earlier.
[[nodiscard]] long daysBetween(const CivilTime& from, const CivilTime& to);
// The ISO 8601 week number (weeks start on Monday; week 1 holds the year's first Thursday).
[[nodiscard]] int isoWeek(const CivilTime& time);
// Seconds since midnight by the clock on the wall.
[[nodiscard]] double secondOfDay(const CivilTime& time);

// "2026-12-25" into a date at midnight; none for anything else or a day that does not exist.
[[nodiscard]] std::optional<CivilTime> parseDay(std::string_view text);

} // namespace kestrune
