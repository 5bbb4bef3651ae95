#include "KestruneKit/Repositories/RepositoryReader.h"

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
        // A repository's own configuration must never make a read run a program: the fsmonitor
        // hook is the one git status would start. Settings given this way outrank the
        // repository's config file.
        { "GIT_CONFIG_COUNT", "1" },
        { "GIT_CONFIG_KEY_0", "core.fsmonitor" },
        { "GIT_CONFIG_VALUE_0", "false" },
    };
    return overrides;
}

std::vector<std::string> RepositoryReader::gitRemovals(const Environment& base)
{
    std::vector<std::string> removals {
        "GIT_DIR", "GIT_WORK_TREE", "GIT_INDEX_FILE", "GIT_COMMON_DIR", "GIT_OBJECT_DIRECTORY",
        "GIT_ALTERNATE_OBJECT_DIRECTORIES", "GIT_NAMESPACE", "GIT_PREFIX",
        // Inherited configuration overrides could turn the hook back on.
        "GIT_CONFIG_PARAMETERS", "GIT_CONFIG_COUNT",
    };
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

DevTool::Run RepositoryReader::git(const std::vector<std::string>& arguments, Seconds timeout) const
{
    return box_.run(git_, arguments, std::nullopt, gitOverrides(), removals_, timeout);
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
    auto remotes = std::async(std::launch::async, [&] { return git({ "-C", folder, "remote" }, quickTimeout); });
    auto gitFolder = std::async(std::launch::async, [&] { return git({ "-C", folder, "rev-parse", "--absolute-git-dir" }, quickTimeout); });
    auto status = git({ "-C", folder, "status", "--porcelain=v2", "--branch", "-z" }, statusTimeout);
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
