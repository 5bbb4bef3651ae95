#pragma once

// Where the user's Docker-compatible engine listens, which engine it is, and the `docker`
// client that performs actions on it.

#include <optional>
#include <string>
#include <string_view>

#include "KestruneKit/Core/Environment.h"
#include "KestruneKit/DevTools/DevTool.h"

namespace kestrune {

enum class ContainerEngineKind { dockerDesktop, orbStack, other };

[[nodiscard]] std::string_view toString(ContainerEngineKind kind);

// The engine's socket: DOCKER_HOST when it names a unix:// address; else the current context
// (DOCKER_CONTEXT, then the client configuration's "currentContext"), when that is not
// "default" and its endpoint is a Unix socket; else /var/run/docker.sock. The client's
// configuration folder is $DOCKER_CONFIG when set, as the client itself reads it, else
// ~/.docker.
[[nodiscard]] std::string containerSocketPath(const Environment& environment, const std::string& home);

// Told from a client's or socket's path.
[[nodiscard]] ContainerEngineKind containerEngineKind(std::string_view path);

// The application's name for texts ("Docker Desktop", "OrbStack"); empty for other engines.
[[nodiscard]] std::string_view containerEngineName(ContainerEngineKind kind);

// The client's places, in the order they are tried.
[[nodiscard]] DevTool dockerClient(const std::string& home);

// What every run of the client sets: no hints or hooks on its output, and the same socket the
// list was read from, so an action lands on the engine the user is looking at.
[[nodiscard]] Environment dockerClientEnvironment(const std::string& socketPath);

// The engine applications this platform knows, for "installed" and for starting one.
struct ContainerEngineApplication {
    std::string path;
    ContainerEngineKind kind;
};
[[nodiscard]] std::optional<ContainerEngineApplication> installedEngineApplication();

} // namespace kestrune
