#pragma once

// OVERVIEW
// Finds a command-line tool among its usual places and runs it the way every developer monitor
// needs: a fixed environment, a working folder, a time-out that holds whatever the tool does,
// and standard output and standard error kept apart (readers match error lines).
//
// TYPICAL USAGE (on a monitor's worker thread, never the main thread)
//   DevToolBox box;
//   DevTool::Run run = box.run(git, { "status", "--porcelain=v2", "-z" }, folder,
//                              { { "GIT_OPTIONAL_LOCKS", "0" } }, Seconds(15));
//   if (run.failure == DevTool::Run::Failure::notFound) ...

#include <optional>
#include <string>
#include <vector>

#include "KestruneKit/Core/Environment.h"
#include "KestruneKit/Core/Runtime.h"
#include "KestruneKit/DevTools/DevTool.h"

namespace kestrune {

class DevToolBox {
public:
    // How much of each stream a run keeps; the rest is read and dropped so the tool never blocks.
    static constexpr size_t defaultOutputLimit = 32 * 1024 * 1024;
    static constexpr size_t errorOutputLimit = 1024 * 1024;
    // After the time-out, how long the tool has between SIGTERM and SIGKILL: enough for git to
    // remove its lock files.
    static constexpr Seconds terminateGrace { 1.0 };

    // Builds on this process's environment.
    DevToolBox();
    // Builds on the given environment instead; tests use this.
    explicit DevToolBox(Environment base);

    [[nodiscard]] const Environment& base() const { return base_; }

    // The first candidate, in order, that is an executable file.
    [[nodiscard]] static std::optional<std::string> locate(const std::vector<std::string>& candidates);

    // The base environment less the removed names, with the overrides set on top, and PATH
    // completed with Homebrew's and the local folders when it lacks them.
    [[nodiscard]] Environment environment(const Environment& overrides, const std::vector<std::string>& removals = {}) const;

    // Runs the tool to its end or its time-out. Blocks the calling thread; any thread but the
    // main one. The tool leads a process group of its own, so a time-out ends its children too.
    [[nodiscard]] DevTool::Run run(const DevTool& tool, const std::vector<std::string>& arguments,
                                   const std::optional<std::string>& folder, const Environment& overrides,
                                   Seconds timeout, size_t outputLimit = defaultOutputLimit) const;
    // The same, with names removed from the environment before the overrides are set.
    [[nodiscard]] DevTool::Run run(const DevTool& tool, const std::vector<std::string>& arguments,
                                   const std::optional<std::string>& folder, const Environment& overrides,
                                   const std::vector<std::string>& removals, Seconds timeout,
                                   size_t outputLimit = defaultOutputLimit) const;

private:
    Environment base_;
};

} // namespace kestrune
