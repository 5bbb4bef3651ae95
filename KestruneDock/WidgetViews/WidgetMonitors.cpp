#include "KestruneDock/WidgetViews/WidgetMonitors.h"

#include <algorithm>
#include <filesystem>
#include <vector>

#include "KestruneDock/Desktop/DesktopBus.h"
#include "KestruneDock/Desktop/DesktopLook.h"
#include "KestruneDock/Desktop/X11Desktops.h"
#include "KestruneDock/PowerWidgets/BatteryMonitor.h"
#include "KestruneDock/PowerWidgets/KeepAwakeCenter.h"
#include "KestruneDock/ScreenTimeWidgets/ScreenTimeCenter.h"
#include "KestruneKit/Core/ApplicationSupport.h"
#include "KestruneKit/AIUsage/AIUsageEngine.h"
#include "KestruneKit/Containers/ContainersMonitor.h"
#include "KestruneKit/DevServers/DevServersMonitor.h"
#include "KestruneKit/Simulators/SimulatorsMonitor.h"
#include "KestruneKit/Sound/CameraWatch.h"
#include "KestruneKit/Sound/SoundServer.h"
#include "KestruneKit/SystemStats/ProcessesMonitor.h"
#include "KestruneKit/SystemStats/StorageMonitor.h"
#include "KestruneKit/SystemStats/SystemStatsSampler.h"
#include "KestruneKit/Core/Environment.h"
#include "KestruneKit/DevTools/ShellCommandRunner.h"
#include "KestruneKit/Endpoints/EndpointsMonitor.h"
#include "KestruneKit/GitHub/PullRequestsMonitor.h"
#include "KestruneKit/Repositories/RepositoriesMonitor.h"

