#pragma once

// OVERVIEW
// The one way the Kit starts another program: posix_spawn with explicit file actions, no
// descriptor but the three standard streams reaching the child, every signal at its default and
// none blocked, and waitpid on the child's own pid only.
//
// TYPICAL USAGE
//   ChildProcessOptions options;
//   options.executable = "/usr/bin/git";
//   options.arguments = { "status", "--porcelain=v2" };
//   options.grouping = ChildGrouping::newProcessGroup;
//   auto spawned = ChildProcess::spawn(options);
//   if (auto* failure = std::get_if<SpawnFailure>(&spawned)) { ... failure->description() ... }
//   auto& child = *std::get<std::unique_ptr<ChildProcess>>(spawned);
//   readOutput(child, { { child.outputFd(), sink } }, deadline);
//   ExitStatus status = child.wait();
//
// A ChildProcess may be shared between threads: one waits while another signals. The pid is
// never signalled after it has been reaped, so a signal cannot reach an unrelated process that
// was given the same number. Destroying a child that has not been reaped kills and reaps it,
// unless it was detached.

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <variant>
#include <vector>

#include <sys/types.h>

#include "KestruneKit/Core/Environment.h"
#include "KestruneKit/Core/UniqueFd.h"

namespace kestrune {

enum class ChildStream {
    nullDevice,
    pipe,
    // Standard error only: the same pipe as standard output.
    mergedWithOutput,
    inherit,
};

enum class ChildGrouping {
    none,
    // The child leads a process group of its own, whose id is its pid.
    newProcessGroup,
    // The child leads a new session (and so a new process group), detached from our terminal.
    newSession,
};

struct ChildProcessOptions {
    std::string executable;
    // Arguments after argv[0].
    std::vector<std::string> arguments;
    // argv[0]; the executable's path when not given.
    std::optional<std::string> argument0;
    // The whole environment of the child; this process's own when not given.
    std::optional<Environment> environment;
    std::optional<std::string> workingFolder;
    ChildStream input = ChildStream::nullDevice;
    ChildStream output = ChildStream::pipe;
    ChildStream error = ChildStream::pipe;
    ChildGrouping grouping = ChildGrouping::none;
};

struct ExitStatus {
    enum class Kind { exited, signalled };
    Kind kind = Kind::exited;
    // The exit status, or the number of the signal that ended the child.
    int code = 0;

    // As a shell reports it: the status, or 128 plus the signal number.
    [[nodiscard]] int exitCode() const { return kind == Kind::exited ? code : 128 + code; }
    [[nodiscard]] bool succeeded() const { return kind == Kind::exited && code == 0; }
    bool operator==(const ExitStatus&) const = default;
};

struct SpawnFailure {
    // The errno value that posix_spawn or the set-up before it gave.
    int error = 0;
    std::string executable;
    [[nodiscard]] std::string description() const;
};

class ChildProcess {
public:
    using Spawned = std::variant<std::unique_ptr<ChildProcess>, SpawnFailure>;
    [[nodiscard]] static Spawned spawn(const ChildProcessOptions& options);

    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess();

    [[nodiscard]] pid_t pid() const { return pid_; }

    // Our ends of the pipes asked for; -1 where no pipe was made. The ChildProcess keeps owning them.
    [[nodiscard]] int inputFd() const { return input_.get(); }
    [[nodiscard]] int outputFd() const { return output_.get(); }
    [[nodiscard]] int errorFd() const { return error_.get(); }
    // Closes our end of the input pipe, so the child reads end of file.
    void closeInput() { input_.reset(); }
    // Closes our ends of the output pipes; a child still writing gets SIGPIPE.
    void closeOutputs();

    // A descriptor that becomes readable once the child has exited (whether or not it has been
    // reaped), for poll() beside the output pipes. Created on first use.
    [[nodiscard]] int exitEventFd();

    // True once the child has exited; never blocks and never reaps.
    [[nodiscard]] bool hasExited();
    // Reaps the child if it has exited; never blocks.
    [[nodiscard]] std::optional<ExitStatus> tryWait();
    // Blocks until the child has exited and reaps it. Any thread; safe to call more than once.
    ExitStatus wait();

    // Sends a signal to the child; false once it has been reaped or when the call fails.
    bool signal(int signal);
    // Sends a signal to the child's process group; false when the child leads no group of its
    // own or no member of the group is left. Members outlive a reaped leader, so this still
    // reaches grandchildren after the child itself has gone.
    bool signalGroup(int signal);

    // Lets the child live on after this object is gone: it is neither killed nor reaped here.
    void detach() { detached_ = true; }

private:
    ChildProcess() = default;
    void recordReaped(int waitStatus);

    pid_t pid_ = -1;
    bool ownsGroup_ = false;
    bool detached_ = false;
    UniqueFd input_;
    UniqueFd output_;
    UniqueFd error_;

    std::mutex mutex_;
    std::optional<ExitStatus> status_;

    std::once_flag exitEventOnce_;
    UniqueFd exitEvent_;
    // Where the system gives no pollable process descriptor, a thread waits (without reaping)
    // and writes to a pipe.
    UniqueFd exitEventWriter_;
    std::thread exitWatcher_;
};

} // namespace kestrune
