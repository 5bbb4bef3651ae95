#pragma once
// The dock's own settings in the application's preferences, read in one go with the values a
// first start uses. The import of the system dock's look writes the first four.

#include <string_view>

#include "KestruneDock/Dock/DockEdge.h"
#include "KestruneKit/Preferences/Preferences.h"

namespace kestrune {

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

    double iconSize = 52;
    double magnifiedSize = 80;
    bool magnification = true;
    DockEdge edge = DockEdge::bottom;
    bool autohide = false;
    bool animateLaunch = true;
    bool showIndicators = true;
    bool showRecents = true;
    bool minimizeIntoApp = false;

    // Missing, mistyped or unknown values fall back to the ones above.
    [[nodiscard]] static DockPreferences read(const Preferences& preferences);
    [[nodiscard]] static bool isDockKey(std::string_view key);
};

} // namespace kestrune
