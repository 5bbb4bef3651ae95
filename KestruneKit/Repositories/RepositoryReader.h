#pragma once

// OVERVIEW
// Reads one git working copy without touching it: no prompt, no index lock, and no program run
// that the repository names (filters, hooks, fsmonitor, diff drivers, transports), since a
// folder the user only pointed at may come from anyone. Every call blocks on git, so it runs on a monitor's
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

    // What every git call sets, and what it removes from the inherited environment first: git
    // stays quiet, asks nothing and takes no optional lock. The Git card's actions run with this
    // alone, so hooks and filters work there as the user set them up.
    [[nodiscard]] static const Environment& gitOverrides();
    // What a read adds: no hook, fsmonitor, credential helper, external diff or transport runs,
    // whatever any configuration file says.
    [[nodiscard]] static const Environment& readOverrides();
    [[nodiscard]] static std::vector<std::string> gitRemovals(const Environment& base);
    // Only what could point git at another repository; the actions keep the rest.
    [[nodiscard]] static std::vector<std::string> locationRemovals();

    // The repository's own programs, listed by `git config` without running any of them, and
    // the overrides that switch each off for one read.
    struct RepositoryPrograms {
        Environment overrides;
        // A partial clone fetches missing objects on demand, which would reach the network.
        bool partialClone = false;
        bool tooMany = false;
    };
    static constexpr size_t maximumPrograms = 200;
    [[nodiscard]] static std::string_view programListingPattern();
    // `listing` is `git config --show-scope --null --name-only --get-regexp` output.
    [[nodiscard]] static RepositoryPrograms programsFromListing(std::string_view listing);

    // A failed git's standard error, as a problem.
    [[nodiscard]] static RepositoryFailure failureFromErrorOutput(std::string_view errorOutput);

private:
    [[nodiscard]] DevTool::Run git(const std::vector<std::string>& arguments, Seconds timeout, const Environment& overrides) const;

    DevToolBox box_;
    DevTool git_;
    std::vector<std::string> removals_;
};

[[nodiscard]] std::optional<RepositoryOperation> operationFromGitFolder(const std::string& gitFolder);

} // namespace kestrune
