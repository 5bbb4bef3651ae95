#include "KestruneKit/Containers/ContainerList.h"

#include <nlohmann/json.hpp>

#include "KestruneKit/Core/JsonFields.h"
#include "KestruneKit/Core/RawNames.h"

namespace kestrune {

namespace {

constexpr RawNames<ContainerState, 8> stateNames { { {
    { ContainerState::created, "created" },
    { ContainerState::running, "running" },
    { ContainerState::restarting, "restarting" },
    { ContainerState::paused, "paused" },
    { ContainerState::exited, "exited" },
    { ContainerState::dead, "dead" },
    { ContainerState::removing, "removing" },
    { ContainerState::unknown, "unknown" },
} } };

constexpr RawNames<ContainerAction, 3> actionNames { { {
    { ContainerAction::start, "start" },
    { ContainerAction::stop, "stop" },
    { ContainerAction::restart, "restart" },
} } };

using Json = nlohmann::json;

bool isLocalAddress(std::string_view address)
{
    return address.empty() || address == "0.0.0.0" || address == "::" || address == "127.0.0.1" || address == "::1";
}

} // namespace

std::string_view toString(ContainerState state) { return stateNames.name(state); }

ContainerState containerStateFromString(std::string_view raw)
{
    return stateNames.value(raw).value_or(ContainerState::unknown);
}

std::string_view toString(ContainerAction action) { return actionNames.name(action); }
std::optional<ContainerAction> containerActionFromString(std::string_view raw) { return actionNames.value(raw); }

std::string ContainerPort::text() const
{
    std::string result;
    if (publicPort != 0)
        result = (isLocalAddress(address) ? std::string("localhost") : address) + ":" + std::to_string(publicPort) + "→";
    result += std::to_string(privatePort);
    if (!type.empty() && type != "tcp")
        result += "/" + type;
    return result;
}

std::optional<std::string> Container::composeProject() const
{
    auto found = labels.find(std::string(composeProjectLabel));
    if (found == labels.end() || found->second.empty())
        return std::nullopt;
    return found->second;
}

std::string Container::imageText() const
{
    std::string_view result = image;
    for (std::string_view prefix : { "docker.io/library/", "docker.io/" })
        if (result.starts_with(prefix)) {
            result.remove_prefix(prefix.size());
            break;
        }
    if (result.starts_with("sha256:"))
        return std::string(result.substr(7, 12));
    return std::string(result);
}

std::optional<std::vector<Container>> decodeContainerList(std::string_view body)
{
    auto root = Json::parse(body, nullptr, false);
    if (root.is_discarded() || !root.is_array())
        return std::nullopt;
    std::vector<Container> containers;
    containers.reserve(root.size());
    for (const auto& element : root) {
        if (!element.is_object())
            continue;
        Container container;
        container.id = jsonText(element, "Id");
        if (auto names = element.find("Names"); names != element.end() && names->is_array())
            for (const auto& name : *names)
                if (name.is_string()) {
                    auto value = name.get<std::string>();
                    container.names.push_back(value.starts_with('/') ? value.substr(1) : value);
                }
        container.image = jsonText(element, "Image");
        container.rawState = jsonText(element, "State");
        container.state = containerStateFromString(container.rawState);
        container.status = jsonText(element, "Status");
        if (auto ports = element.find("Ports"); ports != element.end() && ports->is_array())
            for (const auto& port : *ports)
                if (port.is_object())
                    container.ports.push_back({ jsonText(port, "IP"), jsonInteger(port, "PrivatePort"), jsonInteger(port, "PublicPort"), jsonText(port, "Type") });
        if (auto labels = element.find("Labels"); labels != element.end() && labels->is_object())
            for (const auto& [key, value] : labels->items())
                if (value.is_string())
                    container.labels.emplace(key, value.get<std::string>());
        containers.push_back(std::move(container));
    }
    return containers;
}

} // namespace kestrune
