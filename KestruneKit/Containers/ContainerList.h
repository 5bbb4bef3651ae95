#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace kestrune {

// The engine's own words for a container's state; any other word is `unknown`.
enum class ContainerState { created, running, restarting, paused, exited, dead, removing, unknown };

[[nodiscard]] std::string_view toString(ContainerState state);
[[nodiscard]] ContainerState containerStateFromString(std::string_view raw);

enum class ContainerAction { start, stop, restart };

[[nodiscard]] std::string_view toString(ContainerAction action);
[[nodiscard]] std::optional<ContainerAction> containerActionFromString(std::string_view raw);

struct ContainerPort {
    std::string address;
    int privatePort = 0;
    // Zero when the port is not published on the host.
    int publicPort = 0;
    // "tcp", "udp" or "sctp".
    std::string type;

    // "localhost:8080→80", "53/udp": local addresses read as localhost, tcp goes without saying.
    [[nodiscard]] std::string text() const;
    bool operator==(const ContainerPort&) const = default;
};

struct Container {
    static constexpr std::string_view composeProjectLabel = "com.docker.compose.project";

    std::string id;
    // Without the engine's leading "/".
    std::vector<std::string> names;
    std::string image;
    ContainerState state = ContainerState::unknown;
    std::string rawState;
    // "Up 3 hours", "Exited (0) 5 minutes ago".
    std::string status;
    std::vector<ContainerPort> ports;
    std::map<std::string, std::string> labels;

    [[nodiscard]] std::string name() const { return names.empty() ? id.substr(0, 12) : names.front(); }
    [[nodiscard]] std::optional<std::string> composeProject() const;
    // The image as people write it: no "docker.io/library/", and a bare digest shortened.
    [[nodiscard]] std::string imageText() const;
};

// The engine's answer to GET /containers/json; nothing when it is not a JSON array.
[[nodiscard]] std::optional<std::vector<Container>> decodeContainerList(std::string_view body);

} // namespace kestrune
