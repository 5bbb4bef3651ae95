#include "KestruneKit/Containers/ContainerEngine.h"

#include <filesystem>
#include <fstream>
#include <sstream>

#include <nlohmann/json.hpp>

#include "KestruneKit/Core/JsonFields.h"
#include "KestruneKit/Core/RawNames.h"

namespace kestrune {

namespace {

constexpr RawNames<ContainerEngineKind, 3> kindNames { { {
    { ContainerEngineKind::dockerDesktop, "dockerDesktop" },
    { ContainerEngineKind::orbStack, "orbStack" },
    { ContainerEngineKind::other, "other" },
} } };

constexpr std::string_view unixScheme = "unix://";
constexpr const char* defaultSocket = "/var/run/docker.sock";
// Configuration files are small; anything larger is not one.
constexpr std::uintmax_t configurationLimit = 1024 * 1024;

std::optional<nlohmann::json> readJson(const std::filesystem::path& path)
{
    std::error_code error;
    auto size = std::filesystem::file_size(path, error);
    if (error || size > configurationLimit)
        return std::nullopt;
    std::ifstream stream(path, std::ios::binary);
    std::stringstream text;
    text << stream.rdbuf();
    auto json = nlohmann::json::parse(text.str(), nullptr, false);
    if (json.is_discarded() || !json.is_object())
        return std::nullopt;
    return json;
}

std::optional<std::string> unixPath(std::string_view address)
{
    if (!address.starts_with(unixScheme) || address.size() == unixScheme.size())
        return std::nullopt;
    return std::string(address.substr(unixScheme.size()));
}

// The client names each context's folder by the SHA-256 of the context's name; reading the
// names from the meta files finds the same folder without hashing, and keeps working for any
// client that names them differently.
std::optional<std::string> contextSocket(const std::filesystem::path& configFolder, const std::string& context)
{
    std::error_code error;
    std::filesystem::directory_iterator folders(configFolder / "contexts" / "meta", error);
    if (error)
        return std::nullopt;
    for (const auto& entry : folders) {
        auto meta = readJson(entry.path() / "meta.json");
        if (!meta || jsonText(*meta, "Name") != context)
            continue;
        const nlohmann::json* at = &*meta;
        for (const char* key : { "Endpoints", "docker" }) {
            auto found = at->is_object() ? at->find(key) : at->end();
            if (found == at->end())
                return std::nullopt;
            at = &*found;
        }
        return at->is_object() ? unixPath(jsonText(*at, "Host")) : std::nullopt;
    }
    return std::nullopt;
}

} // namespace

std::string_view toString(ContainerEngineKind kind) { return kindNames.name(kind); }

std::string containerSocketPath(const Environment& environment, const std::string& home)
{
    auto variable = [&](const char* name) {
        auto found = environment.find(name);
        return found != environment.end() ? found->second : std::string {};
    };
    if (auto path = unixPath(variable("DOCKER_HOST")))
        return *path;

    std::filesystem::path configFolder = variable("DOCKER_CONFIG").empty() ? std::filesystem::path(home) / ".docker"
                                                                          : std::filesystem::path(variable("DOCKER_CONFIG"));
    std::string context = variable("DOCKER_CONTEXT");
    if (context.empty()) {
        if (auto config = readJson(configFolder / "config.json"); config && (*config)["currentContext"].is_string())
            context = (*config)["currentContext"].get<std::string>();
    }
    if (!context.empty() && context != "default") {
        if (auto path = contextSocket(configFolder, context))
            return *path;
    }
    return defaultSocket;
}

ContainerEngineKind containerEngineKind(std::string_view path)
{
    if (path.find("/OrbStack.app/") != std::string_view::npos || path.find("/.orbstack/") != std::string_view::npos)
        return ContainerEngineKind::orbStack;
    if (path.find("/Docker.app/") != std::string_view::npos || path.find("/.docker/run/") != std::string_view::npos)
        return ContainerEngineKind::dockerDesktop;
    return ContainerEngineKind::other;
}

std::string_view containerEngineName(ContainerEngineKind kind)
{
    switch (kind) {
    case ContainerEngineKind::dockerDesktop:
        return "Docker Desktop";
    case ContainerEngineKind::orbStack:
        return "OrbStack";
    case ContainerEngineKind::other:
        break;
    }
    return {};
}

DevTool dockerClient(const std::string& home)
{
    DevTool docker { "docker", {
        "/usr/local/bin/docker",
        "/opt/homebrew/bin/docker",
        home + "/.orbstack/bin/docker",
        home + "/.docker/bin/docker",
        "/Applications/Docker.app/Contents/Resources/bin/docker",
        "/Applications/OrbStack.app/Contents/MacOS/xbin/docker",
    } };
#if !defined(__APPLE__)
    docker.candidates.emplace_back("/usr/bin/docker");
#endif
    return docker;
}

Environment dockerClientEnvironment(const std::string& socketPath)
{
    return { { "DOCKER_CLI_HINTS", "false" }, { "DOCKER_CLI_HOOKS", "false" }, { "DOCKER_HOST", std::string(unixScheme) + socketPath } };
}

std::optional<ContainerEngineApplication> installedEngineApplication()
{
#if defined(__APPLE__)
    for (const auto& application : { ContainerEngineApplication { "/Applications/Docker.app", ContainerEngineKind::dockerDesktop },
                                     ContainerEngineApplication { "/Applications/OrbStack.app", ContainerEngineKind::orbStack } }) {
        std::error_code error;
        if (std::filesystem::is_directory(application.path, error))
            return application;
    }
#endif
    // Engines on Linux are system services with no application to open.
    return std::nullopt;
}

} // namespace kestrune
