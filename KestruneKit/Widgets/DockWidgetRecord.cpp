#include "KestruneKit/Widgets/DockWidgetRecord.h"

#include <ctime>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "KestruneKit/Core/JsonFields.h"

namespace kestrune {

DockWidgetRecord DockWidgetRecord::read(Preferences& dockPreferences)
{
    dockPreferences.synchronize();
    auto data = dockPreferences.dataValue("widgets");
    if (!data)
        return {};
    return decode(data->bytes).value_or(DockWidgetRecord {});
}

std::optional<DockWidgetRecord> DockWidgetRecord::decode(std::string_view json)
{
    auto list = nlohmann::json::parse(json, nullptr, false);
    if (!list.is_array())
        return std::nullopt;
    DockWidgetRecord record;
    record.widgets.reserve(list.size());
    for (const auto& element : list) {
        if (!element.is_object())
            return std::nullopt;
        auto kind = element.find("kind");
        auto options = element.find("options");
        if (kind == element.end() || !kind->is_string() || options == element.end())
            return std::nullopt;
        auto values = jsonStringMap(*options);
        if (!values)
            return std::nullopt;
        record.widgets.push_back({ kind->get<std::string>(), std::move(*values) });
    }
    return record;
}

CalendarDay DayStamp::calendarDay(std::chrono::system_clock::time_point moment)
{
    std::time_t seconds = std::chrono::system_clock::to_time_t(moment);
    std::tm local {};
    localtime_r(&seconds, &local);
    return { local.tm_year + 1900, local.tm_mon + 1, local.tm_mday };
}

std::string DayStamp::of(const CalendarDay& day) { return fmt::format("{:04d}-{:02d}-{:02d}", day.year, day.month, day.day); }

std::string DayStamp::of(std::chrono::system_clock::time_point moment) { return of(calendarDay(moment)); }

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// Reads 1 to `most` digits at `at`; none when there is no digit there.
std::optional<int> readNumber(std::string_view text, size_t& at, size_t most)
{
    size_t start = at;
    int value = 0;
    while (at < text.size() && isDigit(text[at]) && at - start < most)
        value = value * 10 + (text[at++] - '0');
    if (at == start || (at < text.size() && isDigit(text[at])))
        return std::nullopt;
    return value;
}

int daysInMonth(int year, int month)
{
    static constexpr int days[] { 31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31 };
    bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return month == 2 && leap ? 29 : days[month - 1];
}

} // namespace

std::optional<CalendarDay> DayLenient::decode(std::string_view text)
{
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
        text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\n' || text.back() == '\r'))
        text.remove_suffix(1);

    size_t at = 0;
    if (at + 4 > text.size())
        return std::nullopt;
    for (size_t i = 0; i < 4; ++i)
        if (!isDigit(text[i]))
            return std::nullopt;
    auto year = readNumber(text, at, 4);
    if (!year || at >= text.size())
        return std::nullopt;
    char separator = text[at];
    if (separator != '-' && separator != '/' && separator != '.')
        return std::nullopt;
    ++at;
    auto month = readNumber(text, at, 2);
    if (!month || at >= text.size() || text[at] != separator)
        return std::nullopt;
    ++at;
    auto day = readNumber(text, at, 2);
    if (!day)
        return std::nullopt;
    if (at < text.size() && text[at] != 'T' && text[at] != ' ')
        return std::nullopt;
    if (*month < 1 || *month > 12 || *day < 1 || *day > daysInMonth(*year, *month))
        return std::nullopt;
    return CalendarDay { *year, *month, *day };
}

std::optional<std::string> DayLenient::normalized(std::string_view text)
{
    auto day = decode(text);
    return day ? std::optional(DayStamp::of(*day)) : std::nullopt;
}

} // namespace kestrune
