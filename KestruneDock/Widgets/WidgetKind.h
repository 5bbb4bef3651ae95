#pragma once
// The closed catalogue of widgets: fifty kinds, each stored by its raw name, with a title, a
// one-line blurb and a gallery category; the faces of the five kinds that have more than one;
// and the five ready-made sets.
//
// The order of the enumeration is the catalogue's order: the gallery lists kinds in it, and
// `allWidgetKinds()` walks it.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kestrune {

enum class WidgetKind : uint8_t {
    nowPlaying, clock, battery, timer, sound, keepAwake, activity, drives, note, upNext,
    countdown, network, devices, micCamera, colorPicker, shortcuts, photoFrame, appearance, progress, moon,
    stopwatch, pomodoro, todo, counter, breathe, calculator, emoji, screenshot, mirror, storage,
    devServers, lockSleep, desktopIcons, clipboard, controls, spaces, screenTime, dictionary, converter, qrCode,
    generator, textTools, shelf, git, github, containers, simulators, endpoints, timestamp, aiUsage,
};

inline constexpr size_t widgetKindCount = 50;

enum class WidgetCategory : uint8_t { time, focus, media, yourMac, developer, tools };

inline constexpr std::array<WidgetCategory, 6> allWidgetCategories {
    WidgetCategory::time, WidgetCategory::focus, WidgetCategory::media,
    WidgetCategory::yourMac, WidgetCategory::developer, WidgetCategory::tools,
};

// The gallery's seventh, unfiltered entry.
inline constexpr std::string_view allWidgetsTitle = "All widgets";

[[nodiscard]] std::span<const WidgetKind, widgetKindCount> allWidgetKinds();

[[nodiscard]] std::string_view toString(WidgetKind kind);
[[nodiscard]] std::optional<WidgetKind> widgetKindFromString(std::string_view raw);
[[nodiscard]] std::string_view title(WidgetKind kind);
[[nodiscard]] std::string_view blurb(WidgetKind kind);
[[nodiscard]] WidgetCategory category(WidgetKind kind);
// Retired kinds stay valid when stored but are never offered: drives, devices, screenshot.
[[nodiscard]] bool isRetired(WidgetKind kind);
// The kind a retired one is folded into when the list is loaded; none for the others (and for
// screenshot, which stays as it is).
[[nodiscard]] std::optional<WidgetKind> successor(WidgetKind kind);

[[nodiscard]] std::string_view title(WidgetCategory category);
[[nodiscard]] std::string_view symbol(WidgetCategory category);

// A named face of a kind: what an instance stores in its `style`, and what the inspector shows.
struct WidgetStyle {
    std::string identifier;
    std::string title;

    bool operator==(const WidgetStyle&) const = default;
};

struct WidgetStyleHash {
    size_t operator()(const WidgetStyle& style) const;
};

// The faces of a kind, the default first; empty for kinds with a single look.
[[nodiscard]] const std::vector<WidgetStyle>& faces(WidgetKind kind);
// The first face's identifier, or "" for kinds without faces.
[[nodiscard]] std::string defaultStyle(WidgetKind kind);

struct WidgetPreset {
    std::string_view title;
    std::string_view subtitle;
    std::string_view symbol;
    std::vector<WidgetKind> kinds;

    // "Use the Everyday widgets"
    [[nodiscard]] std::string buttonTitle() const;
};

[[nodiscard]] const std::vector<WidgetPreset>& allWidgetPresets();
[[nodiscard]] const WidgetPreset* widgetPreset(std::string_view title);

// The preset inspector's pseudo-entry for the set in the dock now.
inline constexpr std::string_view currentWidgetsTitle = "The ones in your Dock now";

} // namespace kestrune
