#pragma once
// The desktop as a test wants it: installed apps, running apps and launches, all set by hand.

#include <map>
#include <set>

#include "KestruneDock/Dock/Workspace.h"
#include "KestruneKit/Core/ObserverList.h"

namespace kestrune::test {

class FakeWorkspace final : public Workspace {
public:
    std::string suffix = ".app";
    std::vector<RunningApplication> running;
    std::map<DockDefaultApp, std::string> defaults;
    std::set<std::string> files;
    std::map<std::string, DockIconSource> icons;
    std::vector<std::string> launched;
    std::function<void(bool)> pendingLaunch;
    int64_t self = 1;

    void setRunning(std::vector<RunningApplication> applications)
    {
        running = std::move(applications);
        watchers.notify();
    }

    std::string_view applicationSuffix() const override { return suffix; }
    std::vector<RunningApplication> runningApplications() const override { return running; }
    uint64_t watchRunningApplications(std::function<void()> changed) override { return watchers.add(std::move(changed)); }
    void unwatchRunningApplications(uint64_t id) override { watchers.remove(id); }
    int64_t thisProcess() const override { return self; }
    std::optional<std::string> applicationPath(std::string_view) const override { return std::nullopt; }
    std::optional<std::string> defaultApplication(DockDefaultApp role) const override
    {
        auto found = defaults.find(role);
        return found == defaults.end() ? std::nullopt : std::optional(found->second);
    }
    std::string displayName(const std::string& path) const override { return "name of " + path; }
    std::optional<DockIconSource> icon(const std::string& path) const override
    {
        auto found = icons.find(path);
        return found == icons.end() ? std::nullopt : std::optional(found->second);
    }
    bool fileExists(const std::string& path) const override { return files.contains(path); }
    void launch(const std::string& path, std::function<void(bool)> finished) override
    {
        launched.push_back(path);
        pendingLaunch = std::move(finished);
    }

    ObserverList<> watchers;
};

} // namespace kestrune::test
