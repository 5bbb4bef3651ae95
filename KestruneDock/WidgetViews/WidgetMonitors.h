#pragma once
// OVERVIEW
// The Kit's monitors as the widget tiles share them: each made on first use, one per kind of
// data, whatever number of tiles read it. Tiles register what they want (a Git tile its folder)
// and hear of every change; the monitors' pollers run only while some tile holds their want.
//
// TYPICAL USAGE
//   WidgetMonitors monitors(runtime);
//   monitors.setGitFolder(tileId, "/home/me/src/dock");
//   auto watch = monitors.addRepositoriesObserver([&](const std::string& folder) { ... });
//   monitors.repositories().poller().setWanted(tileId.toString(), true);
//
// Main thread only.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "KestruneDock/Desktop/WindowMatcher.h"
#include "KestruneKit/Core/ObserverList.h"
#include "KestruneKit/Core/Runtime.h"
#include "KestruneKit/AIUsage/AIUsageStatusLine.h"
#include "KestruneKit/Core/Uuid.h"

namespace kestrune {

class AIUsageEngine;
class ShellCommandRunner;
struct ShellCommandResult;
class ContainersMonitor;
struct ContainerEngineSetup;
class DevServersMonitor;
class EndpointsMonitor;
class PullRequestsMonitor;
struct GitHubRequests;
class RepositoriesMonitor;
class SimulatorsMonitor;
class SystemStatsSampler;
class StorageMonitor;
class ProcessesMonitor;
class BatteryMonitor;
class KeepAwakeCenter;
class SoundServer;
class CameraWatch;
class ScreenTimeCenter;
class X11Desktops;
class DesktopLook;

class WidgetMonitors {
public:
    explicit WidgetMonitors(Runtime& runtime);
    ~WidgetMonitors();
    WidgetMonitors(const WidgetMonitors&) = delete;
    WidgetMonitors& operator=(const WidgetMonitors&) = delete;

    [[nodiscard]] Runtime& runtime() { return runtime_; }

    [[nodiscard]] RepositoriesMonitor& repositories();
    // The folder a Git tile shows; none takes the tile's folder out of the monitor's reading.
    void setGitFolder(const Uuid& tile, std::optional<std::string> folder);
    uint64_t addRepositoriesObserver(std::function<void(const std::string& folder)> observer)
    {
        return repositoriesChanged_.add(std::move(observer));
    }
    void removeRepositoriesObserver(uint64_t id) { repositoriesChanged_.remove(id); }

    // The monitors read whole, each telling its tiles of every change.
    enum class Source { pullRequests, containers, devServers, endpoints, simulators, aiUsage, commands, systemStats, storage, processes, battery, keepAwake, sound, cameras, screenTime, desktops, look };
    [[nodiscard]] PullRequestsMonitor& pullRequests();
    // How the pull requests are asked for, before they first are: gh from its usual places
    // unless given.
    void setGitHubRequests(std::shared_ptr<const GitHubRequests> requests) { gitHubRequests_ = std::move(requests); }
    [[nodiscard]] ContainersMonitor& containers();
    // Where the container engine is, before it is first read: found on its own unless given.
    void setContainerEngine(std::shared_ptr<const ContainerEngineSetup> setup) { containerEngine_ = std::move(setup); }
    [[nodiscard]] DevServersMonitor& devServers();
    [[nodiscard]] EndpointsMonitor& endpoints();
    [[nodiscard]] SimulatorsMonitor& simulators();
    // The machine's load, sampled while a demand token is held; free space of each disk; the
    // busiest processes.
    [[nodiscard]] SystemStatsSampler& systemStats();
    [[nodiscard]] StorageMonitor& storage();
    [[nodiscard]] ProcessesMonitor& processes();
    // UPower's batteries, the machine's and accessories'.
    [[nodiscard]] BatteryMonitor& battery();
    // Keep Awake's inhibitor, held while it is on, whatever is on screen.
    [[nodiscard]] KeepAwakeCenter& keepAwake();
    // The desktop's sound server, and the cameras' device files.
    [[nodiscard]] SoundServer& sound();
    [[nodiscard]] CameraWatch& cameras();
    // Screen Time's counting and record, in the application support folder unless given.
    [[nodiscard]] ScreenTimeCenter& screenTime();
    void setScreenTimeRecord(std::string path) { screenTimeRecord_ = std::move(path); }
    // What Screen Time calls a window's app (its desktop entry's name); empty when unknown.
    void setApplicationNamer(std::function<std::string(const WindowFacts&)> namer) { applicationNamer_ = std::move(namer); }
    // The window manager's desktops, followed while some tile wants them.
    [[nodiscard]] X11Desktops& desktops();
    void setDesktopsWanted(const std::string& holder, bool wanted);
    // Light or dark and desktop icons, where the running desktop keeps them.
    [[nodiscard]] DesktopLook& look();
    // Lets go of what is held for the user (Keep Awake), at once: the first step of quitting.
    void releaseHeld();
    // The addresses an Endpoints tile checks; the monitor checks every tile's.
    void setEndpointAddresses(const Uuid& tile, std::vector<std::string> addresses);
    // The application's AI usage engine, made at start-up (it collects in the background); none
    // leaves the AI Usage tile with nothing to show.
    void setAIUsage(AIUsageEngine* engine);
    [[nodiscard]] AIUsageEngine* aiUsage() const { return aiUsage_; }
    // Where Claude Code's status-line connection lives, for the AI Usage card's Connect and
    // Disconnect; none when the dock cannot make one (no kestrune command to read the line).
    void setClaudeBridge(std::optional<ClaudeBridge::Place> place) { claudeBridge_ = std::move(place); }
    [[nodiscard]] const std::optional<ClaudeBridge::Place>& claudeBridge() const { return claudeBridge_; }
    // The runner of the user's saved commands, and each command's last result (kept while the
    // dock runs); its observers hear of every start, stop and end.
    [[nodiscard]] ShellCommandRunner& commands();
    [[nodiscard]] const std::map<Uuid, ShellCommandResult>& commandResults() const;
    uint64_t addObserver(Source source, std::function<void()> observer) { return changed(source).add(std::move(observer)); }
    void removeObserver(Source source, uint64_t id) { changed(source).remove(id); }

private:
    [[nodiscard]] ObserverList<>& changed(Source source);

