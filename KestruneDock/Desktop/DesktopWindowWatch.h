#pragma once
// Connects the window system to the dock's store on Linux: the windows the window manager lists
// become the workspace's running applications, and a click on a running app's tile brings its
// window forward (the next one on a second click). Windows no desktop entry claims are apps of
// their own, shown with the windows' own icon.
//
//   DesktopWindowWatch watch(workspace);
//
// Main thread only.

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <optional>

#include "KestruneDock/Desktop/DesktopApplications.h"
#include "KestruneKit/Core/Runtime.h"

namespace kestrune {

class WorkspaceLinux;
class X11WindowList;

class DesktopWindowWatch {
public:
    // Entries are read again for an unknown window at most this often (an app just installed).
    static constexpr double entriesRereadSeconds = 10;
    // The window icon size asked for: enough for a magnified tile.
    static constexpr int iconSize = 128;

    DesktopWindowWatch(WorkspaceLinux& workspace, Runtime& runtime);
    ~DesktopWindowWatch();
    DesktopWindowWatch(const DesktopWindowWatch&) = delete;
    DesktopWindowWatch& operator=(const DesktopWindowWatch&) = delete;

    [[nodiscard]] bool isWatching() const;
    [[nodiscard]] const std::vector<DesktopApplication>& applications() const { return applications_; }
    // Apps with a window asking for attention.
    [[nodiscard]] std::set<std::string> demandingAttention() const;
    // Minimized windows, oldest first: the window, its title and its app's path.
    struct Minimized {
        uint32_t window = 0;
        std::string title;
        std::string path;
    };
    [[nodiscard]] std::vector<Minimized> minimizedWindows() const;
    // Whether the active window fills its screen.
    [[nodiscard]] bool activeIsFullScreen() const;
    // Told after the windows or their states changed.
    void setChanged(std::function<void()> changed) { changed_ = std::move(changed); }
    // An app's windows, oldest first, with their titles.
    [[nodiscard]] std::vector<std::pair<uint32_t, std::string>> windows(const std::string& path) const;
    void activateWindow(uint32_t window);
    // Asks each of the app's windows to close, as a taskbar's close does; false when it has none.
    bool close(const std::string& path);
    // The processes of the app's windows.
    [[nodiscard]] std::vector<int64_t> processes(const std::string& path) const;

private:
    void update();
    // Writes the icon of a window of no entry where the dock's icons are read from.
    void readIcon(const DesktopApplication& application);
    bool activate(const std::string& path);

    WorkspaceLinux& workspace_;
    Runtime& runtime_;
    std::unique_ptr<X11WindowList> windows_;
    std::vector<DesktopApplication> applications_;
    std::optional<Date> entriesRead_;
    std::map<std::string, std::string> iconFiles_;
    std::set<uint32_t> iconsAsked_;
    std::function<void()> changed_;
};

} // namespace kestrune
