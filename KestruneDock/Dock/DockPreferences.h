#pragma once
// The dock's own settings in the application's preferences, read in one go with the values a
// first start uses. The import of the system dock's look writes the first four.

#include <cstdint>
#include <string_view>

#include "KestruneDock/Dock/DockEdge.h"
#include "KestruneKit/Core/RawNames.h"
#include "KestruneKit/Preferences/Preferences.h"

namespace kestrune {

// Which screen the dock lives on, stored by raw name under "dockScreen": the primary one, or the
// one the pointer last pushed against the dock's edge of.
enum class DockScreenChoice : uint8_t { primary, pointer };

inline constexpr RawNames<DockScreenChoice, 2> dockScreenChoiceNames { { {
    { DockScreenChoice::primary, "primary" },
    { DockScreenChoice::pointer, "pointer" },
} } };

struct DockPreferences {
    static constexpr std::string_view iconSizeKey = "iconSize";
    static constexpr std::string_view magnifiedSizeKey = "magnifiedSize";
    static constexpr std::string_view magnificationKey = "magnification";
    static constexpr std::string_view edgeKey = "edge";
    static constexpr std::string_view autohideKey = "autohide";
    static constexpr std::string_view animateLaunchKey = "animateLaunch";
    static constexpr std::string_view showIndicatorsKey = "showIndicators";
    static constexpr std::string_view showRecentsKey = "showRecents";
    static constexpr std::string_view minimizeIntoAppKey = "minimizeIntoApp";
    static constexpr std::string_view screenKey = "dockScreen";

    double iconSize = 52;
    double magnifiedSize = 80;
    bool magnification = true;
    DockEdge edge = DockEdge::bottom;
    bool autohide = false;
    bool animateLaunch = true;
    bool showIndicators = true;
    bool showRecents = true;
    bool minimizeIntoApp = false;
    DockScreenChoice screen = DockScreenChoice::primary;

    // Missing, mistyped or unknown values fall back to the ones above.
    [[nodiscard]] static DockPreferences read(const Preferences& preferences);
    [[nodiscard]] static bool isDockKey(std::string_view key);
};

} // namespace kestrune