    Runtime& runtime_;
    std::unique_ptr<RepositoriesMonitor> repositories_;
    std::map<Uuid, std::string> gitFolders_;
    ObserverList<const std::string&> repositoriesChanged_;
    std::shared_ptr<const GitHubRequests> gitHubRequests_;
    std::unique_ptr<PullRequestsMonitor> pullRequests_;
    ObserverList<> pullRequestsChanged_;
    std::shared_ptr<const ContainerEngineSetup> containerEngine_;
    std::unique_ptr<ContainersMonitor> containers_;
    ObserverList<> containersChanged_;
    std::unique_ptr<EndpointsMonitor> endpoints_;
    ObserverList<> endpointsChanged_;
    std::map<Uuid, std::vector<std::string>> endpointAddresses_;
    std::unique_ptr<DevServersMonitor> devServers_;
    ObserverList<> devServersChanged_;
    std::unique_ptr<SimulatorsMonitor> simulators_;
    ObserverList<> simulatorsChanged_;
    std::unique_ptr<SystemStatsSampler> systemStats_;
    ObserverList<> systemStatsChanged_;
    std::unique_ptr<StorageMonitor> storage_;
    ObserverList<> storageChanged_;
    std::unique_ptr<ProcessesMonitor> processes_;
    ObserverList<> processesChanged_;
    std::unique_ptr<SoundServer> sound_;
    ObserverList<> soundChanged_;
    std::unique_ptr<CameraWatch> cameras_;
    ObserverList<> camerasChanged_;
    std::unique_ptr<DesktopLook> look_;
    ObserverList<> lookChanged_;
    std::unique_ptr<X11Desktops> desktops_;
    std::set<std::string> desktopsHolders_;
    ObserverList<> desktopsChanged_;
    std::string screenTimeRecord_;
    std::function<std::string(const WindowFacts&)> applicationNamer_;
    std::unique_ptr<ScreenTimeCenter> screenTime_;
    ObserverList<> screenTimeChanged_;
    std::unique_ptr<KeepAwakeCenter> keepAwake_;
    ObserverList<> keepAwakeChanged_;
    std::unique_ptr<BatteryMonitor> battery_;
    ObserverList<> batteryChanged_;
    AIUsageEngine* aiUsage_ = nullptr;
    std::optional<ClaudeBridge::Place> claudeBridge_;
    std::unique_ptr<ShellCommandRunner> commands_;
    std::unique_ptr<std::map<Uuid, ShellCommandResult>> commandResults_;
    ObserverList<> commandsChanged_;
    ObserverList<> aiUsageChanged_;
};

} // namespace kestrune
