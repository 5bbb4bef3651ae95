#pragma once

// OVERVIEW
// Reads one git working copy without touching it: no prompt, no index lock, nothing run that
// the repository's own configuration names. Every call blocks on git, so it runs on a monitor's
// queue, never on the main thread.
//
// TYPICAL USAGE
//   RepositoryReader reader;
//   RepositoryState state = reader.read("/home/me/src/dock", runtime.now());
//   if (auto* status = state.status()) ...

#include <string>
#include <string_view>
#include <vector>

#include "KestruneKit/DevTools/DevTool.h"
#include "KestruneKit/DevTools/DevToolBox.h"
#include "KestruneKit/Repositories/RepositoryStatus.h"

namespace kestrune {

class RepositoryReader {
public:
    static constexpr Seconds statusTimeout { 15.0 };
    static constexpr Seconds quickTimeout { 5.0 };

    // Git from its usual places, in this process's environment.
    RepositoryReader();
    // Tests name the git and the environment.
    RepositoryReader(DevToolBox box, DevTool git);

    [[nodiscard]] RepositoryState read(const std::string& folder, Date now) const;

    // Whether a git that counts is installed. May run xcode-select on macOS: not on the main thread.
    [[nodiscard]] bool hasGit() const;

    // Git's places in order. On macOS /usr/bin/git is only a stub that offers to install the
    // developer tools, so it counts only when they are there.
    [[nodiscard]] static DevTool locateGit();

    // What every git call sets, and what it removes from the inherited environment first.
    [[nodiscard]] static const Environment& gitOverrides();
    [[nodiscard]] static std::vector<std::string> gitRemovals(const Environment& base);

    // A failed git's standard error, as a problem.
    [[nodiscard]] static RepositoryFailure failureFromErrorOutput(std::string_view errorOutput);

private:
    [[nodiscard]] DevTool::Run git(const std::vector<std::string>& arguments, Seconds timeout) const;

    DevToolBox box_;
    DevTool git_;
    std::vector<std::string> removals_;
};

[[nodiscard]] std::optional<RepositoryOperation> operationFromGitFolder(const std::string& gitFolder);

} // namespace kestrune
