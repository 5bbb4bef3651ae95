#pragma once
// OVERVIEW
// The moon's phase at any moment, and the instants of its new and full moons, computed from the
// series in Jean Meeus, "Astronomical Algorithms" (2nd ed., Willmann-Bell 1998): chapter 49 for
// the mean and true phases (good to a few minutes over centuries around 2000) and chapter 48 for
// the illuminated fraction of the disk, from the mean elements of chapter 47.
//
// TYPICAL USAGE
//   MoonReading tonight = moonAt(runtime.now());
//   tonight.illumination;                       // 0.98
//   toString(tonight.phase);                    // "waxingGibbous"
//   Date next = nextMoonPhase(now, MoonPhaseEvent::fullMoon);
//
// Pure functions; any thread.

#include <optional>
#include <string_view>

#include "KestruneKit/Core/Runtime.h"

namespace kestrune {

enum class MoonPhaseName { newMoon, waxingCrescent, firstQuarter, waxingGibbous, fullMoon, waningGibbous, lastQuarter, waningCrescent };

[[nodiscard]] std::string_view toString(MoonPhaseName name);
[[nodiscard]] std::optional<MoonPhaseName> moonPhaseNameFromString(std::string_view raw);
// "Waxing crescent", "Full moon" ...
[[nodiscard]] std::string_view moonPhaseTitle(MoonPhaseName name);

enum class MoonPhaseEvent { newMoon, firstQuarter, fullMoon, lastQuarter };

struct MoonReading {
    // Lit share of the disk, 0 at new moon to 1 at full.
    double illumination = 0;
    // Where in the lunation, 0 at new moon, 0.5 at full, just under 1 before the next new.
    double cycle = 0;
    // Days since the last new moon.
    double ageDays = 0;
    MoonPhaseName phase = MoonPhaseName::newMoon;
};

[[nodiscard]] MoonReading moonAt(Date moment);

// The first instant of that phase after `after` (UTC).
[[nodiscard]] Date nextMoonPhase(Date after, MoonPhaseEvent event);

} // namespace kestrune
