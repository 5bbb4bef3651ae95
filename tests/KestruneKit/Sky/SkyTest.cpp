// The moon's phases against the instants almanacs publish, and sunrise and sunset against known
// days, near and beyond the polar circles.

#include <chrono>

#include <gtest/gtest.h>

#include "KestruneKit/Sky/MoonPhase.h"
#include "KestruneKit/Sky/SunTimes.h"

namespace kestrune {
namespace {

using namespace std::chrono;

Date utc(int y, unsigned m, unsigned d, int hour = 0, int minute = 0)
{
    return Date(sys_days(year(y) / month(m) / day(d)) + hours(hour) + minutes(minute));
}

double minutesApart(Date a, Date b)
{
    return std::abs(duration<double>(a - b).count()) / 60;
}

TEST(MoonPhase, NewAndFullMoonsFallWithinMinutesOfTheAlmanacs)
{
    // UTC instants as published (many of them eclipses, whose times are widely printed).
    struct Known {
        Date instant;
        MoonPhaseEvent event;
    };
    const Known table[] = {
        { utc(2022, 11, 8, 11, 2), MoonPhaseEvent::fullMoon },
        { utc(2023, 4, 20, 4, 12), MoonPhaseEvent::newMoon },
        { utc(2024, 1, 11, 11, 57), MoonPhaseEvent::newMoon },
        { utc(2024, 1, 18, 3, 52), MoonPhaseEvent::firstQuarter },
        { utc(2024, 3, 25, 7, 0), MoonPhaseEvent::fullMoon },
        { utc(2024, 4, 8, 18, 21), MoonPhaseEvent::newMoon },
        { utc(2024, 9, 18, 2, 34), MoonPhaseEvent::fullMoon },
        { utc(2024, 10, 2, 18, 49), MoonPhaseEvent::newMoon },
        { utc(2025, 3, 14, 6, 55), MoonPhaseEvent::fullMoon },
        { utc(2025, 3, 29, 10, 58), MoonPhaseEvent::newMoon },
        { utc(2025, 9, 7, 18, 9), MoonPhaseEvent::fullMoon },
    };
    for (const Known& known : table) {
        // Asked from four days before, the next one is the one in the table.
        Date found = nextMoonPhase(known.instant - days(4), known.event);
        EXPECT_LT(minutesApart(found, known.instant), 3) << duration_cast<minutes>(found.time_since_epoch()).count();
    }
    // Meeus's own worked example: the new moon of February 1977 at 3:37:42 dynamical time.
    Date example = nextMoonPhase(utc(1977, 2, 10), MoonPhaseEvent::newMoon);
    EXPECT_LT(minutesApart(example, utc(1977, 2, 18, 3, 37) + seconds(42 - 48)), 1);
}

TEST(MoonPhase, TheDiskFillsAndEmptiesAcrossOneLunation)
{
    MoonReading atNew = moonAt(utc(2024, 4, 8, 18, 21));
    EXPECT_LT(atNew.illumination, 0.005);
    EXPECT_EQ(atNew.phase, MoonPhaseName::newMoon);
    EXPECT_LT(atNew.ageDays, 0.01);

    MoonReading waxing = moonAt(utc(2024, 4, 11));
    EXPECT_EQ(waxing.phase, MoonPhaseName::waxingCrescent);
    EXPECT_GT(waxing.illumination, 0.05);
    EXPECT_LT(waxing.illumination, 0.25);

    MoonReading quarter = moonAt(utc(2024, 1, 18, 3, 52));
    EXPECT_EQ(quarter.phase, MoonPhaseName::firstQuarter);
    EXPECT_NEAR(quarter.illumination, 0.5, 0.02);

    MoonReading full = moonAt(utc(2025, 3, 14, 6, 55));
    EXPECT_GT(full.illumination, 0.995);
    EXPECT_EQ(full.phase, MoonPhaseName::fullMoon);
    EXPECT_NEAR(full.cycle, 0.5, 0.03);

    MoonReading waning = moonAt(utc(2025, 3, 25));
    EXPECT_EQ(waning.phase, MoonPhaseName::waningCrescent);
    EXPECT_GT(waning.cycle, 0.8);
    EXPECT_EQ(moonPhaseNameFromString(toString(waning.phase)), MoonPhaseName::waningCrescent);
    EXPECT_EQ(moonPhaseTitle(MoonPhaseName::waningGibbous), "Waning gibbous");
}

TEST(SunTimes, RisesAndSetsAsTheAlmanacSaysAndNotAtAllBeyondThePolarCircles)
{
    const GeoLocation london { 51.5072, -0.1276 };
    SunDay midsummer = sunOn(utc(2024, 6, 21, 12), london);
    ASSERT_EQ(midsummer.kind, SunDay::Kind::risesAndSets);
    EXPECT_LT(minutesApart(*midsummer.rise, utc(2024, 6, 21, 3, 43)), 3);
    EXPECT_LT(minutesApart(*midsummer.set, utc(2024, 6, 21, 20, 21)), 3);

    // East of Greenwich, the same sums give the local day, not the one before.
    const GeoLocation tokyo { 35.6895, 139.6917 };
    SunDay winter = sunOn(utc(2024, 12, 21, 3), tokyo);
    ASSERT_TRUE(winter.rise && winter.set);
    EXPECT_LT(minutesApart(*winter.rise, utc(2024, 12, 20, 21, 47)), 3);
    EXPECT_LT(minutesApart(*winter.set, utc(2024, 12, 21, 7, 32)), 3);

    const GeoLocation tromso { 69.6492, 18.9553 };
    EXPECT_EQ(sunOn(utc(2024, 12, 21, 11), tromso).kind, SunDay::Kind::polarNight);
    EXPECT_EQ(sunOn(utc(2024, 6, 21, 11), tromso).kind, SunDay::Kind::polarDay);
}

TEST(SunTimes, AZoneIsPlacedByTheTablesCoordinates)
{
    const std::string table = "# comment\n"
                              "GB,GG,IM,JE\t+513030-0000731\tEurope/London\n"
                              "JP\t+353916+1394441\tAsia/Tokyo\tmain\n"
                              "AR\t-3436-05827\tAmerica/Argentina/Buenos_Aires\tBuenos Aires (BA, CF)\n"
                              "XX\tnonsense\tBroken/Zone\n";
    auto london = zoneLocation(table, "Europe/London");
    ASSERT_TRUE(london);
    EXPECT_NEAR(london->latitude, 51.508, 0.001);
    EXPECT_NEAR(london->longitude, -0.1253, 0.001);
    auto buenosAires = zoneLocation(table, "America/Argentina/Buenos_Aires");
    ASSERT_TRUE(buenosAires);
    EXPECT_NEAR(buenosAires->latitude, -34.6, 0.001);
    EXPECT_NEAR(buenosAires->longitude, -58.45, 0.001);
    EXPECT_TRUE(zoneLocation(table, "Asia/Tokyo"));
    EXPECT_FALSE(zoneLocation(table, "Broken/Zone"));
    EXPECT_FALSE(zoneLocation(table, "Etc/UTC"));
    EXPECT_FALSE(zoneLocation(table, "Europe"));
    // The machine's own table, when it has one, knows a well-known zone.
    std::string installed = readZoneTable();
    if (!installed.empty()) {
        EXPECT_TRUE(zoneLocation(installed, "Europe/Paris"));
    }
}

} // namespace
} // namespace kestrune
