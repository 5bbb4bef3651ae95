#pragma once

// Reads the engine's container list straight from its Unix socket: one HTTP request, answered
// in full. Blocks: any thread but the main one.

#include <string>
#include <variant>
#include <vector>

#include "KestruneKit/Containers/ContainerList.h"
#include "KestruneKit/Core/Runtime.h"

namespace kestrune {

enum class ContainerReadFailure {
    // 104 bytes or more: longer than a Unix socket address can hold on macOS, so not tried.
    socketPathTooLong,
    // Nothing listens at the path (no socket, or the engine is stopped).
    notRunning,
    timedOut,
    // An answer that is not a 200 with a JSON array, or one cut short.
    badAnswer,
    // libcurl could not be loaded.
    noHttpLibrary,
};

[[nodiscard]] std::string_view toString(ContainerReadFailure failure);

// The request, byte for byte.
inline constexpr std::string_view containerListRequest = "GET /containers/json HTTP/1.1\r\nHost: docker\r\nConnection: close\r\n\r\n";

struct ContainerEngineSocket {
    static constexpr size_t socketPathLimit = 104;
    // A list of thousands of containers is a few megabytes; past this the answer is not one.
    static constexpr size_t answerLimit = 64 * 1024 * 1024;
    static constexpr Seconds defaultTimeout { 10.0 };

    [[nodiscard]] static std::variant<std::vector<Container>, ContainerReadFailure> readContainers(const std::string& socketPath,
                                                                                                     Seconds timeout = defaultTimeout);
};

} // namespace kestrune
