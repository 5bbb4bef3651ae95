#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kestrune {

// A command-line tool the monitors run, named by the places it is usually installed, in the
// order they are tried (Homebrew's /opt/homebrew/bin before /usr/local/bin).
struct DevTool {
    std::string name;
    std::vector<std::string> candidates;

    // The result of one run.
    struct Run {
        enum class Failure { notFound, couldNotLaunch, timedOut };

        // Empty when the tool ran to its end; then `status` is its exit code.
        std::optional<Failure> failure;
        int status = 0;
        std::string output;
        std::string errorOutput;
        // Set when the output passed the run's limit; what follows the limit was read and dropped.
        bool outputTruncated = false;
        // What went wrong, in words, for couldNotLaunch.
        std::string failureDetail;

        [[nodiscard]] bool succeeded() const { return !failure && status == 0; }
    };

    // The tools whose places this platform knows, for the overview.
    [[nodiscard]] static const std::vector<DevTool>& known();
};

[[nodiscard]] std::string_view toString(DevTool::Run::Failure failure);

} // namespace kestrune
