#include <iostream>

#include <fmt/core.h>
#include <nlohmann/json.hpp>

#include "KestruneKit/Containers/ContainersMonitor.h"
#include "tools/kestrune/Commands.h"

namespace kestrune::cli {

namespace {

using Json = nlohmann::ordered_json;

Json containerJson(const Container& container)
{
    Json ports = Json::array();
    for (const auto& port : container.ports)
        ports.push_back({ { "address", port.address }, { "privatePort", port.privatePort }, { "publicPort", port.publicPort },
                          { "type", port.type }, { "text", port.text() } });
    auto project = container.composeProject();
    return { { "id", container.id }, { "name", container.name() }, { "names", container.names }, { "image", container.image },
             { "state", toString(container.state) }, { "rawState", container.rawState }, { "status", container.status },
             { "ports", std::move(ports) }, { "labels", container.labels },
             { "composeProject", project ? Json(*project) : Json(nullptr) } };
}

std::string detail(const ContainersState& state, const ContainerEngineSetup& setup)
{
    switch (state.phase) {
    case ContainersState::Phase::notInstalled:
        return std::string(containersText::notInstalledDetail);
    case ContainersState::Phase::notRunning:
        return containersText::notRunningAdvice(setup.application ? containerEngineName(setup.application->kind) : std::string_view {});
    case ContainersState::Phase::noneRunning:
        return std::string(containersText::noneRunningDetail);
    default:
        return {};
    }
}

int printState(bool json)
{
    auto setup = ContainerEngineSetup::discover();
    auto state = readContainersState(setup);
    if (json) {
        Json containers = Json::array();
        for (const auto& container : state.containers)
            containers.push_back(containerJson(container));
        Json out { { "state", toString(state.phase) }, { "summary", containersText::summary(state) },
                   { "socket", setup.socketPath }, { "engine", toString(state.engine) },
                   { "readFailure", state.readFailure ? Json(toString(*state.readFailure)) : Json(nullptr) },
                   { "containers", std::move(containers) } };
        std::cout << out.dump() << "\n";
    } else {
        fmt::print("{}\n", containersText::summary(state));
        if (auto text = detail(state, setup); !text.empty())
            fmt::print("{}\n", text);
        // Compose projects together, each under its name, then the containers of no project.
        std::stable_sort(state.containers.begin(), state.containers.end(), [](const Container& a, const Container& b) {
            return a.composeProject().value_or("\xff") < b.composeProject().value_or("\xff");
        });
        std::optional<std::string> lastProject;
        for (const auto& container : state.containers) {
            auto project = container.composeProject();
            if (project && project != lastProject)
                fmt::print("{}:\n", *project);
            lastProject = project;
            std::string ports;
            for (const auto& port : container.ports)
                ports += (ports.empty() ? "" : ", ") + port.text();
            fmt::print("  {}  {}  {}  {}{}\n", container.name(), container.imageText(), toString(container.state), container.status,
                       ports.empty() ? "" : "  " + ports);
        }
    }
    return state.phase == ContainersState::Phase::running || state.phase == ContainersState::Phase::noneRunning ? exitSuccess : exitFailure;
}

} // namespace

Action addContainersCommand(CLI::App& app)
{
    auto* command = app.add_subcommand("containers", "The Docker engine's running containers, or start, stop or restart one");
    auto json = std::make_shared<bool>(false);
    command->add_flag("--json", *json, "Print the list as JSON");
    auto chosen = std::make_shared<std::optional<ContainerAction>>();
    auto name = std::make_shared<std::string>();
    for (auto action : { ContainerAction::start, ContainerAction::stop, ContainerAction::restart }) {
        auto* sub = command->add_subcommand(std::string(toString(action)), fmt::format("{} a container through the docker client", toString(action)));
        sub->add_option("NAME", *name, "The container's name or id")->required();
        sub->callback([chosen, action] { *chosen = action; });
    }
    command->require_subcommand(0, 1);
    return [json, chosen, name] {
        if (!*chosen)
            return printState(*json);
        auto failure = ContainerEngineSetup::discover().perform(**chosen, *name);
        if (failure) {
            fmt::print(stderr, "{}\n", text(*failure));
            return exitFailure;
        }
        return exitSuccess;
    };
}

} // namespace kestrune::cli
