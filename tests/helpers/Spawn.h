#pragma once
// Starting a helper process from a test: a spawn that fails fails the test; and reading what a
// child writes until a given text has come.

#include <poll.h>
#include <unistd.h>

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "KestruneKit/Process/ChildProcess.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune::test {

inline std::unique_ptr<ChildProcess> spawn(const ChildProcessOptions& options)
{
    auto spawned = ChildProcess::spawn(options);
    if (auto* failure = std::get_if<SpawnFailure>(&spawned)) {
        ADD_FAILURE() << failure->description();
        return nullptr;
    }
    return std::move(std::get<std::unique_ptr<ChildProcess>>(spawned));
}

// Appends what the descriptor gives to `text` until `wanted` is in it or `seconds` pass.
inline bool readUntil(int fd, std::string& text, const std::string& wanted, double seconds = 20)
{
    return eventually([&] {
        pollfd waiting { fd, POLLIN, 0 };
        if (::poll(&waiting, 1, 50) > 0) {
            char buffer[512];
            ssize_t count = ::read(fd, buffer, sizeof buffer);
            if (count > 0)
                text.append(buffer, static_cast<size_t>(count));
        }
        return text.find(wanted) != std::string::npos;
    }, seconds);
}

} // namespace kestrune::test
