#include "KestruneKit/Repositories/GitActions.h"

#include <array>
#include <utility>

#include "KestruneKit/DevTools/ShellCommandOutput.h"
#include "KestruneKit/Repositories/RepositoryReader.h"

namespace kestrune {

namespace {

// What git writes for the troubles a user can do something about, and the words for each. The
// first that matches wins, so the more particular come first.
constexpr std::array<std::pair<std::string_view, std::string_view>, 16> knownTroubles { {
    { "Please tell me who you are", "Git doesn’t know your name and email yet: set user.name and user.email" },
    { "terminal prompts disabled", "The remote wants you to sign in: sign in once in a terminal or set up a credential helper" },
    { "could not read Username", "The remote wants you to sign in: sign in once in a terminal or set up a credential helper" },
    { "Authentication failed", "The remote refused your credentials" },
    { "Permission denied (publickey", "The remote refused your SSH key" },
    { "Host key verification failed", "The remote’s SSH host key isn’t known yet: connect once in a terminal" },
    { "has no upstream branch", "This branch has no upstream yet: push it once with git push -u" },
    { "no tracking information", "This branch has no upstream to pull from" },
    { "No configured push destination", "There’s no remote to push to" },
    { "divergent branches", "Your branch and its upstream have diverged: merge or rebase them in a terminal" },
    { "Not possible to fast-forward", "Your branch and its upstream have diverged: merge or rebase them in a terminal" },
    { "CONFLICT", "Pulling stopped at conflicts: resolve them, then commit" },
    { "would be overwritten by merge", "Your changes would be overwritten: commit or stash them first" },
    { "fetch first", "The remote has commits you don’t have yet: pull first" },
    { "non-fast-forward", "The remote has commits you don’t have yet: pull first" },
    { "Could not resolve host", "Couldn’t reach the remote" },
} };

std::string firstErrorLine(std::string_view output)
{
    size_t start = 0;
    while (start < output.size()) {
        size_t end = output.find('\n', start);
        if (end == std::string_view::npos)
            end = output.size();
        std::string_view line = output.substr(start, end - start);
        for (std::string_view prefix : { std::string_view("fatal: "), std::string_view("error: ") })
            if (line.starts_with(prefix))
                return std::string(line.substr(prefix.size()));
        start = end + 1;
    }
    return {};
}

} // namespace

std::string_view toString(GitAction action)
{
    switch (action) {
    case GitAction::commitAll:
        return "Commit All";
    case GitAction::pull:
        return "Pull";
    case GitAction::push:
        return "Push";
    }
    return "";
}

GitActions::GitActions() : GitActions(DevToolBox(), RepositoryReader::locateGit()) {}

GitActions::GitActions(DevToolBox box, DevTool git)
    : box_(std::move(box))
    , git_(std::move(git))
    , removals_(RepositoryReader::locationRemovals())
{
}

DevTool::Run GitActions::git(const std::string& folder, std::vector<std::string> arguments, Seconds timeout) const
{
    arguments.insert(arguments.begin(), { "-C", folder });
    return box_.run(git_, arguments, std::nullopt, RepositoryReader::gitOverrides(), removals_, timeout);
}

std::string GitActions::failureFromOutput(GitAction action, std::string_view output)
{
    if (action == GitAction::commitAll && (output.find("nothing to commit") != std::string_view::npos
                                           || output.find("no changes added to commit") != std::string_view::npos))
        return "Nothing to commit";
    for (const auto& [says, words] : knownTroubles)
        if (output.find(says) != std::string_view::npos)
            return std::string(words);
    if (output.find("unable to access") != std::string_view::npos || output.find("Could not read from remote") != std::string_view::npos)
        return "Couldn’t reach the remote";
    if (output.find("not a git repository") != std::string_view::npos)
        return RepositoryReader::failureFromErrorOutput(output).text;
    if (std::string line = firstErrorLine(output); !line.empty())
        return "Git said: " + line;
    return std::string("Git couldn’t ") + (action == GitAction::commitAll ? "commit" : action == GitAction::pull ? "pull" : "push");
}

GitActionResult GitActions::run(GitAction action, const std::string& folder, const std::string& message) const
{
    GitActionResult result;
    if (action == GitAction::commitAll && message.find_first_not_of(" \t\r\n") == std::string::npos) {
        result.failure = "Write a message for the commit first";
        return result;
    }

    std::vector<DevTool::Run> runs;
    switch (action) {
    case GitAction::commitAll:
        runs.push_back(git(folder, { "add", "--all" }, commitTimeout));
        if (runs.back().succeeded())
            runs.push_back(git(folder, { "commit", "--message", message }, commitTimeout));
        break;
    case GitAction::pull: {
        // A merge it makes takes git's own message: no editor opens. Git refuses to pull into a
        // branch that has commits of its own until told how; unless the user has told it, the
        // card merges, as git did before it asked.
        std::vector<std::string> arguments { "pull", "--no-edit" };
        if (!git(folder, { "config", "--get", "pull.rebase" }, commitTimeout).succeeded()
            && !git(folder, { "config", "--get", "pull.ff" }, commitTimeout).succeeded())
            arguments.emplace_back("--no-rebase");
        runs.push_back(git(folder, arguments, networkTimeout));
        break;
    }
    case GitAction::push:
        runs.push_back(git(folder, { "push" }, networkTimeout));
        break;
    }

    std::string raw;
    for (const DevTool::Run& run : runs)
        raw += run.output + run.errorOutput;
    result.output = ShellCommandOutput::clean(raw);
    const DevTool::Run& last = runs.back();
    if (last.failure) {
        switch (*last.failure) {
        case DevTool::Run::Failure::notFound:
            result.failure = "Git isn’t installed";
            break;
        case DevTool::Run::Failure::couldNotLaunch:
            result.failure = "Git couldn’t start";
            break;
        case DevTool::Run::Failure::timedOut:
            result.failure = "Git took too long and was stopped";
            break;
        }
        return result;
    }
    result.succeeded = last.status == 0;
    if (!result.succeeded)
        result.failure = failureFromOutput(action, result.output);
    return result;
}

} // namespace kestrune
