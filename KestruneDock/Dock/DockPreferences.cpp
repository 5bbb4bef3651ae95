#include "KestruneDock/Dock/DockPreferences.h"

#include <cmath>

namespace kestrune {

DockPreferences DockPreferences::read(const Preferences& preferences)
{
    DockPreferences values;
    auto size = [&](std::string_view key, double fallback) {
        auto stored = preferences.doubleValue(key);
        return stored && std::isfinite(*stored) && *stored > 0 ? *stored : fallback;
    };
    values.iconSize = size(iconSizeKey, values.iconSize);
    values.magnifiedSize = size(magnifiedSizeKey, values.magnifiedSize);
    values.magnification = preferences.boolValue(magnificationKey).value_or(values.magnification);
    if (auto edge = preferences.stringValue(edgeKey))
        values.edge = dockEdgeFromString(*edge).value_or(values.edge);
    values.autohide = preferences.boolValue(autohideKey).value_or(values.autohide);
    values.animateLaunch = preferences.boolValue(animateLaunchKey).value_or(values.animateLaunch);
    values.showIndicators = preferences.boolValue(showIndicatorsKey).value_or(values.showIndicators);
    values.showRecents = preferences.boolValue(showRecentsKey).value_or(values.showRecents);
    values.minimizeIntoApp = preferences.boolValue(minimizeIntoAppKey).value_or(values.minimizeIntoApp);
    if (auto screen = preferences.stringValue(screenKey))
        values.screen = dockScreenChoiceNames.value(*screen).value_or(values.screen);
    return values;
}

bool DockPreferences::isDockKey(std::string_view key)
{
    for (auto known : { iconSizeKey, magnifiedSizeKey, magnificationKey, edgeKey, autohideKey, animateLaunchKey,
             showIndicatorsKey, showRecentsKey, minimizeIntoAppKey, screenKey })
        if (key == known)
            return true;
    return false;
}

} // namespace kestrune
