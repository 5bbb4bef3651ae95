#include "KestruneKit/Sky/SunTimes.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <fstream>
#include <numbers>
#include <sstream>

namespace kestrune {

namespace {

constexpr double unixEpochJulianDay = 2440587.5;
constexpr double secondsPerDay = 86400;
constexpr double j2000 = 2451545.0009;

double radians(double degrees)
{
    return degrees * std::numbers::pi / 180;
}

double degrees(double radians)
{
    return radians * 180 / std::numbers::pi;
}

double julianDay(Date moment)
{
    return std::chrono::duration<double>(moment.time_since_epoch()).count() / secondsPerDay + unixEpochJulianDay;
}

Date dateOfJulianDay(double day)
{
    return Date(std::chrono::duration_cast<Date::duration>(Seconds((day - unixEpochJulianDay) * secondsPerDay)));
}

// "+4852" or "+485200": sign, degrees in `degreeDigits` figures, minutes, maybe seconds.
std::optional<double> coordinate(std::string_view text, size_t degreeDigits)
{
    if (text.size() != degreeDigits + 3 && text.size() != degreeDigits + 5)
        return std::nullopt;
    if (text[0] != '+' && text[0] != '-')
        return std::nullopt;
    auto number = [&](size_t from, size_t count) -> std::optional<int> {
        int value = 0;
        auto [end, error] = std::from_chars(text.data() + from, text.data() + from + count, value);
        if (error != std::errc() || end != text.data() + from + count)
            return std::nullopt;
        return value;
    };
    auto whole = number(1, degreeDigits);
    auto minutes = number(1 + degreeDigits, 2);
    auto seconds = text.size() == degreeDigits + 5 ? number(3 + degreeDigits, 2) : std::optional<int>(0);
    if (!whole || !minutes || !seconds || *minutes >= 60 || *seconds >= 60)
        return std::nullopt;
    double value = *whole + *minutes / 60.0 + *seconds / 3600.0;
    return text[0] == '-' ? -value : value;
}

} // namespace

SunDay sunOn(Date aroundNoon, GeoLocation place)
{
    double west = -place.longitude;
    double cycle = std::round(julianDay(aroundNoon) - j2000 - west / 360);
    double approximateNoon = j2000 + west / 360 + cycle;
    double anomaly = std::fmod(357.5291 + 0.98560028 * (approximateNoon - 2451545), 360);
    double centre = 1.9148 * std::sin(radians(anomaly)) + 0.0200 * std::sin(radians(2 * anomaly))
        + 0.0003 * std::sin(radians(3 * anomaly));
    double longitude = std::fmod(anomaly + 102.9372 + centre + 180, 360);
    double transit = approximateNoon + 0.0053 * std::sin(radians(anomaly)) - 0.0069 * std::sin(radians(2 * longitude));
    double declination = std::asin(std::sin(radians(longitude)) * std::sin(radians(23.44)));

    SunDay day;
    day.noon = dateOfJulianDay(transit);
    double latitude = radians(std::clamp(place.latitude, -89.99, 89.99));
    double hourAngle = (std::sin(radians(-0.83)) - std::sin(latitude) * std::sin(declination))
        / (std::cos(latitude) * std::cos(declination));
    if (hourAngle > 1) {
        day.kind = SunDay::Kind::polarNight;
        return day;
    }
    if (hourAngle < -1) {
        day.kind = SunDay::Kind::polarDay;
        return day;
    }
    double half = degrees(std::acos(hourAngle)) / 360;
    day.rise = dateOfJulianDay(transit - half);
    day.set = dateOfJulianDay(transit + half);
    return day;
}

std::optional<GeoLocation> zoneLocation(std::string_view table, std::string_view zone)
{
    if (zone.empty())
        return std::nullopt;
    while (!table.empty()) {
        size_t end = table.find('\n');
        std::string_view line = table.substr(0, end);
        table = end == std::string_view::npos ? std::string_view() : table.substr(end + 1);
        if (line.empty() || line[0] == '#')
            continue;
        // Country codes, coordinates, zone name, comments: separated by tabs.
        size_t first = line.find('\t');
        size_t second = first == std::string_view::npos ? first : line.find('\t', first + 1);
        if (second == std::string_view::npos)
            continue;
        size_t third = line.find('\t', second + 1);
        std::string_view name = line.substr(second + 1, third == std::string_view::npos ? std::string_view::npos : third - second - 1);
        if (name != zone)
            continue;
        std::string_view coordinates = line.substr(first + 1, second - first - 1);
        size_t split = coordinates.find_first_of("+-", 1);
        if (split == std::string_view::npos)
            return std::nullopt;
        auto latitude = coordinate(coordinates.substr(0, split), 2);
        auto longitude = coordinate(coordinates.substr(split), 3);
        if (!latitude || !longitude)
            return std::nullopt;
        return GeoLocation { *latitude, *longitude };
    }
    return std::nullopt;
}

std::string readZoneTable()
{
    for (const char* path : { "/usr/share/zoneinfo/zone1970.tab", "/usr/share/zoneinfo/zone.tab" }) {
        std::ifstream file(path);
        if (!file)
            continue;
        std::ostringstream text;
        text << file.rdbuf();
        return text.str();
    }
    return {};
}

} // namespace kestrune
