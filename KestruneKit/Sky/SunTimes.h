#pragma once
// OVERVIEW
// When the sun rises and sets on a day at a place, with the sunrise equation as NOAA's solar
// calculator gives it (after Meeus): the sun's upper limb on a sea-level horizon, refraction
// included, to about a minute away from the poles. And where a time zone's main city lies, from
// the zone table that ships with the time-zone database, so that a clock can show daylight
// without asking the user where they are.
//
// TYPICAL USAGE
//   if (auto here = zoneLocation(readZoneTable(), "Europe/London"))
//       SunDay day = sunOn(middayToday, *here);   // day.rise, day.set
//
// Pure functions but `readZoneTable`; any thread.

#include <optional>
#include <string>
#include <string_view>

#include "KestruneKit/Core/Runtime.h"

namespace kestrune {

struct GeoLocation {
    double latitude = 0;   // degrees north
    double longitude = 0;  // degrees east
    bool operator==(const GeoLocation&) const = default;
};

struct SunDay {
    enum class Kind { risesAndSets, polarDay, polarNight };
    Kind kind = Kind::risesAndSets;
    // Set only when the sun both rises and sets.
    std::optional<Date> rise;
    std::optional<Date> set;
    // When the sun stands highest.
    Date noon;
};

// The solar day whose noon is nearest `aroundNoon` (pass the local midday of the day wanted).
[[nodiscard]] SunDay sunOn(Date aroundNoon, GeoLocation place);

// The coordinates the table gives for `zone` ("Europe/Paris"), from zone1970.tab or zone.tab's
// text; none for a zone it does not list (UTC, a link name it does not carry).
[[nodiscard]] std::optional<GeoLocation> zoneLocation(std::string_view table, std::string_view zone);
// The installed table's text, empty when there is none.
[[nodiscard]] std::string readZoneTable();

} // namespace kestrune
