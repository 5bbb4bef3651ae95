#include "KestruneKit/Containers/ContainersMonitor.h"

#include <sys/stat.h>

#include "KestruneKit/Core/CountText.h"
#include "KestruneKit/Core/RawNames.h"

namespace kestrune {

namespace {

constexpr RawNames<ContainerActionFailure, 4> actionFailureNames { { {
    { ContainerActionFailure::didntSayWhy, "didntSayWhy" },
    { ContainerActionFailure::couldNotRun, "couldNotRun" },
    { ContainerActionFailure::timedOut, "timedOut" },
    { ContainerActionFailure::unknownContainer, "unknownContainer" },
} } };

constexpr RawNames<ContainerActionFailure, 4> actionFailureTexts { { {
    { ContainerActionFailure::didntSayWhy, "Docker didn’t say why" },
    { ContainerActionFailure::couldNotRun, "The docker tool couldn’t be run" },
    { ContainerActionFailure::timedOut, "Docker didn’t answer in time" },
    { ContainerActionFailure::unknownContainer, "Docker doesn’t know this container" },
} } };

using Phase = ContainersState::Phase;
constexpr RawNames<Phase, 6> phaseNames { { {
    { Phase::looking, "looking" },
    { Phase::notInstalled, "notInstalled" },
    { Phase::notRunning, "notRunning" },
    { Phase::starting, "starting" },
    { Phase::noneRunning, "noneRunning" },
    { Phase::running, "running" },
} } };

bool pathExists(const std::string& path)
{
    struct stat info {};
    return ::lstat(path.c_str(), &info) == 0;
}

} // namespace

std::string_view toString(ContainerActionFailure failure) { return actionFailureNames.name(failure); }
std::string_view text(ContainerActionFailure failure) { return actionFailureTexts.name(failure); }
std::string_view toString(ContainersState::Phase phase) { return phaseNames.name(phase); }

ContainerActionFailure containerActionFailure(const DevTool::Run& run)
{
    if (run.failure)
        return *run.failure == DevTool::Run::Failure::timedOut ? ContainerActionFailure::timedOut : ContainerActionFailure::couldNotRun;
    if (run.errorOutput.find("No such container") != std::string::npos)
        return ContainerActionFailure::unknownContainer;
    // A client that cannot reach its engine does not answer either.
    if (run.errorOutput.find("Cannot connect to the Docker daemon") != std::string::npos)
        return ContainerActionFailure::timedOut;
    return ContainerActionFailure::didntSayWhy;
}

ContainerEngineSetup ContainerEngineSetup::discover()
{
    ContainerEngineSetup setup;
    std::string home = homeFolder();
    setup.socketPath = containerSocketPath(setup.box.base(), home);
    setup.client = dockerClient(home);
    setup.application = installedEngineApplication();
    return setup;
}

ContainerEngineKind ContainerEngineSetup::engineKind() const
{
    if (auto kind = containerEngineKind(socketPath); kind != ContainerEngineKind::other)
        return kind;
    if (auto found = DevToolBox::locate(client.candidates))
        return containerEngineKind(*found);
    return application ? application->kind : ContainerEngineKind::other;
}

bool ContainerEngineSetup::isInstalled() const
{
    return application || DevToolBox::locate(client.candidates) || pathExists(socketPath);
}

std::optional<ContainerActionFailure> ContainerEngineSetup::perform(ContainerAction action, const std::string& name) const
{
    // "--" so that a name can never be read as an option.
    auto run = box.run(client, { std::string(toString(action)), "--", name }, std::nullopt, dockerClientEnvironment(socketPath), actionTimeout);
    if (run.succeeded())
        return std::nullopt;
    return containerActionFailure(run);
}

ContainersState readContainersState(const ContainerEngineSetup& setup)
{
    ContainersState state;
    state.engine = setup.engineKind();
    auto read = ContainerEngineSocket::readContainers(setup.socketPath);
    if (auto* containers = std::get_if<std::vector<Container>>(&read)) {
        state.containers = std::move(*containers);
        state.phase = state.containers.empty() ? Phase::noneRunning : Phase::running;
        return state;
    }
    auto failure = std::get<ContainerReadFailure>(read);
    if (failure != ContainerReadFailure::notRunning)
        state.readFailure = failure;
    state.phase = setup.isInstalled() ? Phase::notRunning : Phase::notInstalled;
    return state;
}

namespace containersText {

std::string notRunningAdvice(std::string_view applicationName)
{
    if (applicationName.empty())
        return std::string(notRunningDetail);
    return "Open " + std::string(applicationName) + " to start it, and your containers show up here";
}

std::string summary(const ContainersState& state)
{
    switch (state.phase) {
    case Phase::looking:
        return std::string(looking);
    case Phase::notInstalled:
        return std::string(notInstalled);
    case Phase::notRunning:
        return std::string(notRunning);
    case Phase::starting:
        return std::string(starting);
    case Phase::noneRunning:
        return std::string(noneRunning);
    case Phase::running:
        break;
    }
    return countText(static_cast<int64_t>(state.containers.size()), "container running", "containers running");
}

} // namespace containersText

ContainersMonitor::ContainersMonitor(Runtime& runtime, KestruneActivity& activity, std::shared_ptr<const ContainerEngineSetup> setup)
    : runtime_(runtime)
    , activity_(activity)
    , setup_(std::move(setup))
    , self_(std::make_shared<ContainersMonitor*>(this))
{
}

DevPoller& ContainersMonitor::poller()
{
    if (!poller_)
        poller_ = std::make_unique<DevPoller>(runtime_, activity_, ContainerEngineSetup::pollInterval, [this] { refresh(); });
    return *poller_;
}

std::shared_ptr<const ContainerEngineSetup> ContainersMonitor::setupOnQueue()
{
    // Discovery reads the client's configuration files: queue work, not main-thread work.
    if (!setup_)
        setup_ = std::make_shared<const ContainerEngineSetup>(ContainerEngineSetup::discover());
    return setup_;
}

void ContainersMonitor::refresh()
{
    std::weak_ptr<ContainersMonitor*> weak = self_;
    queue_.async([this, weak, &runtime = runtime_] {
        auto state = readContainersState(*setupOnQueue());
        runtime.post([weak, state = std::move(state)]() mutable {
            if (auto self = weak.lock(); self && *self)
                (*self)->apply(std::move(state));
        });
    });
}

void ContainersMonitor::perform(ContainerAction action, const std::string& name, std::function<void(std::optional<ContainerActionFailure>)> done)
{
    std::weak_ptr<ContainersMonitor*> weak = self_;
    queue_.async([this, weak, &runtime = runtime_, action, name, done = std::move(done)] {
        auto setup = setupOnQueue();
        auto failure = setup->perform(action, name);
        auto state = readContainersState(*setup);
        runtime.post([weak, failure, done, state = std::move(state)]() mutable {
            if (auto self = weak.lock(); self && *self)
                (*self)->apply(std::move(state));
            if (done)
                done(failure);
        });
    });
}

void ContainersMonitor::engineStartRequested()
{
    startRequestedAt_ = runtime_.now();
    state_.phase = Phase::starting;
    if (onChange)
        onChange();
    refresh();
}

void ContainersMonitor::apply(ContainersState state)
{
    if (startRequestedAt_) {
        bool answered = state.phase == Phase::running || state.phase == Phase::noneRunning;
        if (answered || secondsBetween(*startRequestedAt_, runtime_.now()) >= startingGrace)
            startRequestedAt_.reset();
        else
            state.phase = Phase::starting;
    }
    state_ = std::move(state);
    if (onChange)
        onChange();
}

} // namespace kestrune
