#pragma once
// The Linux workspace: applications are desktop entries read through GIO, as the desktop itself
// reads them. Which of them run is the window system's to say; the application's window watch
// tells it (`setRunningApplications`) and brings running ones forward (`setActivator`).
//
// Main thread only.

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "KestruneDock/Desktop/DesktopApplications.h"
#include "KestruneDock/Desktop/WindowMatcher.h"
#include "KestruneDock/Dock/Workspace.h"
#include "KestruneKit/Core/ObserverList.h"

namespace kestrune {

class WorkspaceLinux final : public Workspace {
public:
    explicit WorkspaceLinux(Runtime& runtime);

    [[nodiscard]] std::string_view applicationSuffix() const override { return ".desktop"; }
    [[nodiscard]] std::vector<RunningApplication> runningApplications() const override { return running_; }
    uint64_t watchRunningApplications(std::function<void()> changed) override { return watchers_.add(std::move(changed)); }
    void unwatchRunningApplications(uint64_t id) override { watchers_.remove(id); }
    [[nodiscard]] int64_t thisProcess() const override;
    [[nodiscard]] std::optional<std::string> applicationPath(std::string_view identifier) const override;
    [[nodiscard]] std::optional<std::string> defaultApplication(DockDefaultApp role) const override;
    [[nodiscard]] std::string displayName(const std::string& path) const override;
    [[nodiscard]] std::optional<DockIconSource> icon(const std::string& path) const override;
    [[nodiscard]] bool fileExists(const std::string& path) const override;
    // A running app is brought forward through the activator; any other is started in a session
    // of its own (a dock that ends never takes the user's apps with it) and counts as launched
    // once a window of it is up.
    void launch(const std::string& path, std::function<void(bool launched)> finished) override;

    // Running apps are desktop entries, or (`isWindowApplication`) windows no entry claims: those
    // are named after their windows, and show the icon file given here.
    void setRunningApplications(std::vector<RunningApplication> running);
    // The entry's own actions ([Desktop Action …]): their id and name, in the entry's order.
    [[nodiscard]] std::vector<std::pair<std::string, std::string>> actions(const std::string& path) const;
    // Starts one of them, detached as a launch is; false when it cannot be started.
    bool launchAction(const std::string& path, const std::string& action);
    // Whether the app says it opens every one of these files (by their content type).
    [[nodiscard]] bool opensFiles(const std::string& path, const std::vector<std::string>& files) const;
    // Opens the files with the app; false when it cannot be started.
    bool openFiles(const std::string& path, const std::vector<std::string>& files);
    // Moves the files to the desktop's trash: the first problem met, or empty.
    [[nodiscard]] static std::string moveToTrash(const std::vector<std::string>& files);
    void setWindowApplicationIcon(const std::string& path, std::string iconFile) { windowIcons_[path] = std::move(iconFile); }
    // Brings a running app's window forward; false when it has none to bring.
    void setActivator(std::function<bool(const std::string& path)> activator) { activator_ = std::move(activator); }
    // The facts that tie windows to every installed application; read again on `reload`.
    [[nodiscard]] const std::vector<DesktopEntryFacts>& desktopEntries(bool reload = false);

private:
    Runtime& runtime_;
    ObserverList<> watchers_;
    std::vector<RunningApplication> running_;
    std::function<bool(const std::string&)> activator_;
    std::map<std::string, std::vector<std::function<void(bool)>>> pendingLaunches_;
    std::vector<DesktopEntryFacts> entries_;
    std::map<std::string, std::string> windowIcons_;
    bool entriesRead_ = false;
};

} // namespace kestrune
