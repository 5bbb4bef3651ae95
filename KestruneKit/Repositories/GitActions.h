#pragma once

// OVERVIEW
// The few things the Git card does to a working copy at the user's word: commit everything,
// pull, push. They are the user's own wish, so git runs as the user set it up, hooks and filters
// included, unlike a read. Each runs to its end with the readers' quiet environment, so git never
// asks on a terminal: a remote that wants a password fails at once with words saying so. Every call
// blocks on git (a push may wait on the network for minutes), so it runs on a monitor's queue.
//
// TYPICAL USAGE (on a worker thread)
//   GitActions actions;
//   GitActionResult result = actions.run(GitAction::push, "/home/me/src/dock");
//   if (!result.succeeded) show(result.failure);

#include <string>
#include <string_view>

#include "KestruneKit/DevTools/DevTool.h"
#include "KestruneKit/DevTools/DevToolBox.h"

namespace kestrune {

enum class GitAction { commitAll, pull, push };

[[nodiscard]] std::string_view toString(GitAction action);

struct GitActionResult {
    bool succeeded = false;
    // What git said, cleaned as a terminal would show it.
    std::string output;
    // What went wrong, in words, when it did not succeed.
    std::string failure;
};

class GitActions {
public:
    // Hooks may run on a commit; the network is slow.
    static constexpr Seconds commitTimeout { 60.0 };
    static constexpr Seconds networkTimeout { 180.0 };

    GitActions();
    // Tests name the git and the environment.
    GitActions(DevToolBox box, DevTool git);

    // `message` is for a commit only; a commit needs one.
    [[nodiscard]] GitActionResult run(GitAction action, const std::string& folder, const std::string& message = {}) const;

    // The words for a git that ran and failed, from what it wrote.
    [[nodiscard]] static std::string failureFromOutput(GitAction action, std::string_view output);

private:
    [[nodiscard]] DevTool::Run git(const std::string& folder, std::vector<std::string> arguments, Seconds timeout) const;

    DevToolBox box_;
    DevTool git_;
    std::vector<std::string> removals_;
};

} // namespace kestrune
