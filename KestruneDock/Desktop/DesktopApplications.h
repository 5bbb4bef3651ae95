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
};

struct DesktopApplication {
    // The matched entry's path.
    std::string path;
    // The process of its first window.
    int64_t pid = 0;
    std::vector<uint32_t> windows;
    bool operator==(const DesktopApplication&) const = default;
};

// Windows that match no entry are left out (they are no application the dock knows).
[[nodiscard]] std::vector<DesktopApplication> groupWindows(std::span<const DesktopWindow> windows,
    std::span<const DesktopEntryFacts> entries);

// Its most recently used window; when one of its windows is already the active one, the next of
// its windows, so that clicking again goes through them all.
[[nodiscard]] std::optional<uint32_t> windowToActivate(const DesktopApplication& application, std::optional<uint32_t> active,
    std::span<const uint32_t> byRecentUse);

} // namespace kestrune
