#include "KestruneKit/Repositories/RepositoryReader.h"

#include <algorithm>
#include <cerrno>
#include <future>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "KestruneKit/Core/UniqueFd.h"

namespace kestrune {

namespace {

bool exists(const std::string& path)
{
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0;
}

#if defined(__APPLE__)
constexpr bool systemGitNeedsDeveloperTools = true;
#else
constexpr bool systemGitNeedsDeveloperTools = false;
#endif

bool developerToolsPresent()
{
    if (exists("/Library/Developer/CommandLineTools"))
        return true;
    DevToolBox box;
    auto run = box.run(DevTool { "xcode-select", { "/usr/bin/xcode-select" } }, { "-p" }, std::nullopt, {}, Seconds(5.0));
    return run.succeeded() && run.output.find('/') != std::string::npos;
}

std::string trimmed(std::string text)
{
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' '))
        text.pop_back();
    return text;
}

} // namespace

RepositoryReader::RepositoryReader() : RepositoryReader(DevToolBox(), locateGit()) {}

RepositoryReader::RepositoryReader(DevToolBox box, DevTool git)
    : box_(std::move(box))
    , git_(std::move(git))
    , removals_(gitRemovals(box_.base()))
{
}

DevTool RepositoryReader::locateGit()
{
    DevTool git { "git", { "/opt/homebrew/bin/git", "/usr/local/bin/git" } };
    if (!systemGitNeedsDeveloperTools || developerToolsPresent())
        git.candidates.emplace_back("/usr/bin/git");
    return git;
}

bool RepositoryReader::hasGit() const { return DevToolBox::locate(git_.candidates).has_value(); }

const Environment& RepositoryReader::gitOverrides()
{
    static const Environment overrides {
        { "GIT_TERMINAL_PROMPT", "0" },
        { "GIT_OPTIONAL_LOCKS", "0" },
        { "GIT_ASKPASS", "" },
        { "SSH_ASKPASS", "" },
        { "SSH_ASKPASS_REQUIRE", "never" },
        { "GCM_INTERACTIVE", "never" },
        { "GIT_PAGER", "cat" },
        { "GIT_EDITOR", ":" },
        { "LC_ALL", "C" },
    };
    return overrides;
}

namespace {

// Settings given through GIT_CONFIG_COUNT outrank every configuration file, included ones too.
// These hold whatever the files say; the filters and diff drivers a repository defines are added
// per read, as their names are only known then.
constexpr std::pair<std::string_view, std::string_view> fixedReadSettings[] {
    { "core.fsmonitor", "false" },
    { "core.hooksPath", "/dev/null" },
    { "credential.helper", "" },
    { "diff.external", "" },
};

void addSetting(Environment& environment, size_t& count, std::string_view key, std::string_view value)
{
    environment["GIT_CONFIG_KEY_" + std::to_string(count)] = key;
    environment["GIT_CONFIG_VALUE_" + std::to_string(count)] = value;
    environment["GIT_CONFIG_COUNT"] = std::to_string(++count);
}

} // namespace

const Environment& RepositoryReader::readOverrides()
{
    static const Environment overrides = [] {
        Environment environment = gitOverrides();
        // Any transport at all: a partial clone, or a submodule, could otherwise fetch through
        // the repository's core.sshCommand or a remote helper.
        environment["GIT_ALLOW_PROTOCOL"] = "none";
        size_t count = 0;
        for (const auto& [key, value] : fixedReadSettings)
            addSetting(environment, count, key, value);
        return environment;
    }();
    return overrides;
}

std::string_view RepositoryReader::programListingPattern()
{
    return R"(^(filter\..*\.(clean|smudge|process)|diff\..*\.(textconv|command)|merge\..*\.driver|remote\..*\.promisor|extensions\.partialclone)$)";
}

