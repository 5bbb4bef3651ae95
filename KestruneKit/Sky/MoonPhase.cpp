#include "KestruneKit/Sky/MoonPhase.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

#include "KestruneKit/Core/RawNames.h"

namespace kestrune {

namespace {

constexpr RawNames<MoonPhaseName, 8> phaseNames { { {
    { MoonPhaseName::newMoon, "newMoon" },
    { MoonPhaseName::waxingCrescent, "waxingCrescent" },
    { MoonPhaseName::firstQuarter, "firstQuarter" },
    { MoonPhaseName::waxingGibbous, "waxingGibbous" },
    { MoonPhaseName::fullMoon, "fullMoon" },
    { MoonPhaseName::waningGibbous, "waningGibbous" },
    { MoonPhaseName::lastQuarter, "lastQuarter" },
    { MoonPhaseName::waningCrescent, "waningCrescent" },
} } };

constexpr double unixEpochJulianDay = 2440587.5;
constexpr double secondsPerDay = 86400;
constexpr double synodicMonth = 29.530588861;

double radians(double degrees)
{
    return degrees * std::numbers::pi / 180;
}

double julianDay(Date moment)
{
    return std::chrono::duration<double>(moment.time_since_epoch()).count() / secondsPerDay + unixEpochJulianDay;
}

Date dateOfJulianDay(double day)
{
    return Date(std::chrono::duration_cast<Date::duration>(Seconds((day - unixEpochJulianDay) * secondsPerDay)));
}

// Terrestrial (dynamical) time runs ahead of the clocks' time by ΔT, about 69 s in the 2020s:
// Espenak and Meeus's polynomial for 2005–2050, their long-term parabola elsewhere.
double deltaTSeconds(double year)
{
    if (year >= 2005 && year <= 2050) {
        double t = year - 2000;
        return 62.92 + 0.32217 * t + 0.005589 * t * t;
    }
    double u = (year - 1820) / 100;
    return -20 + 32 * u * u;
}

double yearOf(double julian)
{
    return 2000 + (julian - 2451545.0) / 365.25;
}

// Meeus 49.1 and the periodic terms that follow it: the instant (JDE) of the phase numbered `k`,
// where whole k are new moons and k + 0.25, + 0.5, + 0.75 the first quarter, full and last quarter.
double truePhase(double k)
{
    double t = k / 1236.85;
    double t2 = t * t;
    double t3 = t2 * t;
    double t4 = t3 * t;
    double jde = 2451550.09766 + synodicMonth * k + 0.00015437 * t2 - 0.000000150 * t3 + 0.00000000073 * t4;
    double e = 1 - 0.002516 * t - 0.0000074 * t2;
    double m = radians(2.5534 + 29.10535670 * k - 0.0000014 * t2 - 0.00000011 * t3);
    double mp = radians(201.5643 + 385.81693528 * k + 0.0107582 * t2 + 0.00001238 * t3 - 0.000000058 * t4);
    double f = radians(160.7108 + 390.67050284 * k - 0.0016118 * t2 - 0.00000227 * t3 + 0.000000011 * t4);
    double omega = radians(124.7746 - 1.56375588 * k + 0.0020672 * t2 + 0.00000215 * t3);

    double fraction = k - std::floor(k);
    double correction = 0;
    if (fraction < 0.125 || fraction > 0.875 || (fraction > 0.375 && fraction < 0.625)) {
        bool full = fraction > 0.375 && fraction < 0.625;
        correction = (full ? -0.40614 : -0.40720) * std::sin(mp) + (full ? 0.17302 : 0.17241) * e * std::sin(m)
            + (full ? 0.01614 : 0.01608) * std::sin(2 * mp) + (full ? 0.01043 : 0.01039) * std::sin(2 * f)
            + (full ? 0.00734 : 0.00739) * e * std::sin(mp - m) - (full ? 0.00515 : 0.00514) * e * std::sin(mp + m)
            + (full ? 0.00209 : 0.00208) * e * e * std::sin(2 * m) - 0.00111 * std::sin(mp - 2 * f)
            - 0.00057 * std::sin(mp + 2 * f) + 0.00056 * e * std::sin(2 * mp + m) - 0.00042 * std::sin(3 * mp)
            + 0.00042 * e * std::sin(m + 2 * f) + 0.00038 * e * std::sin(m - 2 * f) - 0.00024 * e * std::sin(2 * mp - m)
            - 0.00017 * std::sin(omega) - 0.00007 * std::sin(mp + 2 * m) + 0.00004 * std::sin(2 * mp - 2 * f)
            + 0.00004 * std::sin(3 * m) + 0.00003 * std::sin(mp + m - 2 * f) + 0.00003 * std::sin(2 * mp + 2 * f)
            - 0.00003 * std::sin(mp + m + 2 * f) + 0.00003 * std::sin(mp - m + 2 * f) - 0.00002 * std::sin(mp - m - 2 * f)
            - 0.00002 * std::sin(3 * mp + m) + 0.00002 * std::sin(4 * mp);
    } else {
        correction = -0.62801 * std::sin(mp) + 0.17172 * e * std::sin(m) - 0.01183 * e * std::sin(mp + m)
            + 0.00862 * std::sin(2 * mp) + 0.00804 * std::sin(2 * f) + 0.00454 * e * std::sin(mp - m)
            + 0.00204 * e * e * std::sin(2 * m) - 0.00180 * std::sin(mp - 2 * f) - 0.00070 * std::sin(mp + 2 * f)
            - 0.00040 * std::sin(3 * mp) - 0.00034 * e * std::sin(2 * mp - m) + 0.00032 * e * std::sin(m + 2 * f)
            + 0.00032 * e * std::sin(m - 2 * f) - 0.00028 * e * e * std::sin(mp + 2 * m) + 0.00027 * e * std::sin(2 * mp + m)
            - 0.00017 * std::sin(omega) - 0.00005 * std::sin(mp - m - 2 * f) + 0.00004 * std::sin(2 * mp + 2 * f)
            - 0.00004 * std::sin(mp + m + 2 * f) + 0.00004 * std::sin(mp - 2 * m) + 0.00003 * std::sin(mp + m - 2 * f)
            + 0.00003 * std::sin(3 * m) + 0.00002 * std::sin(2 * mp - 2 * f) + 0.00002 * std::sin(mp - m + 2 * f)
            - 0.00002 * std::sin(3 * mp + m);
        double w = 0.00306 - 0.00038 * e * std::cos(m) + 0.00026 * std::cos(mp) - 0.00002 * std::cos(mp - m)
            + 0.00002 * std::cos(mp + m) + 0.00002 * std::cos(2 * f);
        correction += fraction < 0.5 ? w : -w;
    }

    // The planetary arguments, common to all four phases.
    constexpr std::array<std::array<double, 3>, 14> planets { {
        { 299.77, 0.107408, 0.000325 },
        { 251.88, 0.016321, 0.000165 },
        { 251.83, 26.651886, 0.000164 },
        { 349.42, 36.412478, 0.000126 },
        { 84.66, 18.206239, 0.000110 },
        { 141.74, 53.303771, 0.000062 },
        { 207.14, 2.453732, 0.000060 },
        { 154.84, 7.306860, 0.000056 },
        { 34.52, 27.261239, 0.000047 },
        { 207.19, 0.121824, 0.000042 },
        { 291.34, 1.844379, 0.000040 },
        { 161.72, 24.198154, 0.000037 },
        { 239.56, 25.513099, 0.000035 },
        { 331.55, 3.592518, 0.000023 },
    } };
    double additional = 0;
    for (size_t index = 0; index < planets.size(); ++index) {
        double argument = planets[index][0] + planets[index][1] * k - (index == 0 ? 0.009173 * t2 : 0);
        additional += planets[index][2] * std::sin(radians(argument));
    }
    return jde + correction + additional;
}

// From the dynamical time of the series to the clocks' time.
Date dateOfPhase(double k)
{
    double jde = truePhase(k);
    return dateOfJulianDay(jde - deltaTSeconds(yearOf(jde)) / secondsPerDay);
}

// The lunation number a little before `moment`, so that counting up from it finds every phase.
double lunationBefore(Date moment)
{
    return std::floor((julianDay(moment) - 2451550.09766) / synodicMonth) - 1;
}

// Meeus 48.4 with the mean elongation and anomalies of chapter 47: the phase angle, to about
// a tenth of a degree, which is plenty for a share of the disk.
double illuminatedFraction(Date moment)
{
    double julian = julianDay(moment);
    double t = (julian + deltaTSeconds(yearOf(julian)) / secondsPerDay - 2451545.0) / 36525;
    double t2 = t * t;
    double t3 = t2 * t;
    double t4 = t3 * t;
    double d = 297.8501921 + 445267.1114034 * t - 0.0018819 * t2 + t3 / 545868 - t4 / 113065000;
    double m = 357.5291092 + 35999.0502909 * t - 0.0001536 * t2 + t3 / 24490000;
    double mp = 134.9633964 + 477198.8675055 * t + 0.0087414 * t2 + t3 / 69699 - t4 / 14712000;
    double angle = 180 - d - 6.289 * std::sin(radians(mp)) + 2.100 * std::sin(radians(m))
        - 1.274 * std::sin(radians(2 * d - mp)) - 0.658 * std::sin(radians(2 * d)) - 0.214 * std::sin(radians(2 * mp))
        - 0.110 * std::sin(radians(d));
    return (1 + std::cos(radians(angle))) / 2;
}

} // namespace

std::string_view toString(MoonPhaseName name)
{
    return phaseNames.name(name);
}

std::optional<MoonPhaseName> moonPhaseNameFromString(std::string_view raw)
{
    return phaseNames.value(raw);
}

std::string_view moonPhaseTitle(MoonPhaseName name)
{
    switch (name) {
    case MoonPhaseName::newMoon:
        return "New moon";
    case MoonPhaseName::waxingCrescent:
        return "Waxing crescent";
    case MoonPhaseName::firstQuarter:
        return "First quarter";
    case MoonPhaseName::waxingGibbous:
        return "Waxing gibbous";
    case MoonPhaseName::fullMoon:
        return "Full moon";
    case MoonPhaseName::waningGibbous:
        return "Waning gibbous";
    case MoonPhaseName::lastQuarter:
        return "Last quarter";
    case MoonPhaseName::waningCrescent:
        return "Waning crescent";
    }
    return "";
}

Date nextMoonPhase(Date after, MoonPhaseEvent event)
{
    double offset = static_cast<int>(event) * 0.25;
    for (double k = lunationBefore(after) + offset;; k += 1) {
        Date instant = dateOfPhase(k);
        if (instant > after)
            return instant;
    }
}

MoonReading moonAt(Date moment)
{
    // The phase before the moment and the one after it, counting in quarters.
    double k = lunationBefore(moment);
    Date previous = dateOfPhase(k);
    Date next = dateOfPhase(k + 0.25);
    while (next <= moment) {
        k += 0.25;
        previous = next;
        next = dateOfPhase(k + 0.25);
    }
    double quarter = k - std::floor(k);
    int lastEvent = static_cast<int>(std::lround(quarter * 4)) % 4;
    double lastNewMoon = std::floor(k + 1e-9);

    MoonReading reading;
    reading.illumination = std::clamp(illuminatedFraction(moment), 0.0, 1.0);
    Date newMoon = dateOfPhase(lastNewMoon);
    Date following = dateOfPhase(lastNewMoon + 1);
    reading.ageDays = secondsBetween(newMoon, moment).count() / secondsPerDay;
    reading.cycle = std::clamp(secondsBetween(newMoon, moment) / secondsBetween(newMoon, following), 0.0, 0.999999);

    // A phase is named for the day either side of its instant; in between, for the stretch.
    constexpr double namedDays = 1;
    double sinceEvent = secondsBetween(previous, moment).count() / secondsPerDay;
    double untilEvent = secondsBetween(moment, next).count() / secondsPerDay;
    static constexpr std::array<MoonPhaseName, 4> events { MoonPhaseName::newMoon, MoonPhaseName::firstQuarter,
                                                           MoonPhaseName::fullMoon, MoonPhaseName::lastQuarter };
    static constexpr std::array<MoonPhaseName, 4> stretches { MoonPhaseName::waxingCrescent, MoonPhaseName::waxingGibbous,
                                                              MoonPhaseName::waningGibbous, MoonPhaseName::waningCrescent };
    if (untilEvent < namedDays && untilEvent <= sinceEvent)
        reading.phase = events[static_cast<size_t>((lastEvent + 1) % 4)];
    else if (sinceEvent < namedDays)
        reading.phase = events[static_cast<size_t>(lastEvent)];
    else
        reading.phase = stretches[static_cast<size_t>(lastEvent)];
    return reading;
}

} // namespace kestrune
