#pragma once
// The dock's widget row as the family's other applications see it: read-only, kinds kept as
// raw strings (a newer dock may know kinds this reader does not), ids and styles ignored.
//
//   auto record = DockWidgetRecord::read(*Preferences::open(dockPreferencesDomain));
//   for (const auto& slot : record.widgets) ...
//
// Beside it, the day keys widgets use to count things per day ("2026-11-21").

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KestruneKit/Preferences/Preferences.h"

namespace kestrune {

struct DockWidgetRecord {
    struct Slot {
        std::string kind;
        std::map<std::string, std::string> options;
        bool operator==(const Slot&) const = default;
    };
    std::vector<Slot> widgets;

    // Takes in what the dock wrote last, then decodes "widgets"; a missing, non-data or
    // undecodable value is an empty row.
    [[nodiscard]] static DockWidgetRecord read(Preferences& dockPreferences);
    // Strict: every element an object with a string "kind" and a string-to-string "options".
    [[nodiscard]] static std::optional<DockWidgetRecord> decode(std::string_view json);
};

// A calendar day of the local time zone.
struct CalendarDay {
    int year = 0;
    int month = 0;
    int day = 0;
    auto operator<=>(const CalendarDay&) const = default;
};

// "%04d-%02d-%02d" of the local calendar day of a moment.
struct DayStamp {
    [[nodiscard]] static std::string of(std::chrono::system_clock::time_point moment);
    [[nodiscard]] static std::string of(const CalendarDay& day);
    [[nodiscard]] static CalendarDay calendarDay(std::chrono::system_clock::time_point moment);
};

// Reads a day key the way people and older releases wrote them: surrounding spaces, one-digit
// months and days, "/" or "." between the parts, and a time after the date ("T..." or " ...")
// are all accepted. The date itself must exist (no 31 April). Anything else is none.
struct DayLenient {
    [[nodiscard]] static std::optional<CalendarDay> decode(std::string_view text);
    // The same day written the canonical way, or none.
    [[nodiscard]] static std::optional<std::string> normalized(std::string_view text);
};

} // namespace kestrune