RepositoryReader::RepositoryPrograms RepositoryReader::programsFromListing(std::string_view listing)
{
    // The user's own settings (system and global, and what they include) stay: a filter such as
    // git-lfs set up there is trusted. Only what the repository says for itself is switched off.
    RepositoryPrograms programs;
    programs.overrides = readOverrides();
    size_t count = std::size(fixedReadSettings);
    std::vector<std::string> filters;
    size_t start = 0;
    while (start < listing.size()) {
        auto scopeEnd = listing.find('\0', start);
        if (scopeEnd == std::string_view::npos)
            break;
        auto nameEnd = listing.find('\0', scopeEnd + 1);
        if (nameEnd == std::string_view::npos)
            break;
        auto scope = listing.substr(start, scopeEnd - start);
        auto name = listing.substr(scopeEnd + 1, nameEnd - scopeEnd - 1);
        start = nameEnd + 1;
        if (scope != "local" && scope != "worktree")
            continue;
        if (name == "extensions.partialclone" || (name.starts_with("remote.") && name.ends_with(".promisor"))) {
            programs.partialClone = true;
            continue;
        }
        if (count >= maximumPrograms + std::size(fixedReadSettings)) {
            programs.tooMany = true;
            break;
        }
        addSetting(programs.overrides, count, name, "");
        // A filter marked required makes git fail when it does not run; unmarked, the file is
        // read as it is.
        if (name.starts_with("filter.")) {
            std::string driver(name.substr(0, name.rfind('.')));
            if (std::find(filters.begin(), filters.end(), driver) == filters.end()) {
                filters.push_back(driver);
                addSetting(programs.overrides, count, driver + ".required", "false");
            }
        }
    }
    return programs;
}

std::vector<std::string> RepositoryReader::locationRemovals()
{
    return { "GIT_DIR", "GIT_WORK_TREE", "GIT_INDEX_FILE", "GIT_COMMON_DIR", "GIT_OBJECT_DIRECTORY",
             "GIT_ALTERNATE_OBJECT_DIRECTORIES", "GIT_NAMESPACE", "GIT_PREFIX" };
}

std::vector<std::string> RepositoryReader::gitRemovals(const Environment& base)
{
    std::vector<std::string> removals = locationRemovals();
    // Inherited configuration overrides could turn a switched-off program back on.
    removals.insert(removals.end(), { "GIT_CONFIG_PARAMETERS", "GIT_CONFIG_COUNT", "GIT_ALLOW_PROTOCOL" });
    for (const auto& [name, value] : base)
        if (name.starts_with("GIT_CONFIG_KEY_") || name.starts_with("GIT_CONFIG_VALUE_"))
            removals.push_back(name);
    return removals;
}

RepositoryFailure RepositoryReader::failureFromErrorOutput(std::string_view errorOutput)
{
    std::string message;
    size_t start = 0;
    while (start < errorOutput.size()) {
        auto end = errorOutput.find('\n', start);
        if (end == std::string_view::npos)
            end = errorOutput.size();
        auto line = errorOutput.substr(start, end - start);
        if (line.starts_with("fatal:") || line.starts_with("error:")) {
            message += line;
            message += '\n';
        }
        start = end + 1;
    }
    auto says = [&](std::string_view words) { return message.find(words) != std::string::npos; };
    if (says("Operation not permitted") || says("Permission denied"))
        return repositoryFailure(RepositoryProblem::noAccess);
    if (says("dubious ownership"))
        return { RepositoryProblem::failed, "Git doesn’t trust this folder, as another user owns it. Add it with git config --global --add safe.directory" };
    if (says("must be run in a work tree"))
        return { RepositoryProblem::failed, "It’s a bare repository, with no files to show" };
    if (says("not a git repository"))
        return repositoryFailure(RepositoryProblem::notRepository);
    return { RepositoryProblem::failed, "Git couldn’t read it" };
}

std::optional<RepositoryOperation> operationFromGitFolder(const std::string& gitFolder)
{
    auto has = [&](const char* marker) { return exists(gitFolder + "/" + marker); };
    if (has("rebase-merge"))
        return RepositoryOperation::rebasing;
    if (has("rebase-apply"))
        return has("rebase-apply/applying") ? RepositoryOperation::applying : RepositoryOperation::rebasing;
    if (has("MERGE_HEAD"))
        return RepositoryOperation::merging;
    if (has("CHERRY_PICK_HEAD"))
        return RepositoryOperation::cherryPicking;
    if (has("REVERT_HEAD"))
        return RepositoryOperation::reverting;
    if (has("BISECT_LOG"))
        return RepositoryOperation::bisecting;
    return std::nullopt;
}

DevTool::Run RepositoryReader::git(const std::vector<std::string>& arguments, Seconds timeout, const Environment& overrides) const
{
    return box_.run(git_, arguments, std::nullopt, overrides, removals_, timeout);
}

