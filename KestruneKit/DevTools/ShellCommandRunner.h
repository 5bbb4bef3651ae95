#pragma once

// OVERVIEW
// Runs the user's saved commands: through zsh, in the command's folder, with an optional time
// limit and a stop, and hands every run's end to `onFinish` as a ShellCommandResult with the
// cleaned, size-capped output.
//
// TYPICAL USAGE
//   ShellCommandRunner runner(runtime);
//   runner.onFinish = [](const Uuid& id, const ShellCommandResult& result) { show(id, result); };
//   runner.run(command);
//   ...
//   runner.stop(command.id);
//
// Main thread only. Each run reads its pipe and waits for its child on a thread of its own, and
// comes back to the main thread through the runtime to finish. The runtime must outlive the runner.

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>

#include "KestruneKit/Core/Environment.h"
#include "KestruneKit/Core/Runtime.h"
#include "KestruneKit/Core/Uuid.h"
#include "KestruneKit/DevTools/OutputBuffer.h"
#include "KestruneKit/DevTools/ShellCommand.h"

namespace kestrune {

class ChildProcess;

class ShellCommandRunner {
public:
    using FinishHandler = std::function<void(const Uuid& id, const ShellCommandResult& result)>;

    // What a stop is remembered as; the first reason given wins.
    enum class StopReason { user, timeLimit };

    // How long a stopped command has between SIGTERM and SIGKILL.
    static constexpr Seconds killDelay { 2.0 };

    explicit ShellCommandRunner(Runtime& runtime);
    ShellCommandRunner(const ShellCommandRunner&) = delete;
    ShellCommandRunner& operator=(const ShellCommandRunner&) = delete;
    // Kills whatever still runs, grandchildren included, and waits for the reading threads.
    ~ShellCommandRunner();

    // Starts a run; a command whose text is blank, or that is running already, is not started.
    void run(const ShellCommand& command);
    // Stops a running command; its outcome becomes "stopped" (or "timedOut" for the time limit).
    void stop(const Uuid& id, StopReason reason = StopReason::user);
    [[nodiscard]] bool isRunning(const Uuid& id) const { return running_.contains(id); }
    // The ids of the commands that have a live process.
    [[nodiscard]] const std::set<Uuid>& running() const { return running_; }

    // Called whenever a run ends, fails to start or is handed to a terminal.
    FinishHandler onFinish;
    // Called whenever `running` changes.
    std::function<void()> onRunningChanged;

    // True: zsh runs as a login shell and also reads the user's .zshrc, quietly.
    [[nodiscard]] bool readsStartupFiles() const { return readsStartupFiles_; }
    void setReadsStartupFiles(bool reads) { readsStartupFiles_ = reads; }
    // The environment of every run; this process's own when not set.
    [[nodiscard]] const std::optional<Environment>& environment() const { return environment_; }
    void setEnvironment(std::optional<Environment> environment) { environment_ = std::move(environment); }
    // The shell that runs the commands.
    [[nodiscard]] const std::string& shell() const { return shell_; }
    void setShell(std::string shell) { shell_ = std::move(shell); }

    // The zsh arguments that run `command`.
    [[nodiscard]] static std::vector<std::string> shellArguments(const std::string& command, bool readsStartupFiles);
    // The working folder of a command: trimmed, empty as the home folder, a leading ~ expanded.
    [[nodiscard]] static std::string resolveFolder(const std::string& folder, const std::string& home);

    struct Job {
        std::shared_ptr<ChildProcess> process;
        Date started;
        std::shared_ptr<OutputBuffer> output;
        std::optional<ShellCommandResult::Outcome> ending;
        TimerHandle watchdog;
        std::thread reader;
    };
    [[nodiscard]] size_t jobCount() const { return jobs_.size(); }

private:
    struct Ended;
    void finishAtOnce(const Uuid& id, ShellCommandResult::Outcome outcome, Date started, std::string output);
    void finish(const Uuid& id, const std::shared_ptr<Job>& job, Ended ended);
    void publishRunning();
    Environment runEnvironment() const;

    Runtime& runtime_;
    bool readsStartupFiles_ = false;
    std::optional<Environment> environment_;
    std::string shell_ = "/bin/zsh";
    std::map<Uuid, std::shared_ptr<Job>> jobs_;
    std::set<Uuid> running_;
    std::list<TimerHandle> killTimers_;
    // Work posted back from the reading threads checks this before touching the runner.
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

} // namespace kestrune
