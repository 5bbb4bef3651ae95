#include "KestruneKit/Process/ChildProcess.h"

#include <cerrno>
#include <csignal>
#include <cstring>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "KestruneKit/Process/ChildProcessPlatform.h"

extern char** environ;

namespace kestrune {

namespace {

// The file actions and attributes of one spawn, destroyed on every path out.
struct SpawnSetup {
    posix_spawn_file_actions_t actions {};
    posix_spawnattr_t attributes {};
    bool actionsReady = false;
    bool attributesReady = false;
    ~SpawnSetup()
    {
        if (actionsReady)
            ::posix_spawn_file_actions_destroy(&actions);
        if (attributesReady)
            ::posix_spawnattr_destroy(&attributes);
    }
};

// A pipe end that landed on 0, 1 or 2 (because this process has one of those closed) would be
// overwritten by the dup2 actions; move it above them.
int keepAboveStandardStreams(UniqueFd& fd)
{
    if (fd.get() > 2)
        return 0;
    int moved = ::fcntl(fd.get(), F_DUPFD_CLOEXEC, 3);
    if (moved < 0)
        return errno;
    fd.reset(moved);
    return 0;
}

int makeChildPipe(PipeEnds& ends)
{
    if (int error = makePipe(ends))
        return error;
    if (int error = keepAboveStandardStreams(ends.read))
        return error;
    return keepAboveStandardStreams(ends.write);
}

} // namespace

std::string SpawnFailure::description() const
{
    return "Couldn’t start " + executable + ": " + std::strerror(error);
}

ChildProcess::Spawned ChildProcess::spawn(const ChildProcessOptions& options)
{
    auto fail = [&](int error) -> Spawned { return SpawnFailure { error, options.executable }; };
    if (options.executable.empty())
        return fail(ENOENT);
    if (options.input == ChildStream::mergedWithOutput || options.output == ChildStream::mergedWithOutput)
        return fail(EINVAL);
    if (options.error == ChildStream::mergedWithOutput && options.output != ChildStream::pipe)
        return fail(EINVAL);

    SpawnSetup setup;
    if (int error = ::posix_spawn_file_actions_init(&setup.actions))
        return fail(error);
    setup.actionsReady = true;
    if (int error = ::posix_spawnattr_init(&setup.attributes))
        return fail(error);
    setup.attributesReady = true;

    std::unique_ptr<ChildProcess> child(new ChildProcess());
    PipeEnds inputPipe, outputPipe, errorPipe;

    auto addStream = [&](ChildStream mode, int target, PipeEnds& pipe, bool childReads) -> int {
        switch (mode) {
        case ChildStream::nullDevice:
            return ::posix_spawn_file_actions_addopen(&setup.actions, target, "/dev/null",
                                                      childReads ? O_RDONLY : O_WRONLY, 0);
        case ChildStream::pipe: {
            if (int error = makeChildPipe(pipe))
                return error;
            int childEnd = childReads ? pipe.read.get() : pipe.write.get();
            return ::posix_spawn_file_actions_adddup2(&setup.actions, childEnd, target);
        }
        case ChildStream::mergedWithOutput:
            return ::posix_spawn_file_actions_adddup2(&setup.actions, outputPipe.write.get(), target);
        case ChildStream::inherit:
            return platform::inheritDescriptor(setup.actions, target);
        }
        return EINVAL;
    };
    if (int error = addStream(options.input, STDIN_FILENO, inputPipe, true))
        return fail(error);
    if (int error = addStream(options.output, STDOUT_FILENO, outputPipe, false))
        return fail(error);
    if (int error = addStream(options.error, STDERR_FILENO, errorPipe, false))
        return fail(error);

    if (options.workingFolder) {
        if (int error = ::posix_spawn_file_actions_addchdir_np(&setup.actions, options.workingFolder->c_str()))
            return fail(error);
    }

    // The child starts with no signal blocked and every signal at its default, whatever this
    // process ignores (SIGPIPE, typically) or blocks on the calling thread.
    short flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    ::posix_spawnattr_setsigmask(&setup.attributes, &none);
    ::posix_spawnattr_setsigdefault(&setup.attributes, &all);
    switch (options.grouping) {
    case ChildGrouping::none:
        break;
    case ChildGrouping::newProcessGroup:
        flags |= POSIX_SPAWN_SETPGROUP;
        ::posix_spawnattr_setpgroup(&setup.attributes, 0);
        child->ownsGroup_ = true;
        break;
    case ChildGrouping::newSession:
        flags |= POSIX_SPAWN_SETSID;
        child->ownsGroup_ = true;
        break;
    }
    if (int error = platform::closeOtherDescriptors(setup.actions, setup.attributes, flags))
        return fail(error);
    if (int error = ::posix_spawnattr_setflags(&setup.attributes, flags))
        return fail(error);

    std::vector<std::string> argumentStore;
    argumentStore.reserve(options.arguments.size() + 1);
    argumentStore.push_back(options.argument0.value_or(options.executable));
    argumentStore.insert(argumentStore.end(), options.arguments.begin(), options.arguments.end());
    std::vector<char*> argv;
    for (auto& argument : argumentStore)
        argv.push_back(argument.data());
    argv.push_back(nullptr);

    std::vector<std::string> environmentStore;
    std::vector<char*> envp;
    char** environment = environ;
    if (options.environment) {
        environmentStore = environmentEntries(*options.environment);
        for (auto& entry : environmentStore)
            envp.push_back(entry.data());
        envp.push_back(nullptr);
        environment = envp.data();
    }

    pid_t pid = -1;
    if (int error = ::posix_spawn(&pid, options.executable.c_str(), &setup.actions, &setup.attributes, argv.data(),
                                  environment))
        return fail(error);

    child->pid_ = pid;
    child->input_ = std::move(inputPipe.write);
    child->output_ = std::move(outputPipe.read);
    child->error_ = std::move(errorPipe.read);
    // The child's ends close here, when the PipeEnds go out of scope: only the child holds them
    // now, so end of file arrives when it (and whatever it passed them to) is done.
    return child;
}

ChildProcess::~ChildProcess()
{
    bool reaped;
    {
        std::lock_guard lock(mutex_);
        reaped = status_.has_value();
    }
    if (!reaped && !detached_ && pid_ > 0) {
        ::kill(pid_, SIGKILL);
        wait();
    }
    if (exitWatcher_.joinable()) {
        if (detached_ && !reaped)
            exitWatcher_.detach();
        else
            exitWatcher_.join();
    }
}

void ChildProcess::closeOutputs()
{
    output_.reset();
    error_.reset();
}

void ChildProcess::recordReaped(int waitStatus)
{
    if (WIFSIGNALED(waitStatus))
        status_ = ExitStatus { ExitStatus::Kind::signalled, WTERMSIG(waitStatus) };
    else
        status_ = ExitStatus { ExitStatus::Kind::exited, WEXITSTATUS(waitStatus) };
}

int ChildProcess::exitEventFd()
{
    std::call_once(exitEventOnce_, [this] {
        exitEvent_ = platform::processExitDescriptor(pid_);
        if (exitEvent_)
            return;
        PipeEnds pipe;
        if (makePipe(pipe) != 0)
            return;
        exitEvent_ = std::move(pipe.read);
        exitEventWriter_ = std::move(pipe.write);
        int writer = exitEventWriter_.get();
        pid_t pid = pid_;
        exitWatcher_ = std::thread([pid, writer] {
            siginfo_t info {};
            while (::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
            }
            char byte = 1;
            while (::write(writer, &byte, 1) < 0 && errno == EINTR) {
            }
        });
    });
    return exitEvent_.get();
}

bool ChildProcess::hasExited()
{
    {
        std::lock_guard lock(mutex_);
        if (status_)
            return true;
    }
    siginfo_t info {};
    info.si_pid = 0;
    int result;
    while ((result = ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT)) != 0
           && errno == EINTR) {
    }
    if (result != 0) {
        // ECHILD: another thread reaped it between the check above and here.
        std::lock_guard lock(mutex_);
        return status_.has_value();
    }
    return info.si_pid != 0;
}