namespace kestrune {

WidgetMonitors::WidgetMonitors(Runtime& runtime)
    : runtime_(runtime), commandResults_(std::make_unique<std::map<Uuid, ShellCommandResult>>())
{
}

ShellCommandRunner& WidgetMonitors::commands()
{
    if (!commands_) {
        commands_ = std::make_unique<ShellCommandRunner>(runtime_);
        commands_->onFinish = [this](const Uuid& id, const ShellCommandResult& result) {
            commandResults_->insert_or_assign(id, result);
            commandsChanged_.notify();
        };
        commands_->onRunningChanged = [this] { commandsChanged_.notify(); };
    }
    return *commands_;
}

const std::map<Uuid, ShellCommandResult>& WidgetMonitors::commandResults() const { return *commandResults_; }

WidgetMonitors::~WidgetMonitors()
{
    if (aiUsage_)
        aiUsage_->onChange = nullptr;
}

void WidgetMonitors::setAIUsage(AIUsageEngine* engine)
{
    if (aiUsage_)
        aiUsage_->onChange = nullptr;
    aiUsage_ = engine;
    if (aiUsage_)
        aiUsage_->onChange = [this] { aiUsageChanged_.notify(); };
    aiUsageChanged_.notify();
}

RepositoriesMonitor& WidgetMonitors::repositories()
{
    if (!repositories_) {
        repositories_ = std::make_unique<RepositoriesMonitor>(runtime_);
        repositories_->onChange = [this](const std::string& folder) { repositoriesChanged_.notify(folder); };
    }
    return *repositories_;
}

PullRequestsMonitor& WidgetMonitors::pullRequests()
{
    if (!pullRequests_) {
        pullRequests_ = std::make_unique<PullRequestsMonitor>(runtime_, KestruneActivity::shared(), gitHubRequests_);
        pullRequests_->onChange = [this] { pullRequestsChanged_.notify(); };
    }
    return *pullRequests_;
}

ContainersMonitor& WidgetMonitors::containers()
{
    if (!containers_) {
        containers_ = std::make_unique<ContainersMonitor>(runtime_, KestruneActivity::shared(), containerEngine_);
        containers_->onChange = [this] { containersChanged_.notify(); };
    }
    return *containers_;
}

SimulatorsMonitor& WidgetMonitors::simulators()
{
    if (!simulators_) {
        simulators_ = std::make_unique<SimulatorsMonitor>(runtime_);
        simulators_->onChange = [this] { simulatorsChanged_.notify(); };
    }
    return *simulators_;
}

SystemStatsSampler& WidgetMonitors::systemStats()
{
    if (!systemStats_) {
        systemStats_ = std::make_unique<SystemStatsSampler>(runtime_, std::make_unique<SystemStatsProbe>(homeFolder()));
        systemStats_->onChange = [this] { systemStatsChanged_.notify(); };
    }
    return *systemStats_;
}

StorageMonitor& WidgetMonitors::storage()
{
    if (!storage_) {
        storage_ = std::make_unique<StorageMonitor>(runtime_);
        storage_->onChange = [this] { storageChanged_.notify(); };
    }
    return *storage_;
}

ProcessesMonitor& WidgetMonitors::processes()
{
    if (!processes_) {
        processes_ = std::make_unique<ProcessesMonitor>(runtime_);
        processes_->onChange = [this] { processesChanged_.notify(); };
    }
    return *processes_;
}

BatteryMonitor& WidgetMonitors::battery()
{
    if (!battery_) {
        battery_ = std::make_unique<BatteryMonitor>(systemServicesBus());
        battery_->onChange = [this] { batteryChanged_.notify(); };
    }
    return *battery_;
}

KeepAwakeCenter& WidgetMonitors::keepAwake()
{
    if (!keepAwake_) {
        keepAwake_ = std::make_unique<KeepAwakeCenter>(systemServicesBus());
        keepAwake_->onChange = [this] { keepAwakeChanged_.notify(); };
    }
    return *keepAwake_;
}

SoundServer& WidgetMonitors::sound()
{
    if (!sound_) {
        sound_ = std::make_unique<SoundServer>(runtime_);
        sound_->onChange = [this] { soundChanged_.notify(); };
    }
    return *sound_;
}

CameraWatch& WidgetMonitors::cameras()
{
    if (!cameras_) {
        cameras_ = std::make_unique<CameraWatch>(runtime_);
        cameras_->onChange = [this] { camerasChanged_.notify(); };
    }
    return *cameras_;
}

ScreenTimeCenter& WidgetMonitors::screenTime()
{
    if (!screenTime_) {
        std::string path = screenTimeRecord_;
        if (path.empty()) {
            std::string folder = applicationSupportFolder(processEnvironment(), homeFolder());
            std::error_code ignored;
            std::filesystem::create_directories(folder, ignored);
            path = folder + "/screen-time.sqlite";
        }
        screenTime_ = std::make_unique<ScreenTimeCenter>(runtime_, path, KestruneActivity::shared());
        screenTime_->nameApplication = applicationNamer_;
        screenTime_->onChange = [this] { screenTimeChanged_.notify(); };
    }
    return *screenTime_;
}

X11Desktops& WidgetMonitors::desktops()
{
    if (!desktops_) {
        desktops_ = std::make_unique<X11Desktops>();
        desktops_->onChange = [this] { desktopsChanged_.notify(); };
    }
    return *desktops_;
}

void WidgetMonitors::setDesktopsWanted(const std::string& holder, bool wanted)
{
    if (wanted)
        desktopsHolders_.insert(holder);
    else
        desktopsHolders_.erase(holder);
    desktops().setWatching(!desktopsHolders_.empty());
}

DesktopLook& WidgetMonitors::look()
{
    if (!look_) {
        look_ = std::make_unique<DesktopLook>(DesktopLook::running());
        look_->onChange = [this] { lookChanged_.notify(); };
    }
    return *look_;
}

void WidgetMonitors::releaseHeld()
{
    if (keepAwake_)
        keepAwake_->release();
    // Screen Time's running stretch is written before anything can stop it.
    if (screenTime_)
        screenTime_->flush();
}

DevServersMonitor& WidgetMonitors::devServers()
{
    if (!devServers_) {
        devServers_ = std::make_unique<DevServersMonitor>(runtime_);
        devServers_->onChange = [this] { devServersChanged_.notify(); };
    }
    return *devServers_;
}

EndpointsMonitor& WidgetMonitors::endpoints()
{
    if (!endpoints_) {
        endpoints_ = std::make_unique<EndpointsMonitor>(runtime_);
        endpoints_->onChange = [this] { endpointsChanged_.notify(); };
    }
    return *endpoints_;
}

void WidgetMonitors::setEndpointAddresses(const Uuid& tile, std::vector<std::string> addresses)
{
    if (addresses.empty())
        endpointAddresses_.erase(tile);
    else
        endpointAddresses_[tile] = std::move(addresses);
    std::vector<std::string> all;
    for (const auto& entry : endpointAddresses_)
        for (const std::string& address : entry.second)
            if (std::find(all.begin(), all.end(), address) == all.end())
                all.push_back(address);
    endpoints().setAddresses(std::move(all));
}

ObserverList<>& WidgetMonitors::changed(Source source)
{
    switch (source) {
    case Source::pullRequests: return pullRequestsChanged_;
    case Source::containers: return containersChanged_;
    case Source::devServers: return devServersChanged_;
    case Source::endpoints: return endpointsChanged_;
    case Source::simulators: return simulatorsChanged_;
    case Source::aiUsage: return aiUsageChanged_;
    case Source::commands: return commandsChanged_;
    case Source::systemStats: return systemStatsChanged_;
    case Source::storage: return storageChanged_;
    case Source::processes: return processesChanged_;
    case Source::battery: return batteryChanged_;
    case Source::keepAwake: return keepAwakeChanged_;
    case Source::sound: return soundChanged_;
    case Source::cameras: return camerasChanged_;
    case Source::screenTime: return screenTimeChanged_;
    case Source::desktops: return desktopsChanged_;
    case Source::look: return lookChanged_;
    }
    return containersChanged_;
}

void WidgetMonitors::setGitFolder(const Uuid& tile, std::optional<std::string> folder)
{
    if (folder)
        gitFolders_[tile] = std::move(*folder);
    else
        gitFolders_.erase(tile);
    std::vector<std::string> folders;
    for (const auto& entry : gitFolders_)
        if (std::find(folders.begin(), folders.end(), entry.second) == folders.end())
            folders.push_back(entry.second);
    if (folders != repositories().wanted())
        repositories().setWanted(std::move(folders));
}

} // namespace kestrune
