#include "KestruneKit/Calendar/CivilTime.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <ctime>

namespace kestrune {

namespace {

std::chrono::sys_days daysOf(const CivilTime& time)
{
    return std::chrono::sys_days(std::chrono::year(time.year) / std::chrono::month(static_cast<unsigned>(time.month))
                                 / std::chrono::day(static_cast<unsigned>(time.day)));
}

} // namespace

CivilTime localCivilTime(Date moment)
{
    auto since = moment.time_since_epoch();
    auto whole = std::chrono::floor<std::chrono::seconds>(since);
    std::time_t seconds = static_cast<std::time_t>(whole.count());
    std::tm local {};
    localtime_r(&seconds, &local);
    CivilTime time;
    time.year = local.tm_year + 1900;
    time.month = local.tm_mon + 1;
    time.day = local.tm_mday;
    time.hour = local.tm_hour;
    time.minute = local.tm_min;
    // A leap second reads as the last second of its minute.
    time.second = std::min(local.tm_sec, 59) + std::chrono::duration<double>(since - whole).count();
    return time;
}

bool isLeapYear(int year)
{
    return std::chrono::year(year).is_leap();
}

int daysInMonth(int year, int month)
{
    auto last = std::chrono::year(year) / std::chrono::month(static_cast<unsigned>(month)) / std::chrono::last;
    return static_cast<int>(static_cast<unsigned>(last.day()));
}

int daysInYear(int year)
{
    return isLeapYear(year) ? 366 : 365;
}

int dayOfYear(const CivilTime& time)
{
    CivilTime first { time.year, 1, 1 };
    return static_cast<int>(daysBetween(first, time)) + 1;
}

int dayOfWeek(const CivilTime& time)
{
    std::chrono::weekday weekday(daysOf(time));
    return static_cast<int>((weekday.c_encoding() + 6) % 7);
}

long daysBetween(const CivilTime& from, const CivilTime& to)
{
    return static_cast<long>((daysOf(to) - daysOf(from)).count());
}

int isoWeek(const CivilTime& time)
{
    // The week's Thursday decides the year it belongs to.
    std::chrono::sys_days thursday = daysOf(time) + std::chrono::days(3 - dayOfWeek(time));
    std::chrono::year_month_day date(thursday);
    std::chrono::sys_days firstOfYear(date.year() / std::chrono::January / 1);
    return static_cast<int>((thursday - firstOfYear).count() / 7) + 1;
}

double secondOfDay(const CivilTime& time)
{
    return time.hour * 3600.0 + time.minute * 60.0 + time.second;
}

std::optional<CivilTime> parseDay(std::string_view text)
{
    if (text.size() != 10 || text[4] != '-' || text[7] != '-')
        return std::nullopt;
    auto number = [&](size_t from, size_t count) -> std::optional<int> {
        int value = 0;
        auto [end, error] = std::from_chars(text.data() + from, text.data() + from + count, value);
        if (error != std::errc() || end != text.data() + from + count || value < 0)
            return std::nullopt;
        return value;
    };
    auto year = number(0, 4);
    auto month = number(5, 2);
    auto day = number(8, 2);
    if (!year || !month || !day || *month < 1 || *month > 12 || *day < 1 || *day > daysInMonth(*year, *month))
        return std::nullopt;
    return CivilTime { *year, *month, *day };
}

} // namespace kestrune
