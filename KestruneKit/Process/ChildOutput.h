#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

namespace kestrune {

class ChildProcess;

// One of a child's output pipes and where its bytes go. The sink runs on the reading thread.
struct OutputSource {
    int fd = -1;
    std::function<void(std::string_view)> sink;
};

enum class OutputEnd { childExited, deadlinePassed };

// Reads a child's pipes on the calling thread until the child exits, or until the deadline.
//
// The end is the child's exit, not the pipes' end of file: a background process the child left
// behind (`sleep 60 &`) keeps the pipes open for as long as it lives, and must not hold the
// caller. Once the child has exited, what it wrote is all in the pipes already; that is read,
// up to a bound, and the pipes are left alone. Blocks; never call it on the main thread.
[[nodiscard]] OutputEnd readOutput(ChildProcess& child, const std::vector<OutputSource>& sources,
                                   std::optional<std::chrono::steady_clock::time_point> deadline);

} // namespace kestrune
