#include "KestruneKit/AIUsage/AIUsageCodexServer.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <mutex>

#include <poll.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "KestruneKit/AIUsage/AIUsageTally.h"
#include "KestruneKit/Process/ChildProcess.h"

namespace kestrune {

namespace {

using Json = nlohmann::json;
using Clock = std::chrono::steady_clock;

std::vector<std::string> nodeVersionFolders(const std::string& home)
{
    std::vector<std::string> folders;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(home + "/.nvm/versions/node", error))
        folders.push_back(entry.path().string() + "/bin");
    // The newest version first, as nvm names them (v22.3.0 after v20.11.1).
    std::sort(folders.begin(), folders.end(), std::greater<> {});
    return folders;
}

bool writeAll(int fd, const std::string& text)
{
    for (size_t written = 0; written < text.size();) {
        ssize_t wrote = ::write(fd, text.data() + written, text.size() - written);
        if (wrote < 0 && errno == EINTR)
            continue;
        if (wrote <= 0)
            return false;
        written += static_cast<size_t>(wrote);
    }
    return true;
}

// Reads lines until one is the reply with this id; none at the deadline or the end of output.
std::optional<Json> awaitReply(int fd, std::string& pending, int id, Clock::time_point deadline)
{
    for (;;) {
        size_t end;
        while ((end = pending.find('\n')) != std::string::npos) {
            auto message = Json::parse(std::string_view(pending).substr(0, end), nullptr, false);
            pending.erase(0, end + 1);
            if (message.is_object() && message.contains("id") && message["id"] == id)
                return message;
        }
        // A server that floods us without answering is not worth more memory.
        if (pending.size() > 4 * 1024 * 1024)
            return std::nullopt;
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0)
            return std::nullopt;
        pollfd watched { fd, POLLIN, 0 };
        int ready = ::poll(&watched, 1, static_cast<int>(std::min<int64_t>(left, 1000)));
        if (ready < 0 && errno != EINTR)
            return std::nullopt;
        if (ready <= 0)
            continue;
        char chunk[16384];
        ssize_t got = ::read(fd, chunk, sizeof chunk);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return std::nullopt;
        pending.append(chunk, static_cast<size_t>(got));
    }
}

void end(ChildProcess& child)
{
    child.closeInput();
    child.signal(SIGTERM);
    for (int tries = 0; tries < 20 && !child.hasExited(); ++tries)
        ::usleep(25000);
    if (!child.hasExited())
        child.signal(SIGKILL);
    child.wait();
}

} // namespace

std::optional<std::string> locateCodex(const std::string& home)
{
    std::vector<std::string> candidates { "/opt/homebrew/bin/codex", "/usr/local/bin/codex" };
    for (const char* place : { "/.local/bin/codex", "/.npm-global/bin/codex", "/.codex/bin/codex", "/.volta/bin/codex", "/Library/pnpm/codex",
                               "/.local/share/pnpm/codex", "/.bun/bin/codex" })
        candidates.push_back(home + place);
    for (const auto& folder : nodeVersionFolders(home))
        candidates.push_back(folder + "/codex");
    for (const auto& candidate : candidates)
        if (isExecutableFile(candidate))
            return candidate;
    return std::nullopt;
}

Environment codexEnvironment(const Environment& base, const std::string& home)
{
    Environment environment = base;
    std::string path = environment.count("PATH") ? environment["PATH"] : std::string("/usr/bin:/bin");
    for (const char* folder : { "/.local/bin", "/.volta/bin", "/.npm-global/bin", "/.bun/bin" })
        path += ":" + home + folder;
    for (const auto& folder : nodeVersionFolders(home))
        path += ":" + folder;
    environment["PATH"] = path;
    return environment;
}

std::optional<AIUsageCodexLimits> askCodex(const std::string& codex, const std::string& home, const AIUsageCodexClient& client, Seconds deadline)
{
    // A server that quits while we write must not end us with SIGPIPE.
    static std::once_flag ignorePipe;
    std::call_once(ignorePipe, [] { std::signal(SIGPIPE, SIG_IGN); });

    auto until = Clock::now() + std::chrono::duration_cast<Clock::duration>(deadline);
    ChildProcessOptions options;
    options.executable = codex;
    options.arguments = { "app-server" };
    options.environment = codexEnvironment(processEnvironment(), home);
    options.workingFolder = home;
    options.input = ChildStream::pipe;
    options.output = ChildStream::pipe;
    options.error = ChildStream::nullDevice;
    options.grouping = ChildGrouping::newProcessGroup;
    auto spawned = ChildProcess::spawn(options);
    auto* started = std::get_if<std::unique_ptr<ChildProcess>>(&spawned);
    if (!started)
        return std::nullopt;
    auto& child = **started;

    std::optional<AIUsageCodexLimits> limits;
    std::string pending;
    Json initialize { { "id", 1 }, { "method", "initialize" },
                      { "params", { { "clientInfo", { { "name", client.name }, { "title", client.title }, { "version", client.version } } } } } };
    if (writeAll(child.inputFd(), initialize.dump() + "\n") && awaitReply(child.outputFd(), pending, 1, until)) {
        Json initialized { { "method", "initialized" } };
        Json read { { "id", 2 }, { "method", "account/rateLimits/read" }, { "params", { { "excludeResetCreditDetails", true } } } };
        if (writeAll(child.inputFd(), initialized.dump() + "\n" + read.dump() + "\n")) {
            if (auto reply = awaitReply(child.outputFd(), pending, 2, until)) {
                auto result = reply->find("result");
                if (result != reply->end() && result->is_object())
                    if (auto found = result->find("rateLimits"); found != result->end())
                        limits = decodeCodexRateLimits(*found, std::chrono::system_clock::now());
            }
        }
    }
    end(child);
    child.signalGroup(SIGKILL);
    return limits;
}

} // namespace kestrune