RepositoryState RepositoryReader::read(const std::string& folder, Date now) const
{
    RepositoryState state { folder, repositoryFailure(RepositoryProblem::failed), now };
    struct stat info {};
    if (::stat(folder.c_str(), &info) != 0) {
        state.reading = repositoryFailure(errno == EACCES ? RepositoryProblem::noAccess : RepositoryProblem::missing);
        return state;
    }
    if (!S_ISDIR(info.st_mode)) {
        state.reading = repositoryFailure(RepositoryProblem::missing);
        return state;
    }
    if (UniqueFd directory(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)); !directory) {
        state.reading = repositoryFailure(RepositoryProblem::noAccess);
        return state;
    }

    // The remotes and the git folder do not depend on the status, so they are asked for while git
    // status walks the working copy: a read then takes about as long as git status alone.
    auto remotes = std::async(std::launch::async, [&] { return git({ "-C", folder, "remote" }, quickTimeout, readOverrides()); });
    auto gitFolder = std::async(std::launch::async, [&] { return git({ "-C", folder, "rev-parse", "--absolute-git-dir" }, quickTimeout, readOverrides()); });

    // git status runs a file's clean filter whenever the file's stat data no longer matches the
    // index, so every filter the repository defines is switched off first. Such a file may then
    // read as changed when only its filter would have made it match: a wrong "changed" is
    // visible and harmless, a program from a folder the user only pointed at is not.
    auto listing = git({ "-C", folder, "config", "--show-scope", "--null", "--name-only", "--get-regexp", std::string(programListingPattern()) },
                       quickTimeout, readOverrides());
    // Status 1 is nothing found. A git that could not start fails the status below the same way.
    if (listing.failure == DevTool::Run::Failure::timedOut) {
        state.reading = repositoryFailure(RepositoryProblem::timedOut);
        return state;
    }
    if (!listing.failure && listing.status != 0 && listing.status != 1) {
        state.reading = failureFromErrorOutput(listing.errorOutput);
        return state;
    }
    RepositoryPrograms programs = programsFromListing(listing.output);
    if (programs.tooMany) {
        state.reading = RepositoryFailure { RepositoryProblem::failed, "Its configuration names more programs than can be switched off to read it safely" };
        return state;
    }
    // A submodule is a repository with a configuration of its own, which the listing above does
    // not see: its commit is compared, its files are not walked. A partial clone reads without
    // rename detection, which would fetch the objects it lacks.
    std::vector<std::string> arguments { "-C", folder, "status", "--porcelain=v2", "--branch", "-z", "--ignore-submodules=dirty" };
    if (programs.partialClone)
        arguments.emplace_back("--no-renames");
    auto status = git(arguments, statusTimeout, programs.overrides);
    if (status.failure) {
        switch (*status.failure) {
        case DevTool::Run::Failure::notFound:
            state.reading = repositoryFailure(RepositoryProblem::noGit);
            break;
        case DevTool::Run::Failure::couldNotLaunch:
            state.reading = RepositoryFailure { RepositoryProblem::failed, "Git couldn’t start" };
            break;
        case DevTool::Run::Failure::timedOut:
            state.reading = repositoryFailure(RepositoryProblem::timedOut);
            break;
        }
        return state;
    }
    if (status.status != 0) {
        state.reading = failureFromErrorOutput(status.errorOutput);
        // Git takes a git folder it may not read for no repository at all.
        std::string gitEntry = folder + "/.git";
        if (state.failure()->problem == RepositoryProblem::notRepository && exists(gitEntry) && ::access(gitEntry.c_str(), R_OK) != 0)
            state.reading = repositoryFailure(RepositoryProblem::noAccess);
        return state;
    }

    RepositoryStatus reading = parseRepositoryStatus(status.output);
    if (auto remoteRun = remotes.get(); remoteRun.succeeded()) {
        size_t start = 0;
        const auto& text = remoteRun.output;
        while (start < text.size()) {
            auto end = text.find('\n', start);
            if (end == std::string::npos)
                end = text.size();
            if (end > start)
                reading.remotes.push_back(text.substr(start, end - start));
            start = end + 1;
        }
    }
    if (auto gitFolderRun = gitFolder.get(); gitFolderRun.succeeded())
        reading.operation = operationFromGitFolder(trimmed(gitFolderRun.output));
    state.reading = std::move(reading);
    return state;
}

} // namespace kestrune
