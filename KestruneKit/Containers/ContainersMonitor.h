#pragma once

// OVERVIEW
// The containers widget's data: the engine's running containers, read from its socket every ten
// seconds while the widget is on screen, and start, stop and restart through the `docker`
// client.
//
// TYPICAL USAGE
//   ContainersMonitor monitor(runtime);
//   monitor.onChange = [&] { redraw(monitor.state()); };
//   monitor.poller().setWanted(tileId, true);
//   monitor.perform(ContainerAction::stop, "web", [](auto failure) { if (failure) show(*failure); });
//
// Main thread only.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KestruneKit/Containers/ContainerEngine.h"
#include "KestruneKit/Containers/ContainerEngineSocket.h"
#include "KestruneKit/Containers/ContainerList.h"
#include "KestruneKit/Core/SerialQueue.h"
#include "KestruneKit/DevTools/DevPoller.h"
#include "KestruneKit/DevTools/DevToolBox.h"

namespace kestrune {

enum class ContainerActionFailure { didntSayWhy, couldNotRun, timedOut, unknownContainer };

[[nodiscard]] std::string_view toString(ContainerActionFailure failure);
// "Docker didn’t say why" ...
[[nodiscard]] std::string_view text(ContainerActionFailure failure);
// The client's failed run, in words.
[[nodiscard]] ContainerActionFailure containerActionFailure(const DevTool::Run& run);

// Where the engine is and how to reach it: read once per monitor, off the main thread.
struct ContainerEngineSetup {
    // A list changes as fast as a developer types docker commands, and reading it is one local
    // request: ten seconds keeps the widget current for next to nothing.
    static constexpr Seconds pollInterval { 10.0 };
    // docker stop gives a container ten seconds to end before killing it; allow for that.
    static constexpr Seconds actionTimeout { 30.0 };

    DevToolBox box;
    std::string socketPath;
    DevTool client;
    std::optional<ContainerEngineApplication> application;

    // This process's environment and home folder.
    [[nodiscard]] static ContainerEngineSetup discover();
    [[nodiscard]] ContainerEngineKind engineKind() const;
    [[nodiscard]] bool isInstalled() const;

    // `docker <action> <name>`; nothing when it worked.
    [[nodiscard]] std::optional<ContainerActionFailure> perform(ContainerAction action, const std::string& name) const;
};

struct ContainersState {
    enum class Phase { looking, notInstalled, notRunning, starting, noneRunning, running };

    Phase phase = Phase::looking;
    ContainerEngineKind engine = ContainerEngineKind::other;
    std::vector<Container> containers;
    // Set when the last read failed for a reason other than a stopped engine.
    std::optional<ContainerReadFailure> readFailure;
};

[[nodiscard]] std::string_view toString(ContainersState::Phase phase);

// One blocking read of the engine's state: for the command line and the worker alike.
[[nodiscard]] ContainersState readContainersState(const ContainerEngineSetup& setup);

namespace containersText {
inline constexpr std::string_view looking = "Looking for containers…";
inline constexpr std::string_view lookingLong = "Looking for Docker’s containers";
inline constexpr std::string_view notInstalled = "Docker isn’t installed";
inline constexpr std::string_view notInstalledDetail = "Install Docker Desktop or OrbStack, and your containers show up here";
inline constexpr std::string_view getDockerButton = "Get Docker Desktop";
inline constexpr std::string_view getDockerAddress = "https://www.docker.com/products/docker-desktop/";
inline constexpr std::string_view notInstalledTitle = "Docker Isn’t Installed";
inline constexpr std::string_view getDockerTitle = "Get Docker Desktop…";
inline constexpr std::string_view notInstalledTileHelp = "Docker isn’t installed · Press and hold for how to get it";
inline constexpr std::string_view notRunning = "Docker isn’t running";
inline constexpr std::string_view notRunningDetail = "Start your Docker engine, and your containers show up here";
inline constexpr std::string_view notRunningTitle = "Docker Isn’t Running";
inline constexpr std::string_view notRunningTileHelp = "Docker isn’t running · Press and hold to start it";
inline constexpr std::string_view starting = "Docker is starting";
inline constexpr std::string_view startingTitle = "Docker Is Starting…";
inline constexpr std::string_view startingDetail = "Your containers show up here once it’s ready";
inline constexpr std::string_view noneRunning = "No containers running";
inline constexpr std::string_view noneRunningTitle = "No Containers Running";
inline constexpr std::string_view noneRunningDetail = "Run one with docker run or docker compose up, and it shows up here";
inline constexpr std::string_view noneRunningStartHint = "Start one from All, or with docker compose up";
inline constexpr std::string_view runningTileHelpSuffix = " · Press and hold for your containers";
// "Open OrbStack to start it, and your containers show up here", or the generic detail.
[[nodiscard]] std::string notRunningAdvice(std::string_view applicationName);
// The face of the widget in one line.
[[nodiscard]] std::string summary(const ContainersState& state);
} // namespace containersText

class ContainersMonitor {
public:
    // Without a setup, the engine is discovered on the monitor's queue at first use.
    explicit ContainersMonitor(Runtime& runtime, KestruneActivity& activity = KestruneActivity::shared(),
                               std::shared_ptr<const ContainerEngineSetup> setup = nullptr);
    ContainersMonitor(const ContainersMonitor&) = delete;
    ContainersMonitor& operator=(const ContainersMonitor&) = delete;

    [[nodiscard]] const ContainersState& state() const { return state_; }
    [[nodiscard]] DevPoller& poller();
    void refresh();

    // Runs the action on the queue, then reads the list again; `done` gets the failure, if any,
    // on the main thread.
    void perform(ContainerAction action, const std::string& name,
                 std::function<void(std::optional<ContainerActionFailure>)> done = {});

    // The user asked the engine's application to start: reads as starting until the engine
    // answers or `startingGrace` passes.
    void engineStartRequested();
    static constexpr Seconds startingGrace { 90.0 };

    std::function<void()> onChange;

private:
    void apply(ContainersState state);
    std::shared_ptr<const ContainerEngineSetup> setupOnQueue();

    Runtime& runtime_;
    KestruneActivity& activity_;
    // Written and read on the queue only.
    std::shared_ptr<const ContainerEngineSetup> setup_;
    ContainersState state_;
    std::optional<Date> startRequestedAt_;
    std::unique_ptr<DevPoller> poller_;
    std::shared_ptr<ContainersMonitor*> self_;
    SerialQueue queue_;
};

} // namespace kestrune
