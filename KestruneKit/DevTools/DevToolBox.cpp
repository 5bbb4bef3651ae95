#include "KestruneKit/DevTools/DevToolBox.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>

#include <poll.h>

#include "KestruneKit/Process/ChildOutput.h"
#include "KestruneKit/Process/ChildProcess.h"

namespace kestrune {

namespace {

constexpr const char* defaultPath = "/usr/bin:/bin:/usr/sbin:/sbin";
constexpr std::array<const char*, 2> extraFolders { "/opt/homebrew/bin", "/usr/local/bin" };

// Keeps the first `limit` bytes of a stream.
struct Capture {
    std::string& into;
    size_t limit;
    bool* truncated;
    void operator()(std::string_view chunk) const
    {
        size_t room = into.size() < limit ? limit - into.size() : 0;
        if (chunk.size() > room && truncated)
            *truncated = true;
        into.append(chunk.substr(0, room));
    }
};

bool waitForExit(ChildProcess& child, Seconds within)
{
    pollfd fd { child.exitEventFd(), POLLIN, 0 };
    auto deadline = std::chrono::steady_clock::now() + std::chrono::duration_cast<std::chrono::steady_clock::duration>(within);
    while (!child.hasExited()) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0)
            return false;
        ::poll(&fd, 1, fd.fd >= 0 ? static_cast<int>(left.count()) + 1 : 10);
    }
    return true;
}

} // namespace

DevToolBox::DevToolBox() : base_(processEnvironment()) {}

DevToolBox::DevToolBox(Environment base) : base_(std::move(base)) {}

std::optional<std::string> DevToolBox::locate(const std::vector<std::string>& candidates)
{
    for (const auto& candidate : candidates)
        if (isExecutableFile(candidate))
            return candidate;
    return std::nullopt;
}

Environment DevToolBox::environment(const Environment& overrides, const std::vector<std::string>& removals) const
{
    Environment result = base_;
    for (const auto& name : removals)
        result.erase(name);
    for (const auto& [name, value] : overrides)
        result[name] = value;
    auto found = result.find("PATH");
    std::string path = found != result.end() ? found->second : defaultPath;
    for (const char* folder : extraFolders) {
        auto components = pathComponents(path);
        if (std::find(components.begin(), components.end(), folder) == components.end()) {
            path += ':';
            path += folder;
        }
    }
    result["PATH"] = path;
    return result;
}

DevTool::Run DevToolBox::run(const DevTool& tool, const std::vector<std::string>& arguments,
                             const std::optional<std::string>& folder, const Environment& overrides, Seconds timeout,
                             size_t outputLimit) const
{
    return run(tool, arguments, folder, overrides, {}, timeout, outputLimit);
}

DevTool::Run DevToolBox::run(const DevTool& tool, const std::vector<std::string>& arguments,
                             const std::optional<std::string>& folder, const Environment& overrides,
                             const std::vector<std::string>& removals, Seconds timeout, size_t outputLimit) const
{
    DevTool::Run result;
    auto executable = locate(tool.candidates);
    if (!executable) {
        result.failure = DevTool::Run::Failure::notFound;
        return result;
    }

    ChildProcessOptions options;
    options.executable = *executable;
    options.arguments = arguments;
    options.environment = environment(overrides, removals);
    options.workingFolder = folder;
    options.input = ChildStream::nullDevice;
    options.output = ChildStream::pipe;
    options.error = ChildStream::pipe;
    // A session of its own: no controlling terminal, so nothing it starts (ssh asking for a
    // passphrase) can wait on one. It leads its own process group too.
    options.grouping = ChildGrouping::newSession;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::duration_cast<std::chrono::steady_clock::duration>(timeout);
    auto spawned = ChildProcess::spawn(options);
    if (auto* failure = std::get_if<SpawnFailure>(&spawned)) {
        result.failure = DevTool::Run::Failure::couldNotLaunch;
        result.failureDetail = failure->description();
        return result;
    }
    auto& child = *std::get<std::unique_ptr<ChildProcess>>(spawned);

    bool ignoredTruncation = false;
    OutputEnd end = readOutput(child,
                               { { child.outputFd(), Capture { result.output, outputLimit, &result.outputTruncated } },
                                 { child.errorFd(), Capture { result.errorOutput, errorOutputLimit, &ignoredTruncation } } },
                               deadline);
    if (end == OutputEnd::deadlinePassed) {
        // SIGTERM first: git removes its lock files on the way out, and a killed git would leave
        // index.lock behind for the user to find.
        child.signalGroup(SIGTERM);
        (void)waitForExit(child, terminateGrace);
        // Then whatever is left of the group, grandchildren included.
        child.signalGroup(SIGKILL);
        child.wait();
        result.failure = DevTool::Run::Failure::timedOut;
        return result;
    }
    result.status = child.wait().exitCode();
    return result;
}

} // namespace kestrune
