#include "KestruneDock/Desktop/DesktopApplications.h"

#include <algorithm>
#include <filesystem>

namespace kestrune {

namespace {

// What a window of no entry is called: its class ("Gimp"), else its instance, else its program.
std::string windowName(const WindowFacts& facts)
{
    std::string name = !facts.wmClass.empty() ? facts.wmClass
        : !facts.wmClassInstance.empty()      ? facts.wmClassInstance
                                              : std::filesystem::path(facts.executable).filename().string();
    // It becomes part of a path and a file name: no separators, no control characters.
    for (char& c : name)
        if (c == '/' || static_cast<unsigned char>(c) < 0x20)
            c = '_';
    if (name == "." || name == "..")
        name.clear();
    return name;
}

} // namespace

std::vector<DesktopApplication> groupWindows(std::span<const DesktopWindow> windows, std::span<const DesktopEntryFacts> entries)
{
    std::vector<DesktopApplication> applications;
    for (const DesktopWindow& window : windows) {
        auto match = matchWindow(window.facts, entries);
        std::string path;
        std::string name;
        if (match.entry) {
            path = entries[*match.entry].path;
        } else {
            name = windowName(window.facts);
            if (name.empty())
                continue;
            path = std::string(windowApplicationScheme) + name;
        }
        auto found = std::find_if(applications.begin(), applications.end(), [&](const auto& a) { return a.path == path; });
        if (found == applications.end())
            applications.push_back({ path, window.pid, { window.window }, std::move(name) });
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
