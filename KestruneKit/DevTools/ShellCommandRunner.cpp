#include "KestruneKit/DevTools/ShellCommandRunner.h"

#include <csignal>

#include <sys/stat.h>

#include "KestruneKit/DevTools/ShellCommandOutput.h"
#include "KestruneKit/DevTools/ShellCommandTerminal.h"
#include "KestruneKit/Process/ChildOutput.h"
#include "KestruneKit/Process/ChildProcess.h"

namespace kestrune {

namespace {

using Outcome = ShellCommandResult::Outcome;

std::string trimmed(const std::string& text, const char* whitespace)
{
    auto first = text.find_first_not_of(whitespace);
    if (first == std::string::npos)
        return {};
    auto last = text.find_last_not_of(whitespace);
    return text.substr(first, last - first + 1);
}

constexpr const char* spacesAndNewlines = " \t\n\r\v\f";

// Sources the user's .zshrc with no input and its output thrown away, so a login shell sets up
// the user's PATH and aliases without printing greetings into the result, then runs $1.
constexpr const char* startupScript =
    "__kestrune_rc=\"${ZDOTDIR:-$HOME}/.zshrc\"; [[ -r $__kestrune_rc ]] && source $__kestrune_rc "
    ">/dev/null 2>&1 </dev/null; unset __kestrune_rc; eval \"$1\"";

} // namespace

struct ShellCommandRunner::Ended {
    ExitStatus status;
    std::string output;
    bool trimmed = false;
};

ShellCommandRunner::ShellCommandRunner(Runtime& runtime) : runtime_(runtime) {}

ShellCommandRunner::~ShellCommandRunner()
{
    *alive_ = false;
    for (auto& [id, job] : jobs_) {
        if (!job->process->signalGroup(SIGKILL))
            job->process->signal(SIGKILL);
    }
    for (auto& [id, job] : jobs_) {
        if (job->reader.joinable())
            job->reader.join();
    }
}

std::vector<std::string> ShellCommandRunner::shellArguments(const std::string& command, bool readsStartupFiles)
{
    if (readsStartupFiles)
        return { "-lc", startupScript, "zsh", command };
    return { "-fc", command };
}

std::string ShellCommandRunner::resolveFolder(const std::string& folder, const std::string& home)
{
    std::string path = trimmed(folder, " \t");
    if (path.empty())
        path = "~";
    if (path == "~")
        return home;
    if (path.starts_with("~/"))
        return home + path.substr(1);
    return path;
}

Environment ShellCommandRunner::runEnvironment() const
{
    return environment_ ? *environment_ : processEnvironment();
}

void ShellCommandRunner::run(const ShellCommand& command)
{
    if (jobs_.contains(command.id))
        return;
    std::string text = trimmed(command.command, spacesAndNewlines);
    if (text.empty())
        return;
    Date started = runtime_.now();
    Environment environment = runEnvironment();
    std::string home = homeFolder();
    if (auto found = environment.find("HOME"); found != environment.end() && !found->second.empty())
        home = found->second;
    std::string folder = resolveFolder(command.folder, home);

    if (command.runsInTerminal) {
        std::string script = ShellCommandTerminal::scriptText(command.name, folder, text);
        auto written = ShellCommandTerminal::writeScript(ShellCommandTerminal::commandsFolder(environment), script);
        if (auto* failure = std::get_if<ShellCommandTerminal::Failure>(&written)) {
            finishAtOnce(command.id, Outcome::couldNotStart, started, failure->text);
            return;
        }
        const auto& path = std::get<std::string>(written);
        if (auto failure = ShellCommandTerminal::open(path, environment)) {
            ::unlink(path.c_str());
            finishAtOnce(command.id, Outcome::couldNotStart, started, failure->text);
            return;
        }
        finishAtOnce(command.id, Outcome::openedInTerminal, started, {});
        return;
    }

    struct stat info {};
    if (::stat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
        finishAtOnce(command.id, Outcome::couldNotStart, started, "No folder at " + folder);
        return;
    }

    ChildProcessOptions options;
    options.executable = shell_;
    options.arguments = shellArguments(text, readsStartupFiles_);
    options.workingFolder = folder;
    options.environment = std::move(environment);
    options.input = ChildStream::nullDevice;
    options.output = ChildStream::pipe;
    options.error = ChildStream::mergedWithOutput;
    // A group of its own, so that a stop reaches everything the command started.
    options.grouping = ChildGrouping::newProcessGroup;
    auto spawned = ChildProcess::spawn(options);
    if (std::holds_alternative<SpawnFailure>(spawned)) {
        finishAtOnce(command.id, Outcome::couldNotStart, started, "Couldn’t start " + shell_);
        return;
    }

    auto job = std::make_shared<Job>();
    job->process = std::shared_ptr<ChildProcess>(std::move(std::get<std::unique_ptr<ChildProcess>>(spawned)));
    job->started = started;
    job->output = std::make_shared<OutputBuffer>();
    Uuid id = command.id;

    job->reader = std::thread([process = job->process, output = job->output, &runtime = runtime_,
                               alive = std::weak_ptr<bool>(alive_), this, id, weakJob = std::weak_ptr<Job>(job)] {
        (void)readOutput(*process, { { process->outputFd(), [&output](std::string_view chunk) { output->append(chunk); } } },
                         std::nullopt);
        Ended ended;
        ended.status = process->wait();
        process->closeOutputs();
        auto final = output->finish();
        ended.output = ShellCommandOutput::clean(final.bytes);
        ended.trimmed = final.trimmed;
        runtime.post([alive, this, id, weakJob, ended = std::move(ended)]() mutable {
            auto stillAlive = alive.lock();
            auto job = weakJob.lock();
            if (stillAlive && *stillAlive && job)
                finish(id, job, std::move(ended));
        });
    });

    if (command.timeLimit && *command.timeLimit > 0) {
        job->watchdog = runtime_.schedule(Seconds(*command.timeLimit), TimerRepeat::once, Seconds(0),
                                          [this, id] { stop(id, StopReason::timeLimit); });
    }
    jobs_.emplace(id, std::move(job));
    running_.insert(id);
    publishRunning();
}

void ShellCommandRunner::stop(const Uuid& id, StopReason reason)
{
    auto found = jobs_.find(id);
    if (found == jobs_.end())
        return;
    Job& job = *found->second;
    if (job.ending || job.process->hasExited())
        return;
    job.ending = reason == StopReason::user ? Outcome::stopped : Outcome::timedOut;
    if (!job.process->signalGroup(SIGTERM))
        job.process->signal(SIGTERM);

    std::erase_if(killTimers_, [](const TimerHandle& timer) { return !timer.isArmed(); });
    // Whatever the command left in its group dies too, even when the shell itself has gone.
    killTimers_.push_back(runtime_.schedule(killDelay, TimerRepeat::once, Seconds(0), [process = job.process] {
        bool groupSignalled = process->signalGroup(SIGKILL);
        if (!groupSignalled && !process->hasExited())
            process->signal(SIGKILL);
    }));
}

void ShellCommandRunner::finishAtOnce(const Uuid& id, Outcome outcome, Date started, std::string output)
{
    ShellCommandResult result;
    result.outcome = outcome;
    result.exitCode = outcome == Outcome::couldNotStart ? -1 : 0;
    result.started = started;
    result.ended = runtime_.now();
    result.lastLine = ShellCommandOutput::lastLine(output);
    result.output = std::move(output);
    if (onFinish)
        onFinish(id, result);
}

void ShellCommandRunner::finish(const Uuid& id, const std::shared_ptr<Job>& job, Ended ended)
{
    if (job->reader.joinable())
        job->reader.join();
    ShellCommandResult result;
    if (job->ending)
        result.outcome = *job->ending;
    else
        result.outcome = ended.status.succeeded() ? Outcome::succeeded : Outcome::failed;
    result.exitCode = ended.status.exitCode();
    result.started = job->started;
    result.ended = runtime_.now();
    result.lastLine = ShellCommandOutput::lastLine(ended.output);
    result.output = std::move(ended.output);
    result.outputTrimmed = ended.trimmed;

    auto found = jobs_.find(id);
    if (found != jobs_.end() && found->second == job)
        jobs_.erase(found);
    running_.erase(id);
    publishRunning();
    if (onFinish)
        onFinish(id, result);
}

void ShellCommandRunner::publishRunning()
{
    if (onRunningChanged)
        onRunningChanged();
}

} // namespace kestrune