std::optional<ExitStatus> ChildProcess::tryWait()
{
    std::lock_guard lock(mutex_);
    if (status_)
        return status_;
    int waitStatus = 0;
    pid_t result;
    while ((result = ::waitpid(pid_, &waitStatus, WNOHANG)) < 0 && errno == EINTR) {
    }
    if (result == pid_)
        recordReaped(waitStatus);
    return status_;
}

ExitStatus ChildProcess::wait()
{
    {
        std::lock_guard lock(mutex_);
        if (status_)
            return *status_;
    }
    // Wait without reaping and without the lock, so that signal() stays possible meanwhile and
    // the pid stays ours (a zombie's pid is never handed out again) until the reap below.
    siginfo_t info {};
    while (::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
    }
    std::lock_guard lock(mutex_);
    if (!status_) {
        int waitStatus = 0;
        pid_t result;
        while ((result = ::waitpid(pid_, &waitStatus, 0)) < 0 && errno == EINTR) {
        }
        if (result == pid_)
            recordReaped(waitStatus);
        else
            // Only when something else reaped it (SIGCHLD set to be ignored does): the status
            // is lost, and "killed" is the honest guess for a child that is gone unseen.
            status_ = ExitStatus { ExitStatus::Kind::signalled, SIGKILL };
    }
    return *status_;
}

bool ChildProcess::signal(int signal)
{
    std::lock_guard lock(mutex_);
    if (status_ || pid_ <= 0)
        return false;
    return ::kill(pid_, signal) == 0;
}

bool ChildProcess::signalGroup(int signal)
{
    if (!ownsGroup_ || pid_ <= 0)
        return false;
    return ::killpg(pid_, signal) == 0;
}

} // namespace kestrune
