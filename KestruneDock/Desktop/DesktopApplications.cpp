#include "KestruneDock/Desktop/DesktopApplications.h"

#include <algorithm>

namespace kestrune {

std::vector<DesktopApplication> groupWindows(std::span<const DesktopWindow> windows, std::span<const DesktopEntryFacts> entries)
{
    std::vector<DesktopApplication> applications;
    for (const DesktopWindow& window : windows) {
        auto match = matchWindow(window.facts, entries);
        if (!match.entry)
            continue;
        const std::string& path = entries[*match.entry].path;
        auto found = std::find_if(applications.begin(), applications.end(), [&](const auto& a) { return a.path == path; });
        if (found == applications.end())
            applications.push_back({ path, window.pid, { window.window } });
        else
            found->windows.push_back(window.window);
    }
    return applications;
}

std::optional<uint32_t> windowToActivate(const DesktopApplication& application, std::optional<uint32_t> active,
    std::span<const uint32_t> byRecentUse)
{
    const auto& windows = application.windows;
    if (windows.empty())
        return std::nullopt;
    if (active) {
        auto current = std::find(windows.begin(), windows.end(), *active);
        if (current != windows.end())
            return ++current == windows.end() ? windows.front() : *current;
    }
    for (uint32_t window : byRecentUse)
        if (std::find(windows.begin(), windows.end(), window) != windows.end())
            return window;
    return windows.front();
}

} // namespace kestrune
