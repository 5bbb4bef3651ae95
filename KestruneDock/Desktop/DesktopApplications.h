#pragma once
// From windows to running applications: each window is matched to its desktop entry and the
// windows are grouped by entry, in the order their first windows appeared. And which window a
// click on a running app's tile brings forward.
//
//   auto applications = groupWindows(windows, entries);
//   if (auto window = windowToActivate(applications[0], active, byRecentUse)) activate(*window);
//
// Pure functions; the window system's reading is the caller's.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "KestruneDock/Desktop/WindowMatcher.h"

namespace kestrune {

struct DesktopWindow {
    uint32_t window = 0;
    int64_t pid = 0;
    WindowFacts facts;
    // From _NET_WM_STATE, followed as it changes.
    bool demandsAttention = false;
    bool fullScreen = false;
    bool minimized = false;
};

// The path that stands for the app of a window no desktop entry claims: "window:" and its class.
inline constexpr std::string_view windowApplicationScheme = "window:";

[[nodiscard]] inline bool isWindowApplication(std::string_view path) { return path.starts_with(windowApplicationScheme); }

struct DesktopApplication {
    // The matched entry's path, or for windows of no entry `windowApplicationScheme` and the name
    // they are known by.
    std::string path;
    // The process of its first window.
    int64_t pid = 0;
    std::vector<uint32_t> windows;
    // For windows of no entry: their name, from WM_CLASS (the class, else the instance, else the
    // program's file name). Empty for an entry's app.
    std::string name;
    bool operator==(const DesktopApplication&) const = default;
};

// Windows that match no entry are grouped by their name into apps of their own; a window with no
// name at all is left out.
[[nodiscard]] std::vector<DesktopApplication> groupWindows(std::span<const DesktopWindow> windows,
    std::span<const DesktopEntryFacts> entries);

// Its most recently used window; when one of its windows is already the active one, the next of
// its windows, so that clicking again goes through them all.
[[nodiscard]] std::optional<uint32_t> windowToActivate(const DesktopApplication& application, std::optional<uint32_t> active,
    std::span<const uint32_t> byRecentUse);

} // namespace kestrune
