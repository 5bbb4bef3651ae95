#pragma once
// What the dock needs from the desktop about applications: which run, where an application is,
// what it is called and looks like, and opening it. One implementation per platform (`.app`
// bundles on macOS, `.desktop` entries on Linux) and a fake for tests.
//
// Main thread only; callbacks are called on the main thread.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kestrune {

class Runtime;

struct RunningApplication {
    int64_t processIdentifier = 0;
    // The application's bundle (macOS) or desktop entry (Linux); empty when it has none.
    std::string path;
    // The application has finished launching (on Linux: its first window is up).
    bool finishedLaunching = true;

    bool operator==(const RunningApplication&) const = default;
};

// The roles of the apps pinned on a first start, in the order they are pinned.
enum class DockDefaultApp : uint8_t { fileManager, webBrowser, mail, music, notes, settings };

inline constexpr DockDefaultApp dockDefaultApps[] {
    DockDefaultApp::fileManager, DockDefaultApp::webBrowser, DockDefaultApp::mail,
    DockDefaultApp::music, DockDefaultApp::notes, DockDefaultApp::settings,
};

// Where an application's icon comes from: a file, or a name in the desktop's icon theme.
struct DockIconSource {
    std::string name;
    // The stand-in drawn for an application whose own icon cannot be had.
    bool generic = false;

    bool operator==(const DockIconSource&) const = default;
};

class Workspace {
public:
    virtual ~Workspace() = default;

    // The platform's workspace; `runtime` carries its notifications to the main thread.
    [[nodiscard]] static std::unique_ptr<Workspace> forThisPlatform(Runtime& runtime);

    // ".app" on macOS, ".desktop" on Linux: the ending of every application path.
    [[nodiscard]] virtual std::string_view applicationSuffix() const = 0;

    // In the order they started.
    [[nodiscard]] virtual std::vector<RunningApplication> runningApplications() const = 0;
    // Told after every change of that list: a start, a quit, a launch that finished.
    virtual uint64_t watchRunningApplications(std::function<void()> changed) = 0;
    virtual void unwatchRunningApplications(uint64_t id) = 0;
    [[nodiscard]] virtual int64_t thisProcess() const = 0;

    // The installed application with this identifier (bundle identifier or desktop-entry id).
    [[nodiscard]] virtual std::optional<std::string> applicationPath(std::string_view identifier) const = 0;
    // The installed application that serves the role, or none.
    [[nodiscard]] virtual std::optional<std::string> defaultApplication(DockDefaultApp role) const = 0;
    [[nodiscard]] virtual std::string displayName(const std::string& path) const = 0;
    [[nodiscard]] virtual std::optional<DockIconSource> icon(const std::string& path) const = 0;
    [[nodiscard]] virtual bool fileExists(const std::string& path) const = 0;

    // Opens the application (or brings it forward when it runs). `finished` is called once, on the
    // main thread, when the launch is over: true once the application is up, false when it could
    // not be opened.
    virtual void launch(const std::string& path, std::function<void(bool launched)> finished) = 0;
};

} // namespace kestrune
