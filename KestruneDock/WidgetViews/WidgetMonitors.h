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
#include <string>

#include "KestruneKit/Core/ObserverList.h"
#include "KestruneKit/Core/Runtime.h"
#include "KestruneKit/Core/Uuid.h"

namespace kestrune {

class RepositoriesMonitor;

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

private:
    Runtime& runtime_;
    std::unique_ptr<RepositoriesMonitor> repositories_;
    std::map<Uuid, std::string> gitFolders_;
    ObserverList<const std::string&> repositoriesChanged_;
};

} // namespace kestrune
