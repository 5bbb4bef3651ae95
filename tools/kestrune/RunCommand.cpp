#include <csignal>
#include <iostream>
#include <pthread.h>
#include <thread>

#include "KestruneKit/Core/LoopRuntime.h"
#include "KestruneKit/DevTools/ShellCommandRunner.h"
#include "tools/kestrune/Commands.h"

namespace kestrune::cli {

namespace {

struct RunOptions {
    std::string folder;
    double timeLimit = 0;
    bool login = false;
    std::vector<std::string> command;
};

// Ctrl-C or a kill of `kestrune run` stops the command as the stop button would: the command
// leads a process group of its own, so the terminal's signal does not reach it by itself.
class StopOnSignal {
public:
    StopOnSignal(LoopRuntime& runtime, std::function<void()> stop)
    {
        sigemptyset(&signals_);
        sigaddset(&signals_, SIGINT);
        sigaddset(&signals_, SIGTERM);
        sigaddset(&signals_, SIGHUP);
        sigaddset(&signals_, SIGUSR2);
        pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
        waiter_ = std::thread([this, &runtime, stop = std::move(stop)] {
            int received = 0;
            while (sigwait(&signals_, &received) == 0) {
                if (received == SIGUSR2)
                    return;
                runtime.post(stop);
            }
        });
    }
    ~StopOnSignal()
    {
        pthread_kill(waiter_.native_handle(), SIGUSR2);
        waiter_.join();
        pthread_sigmask(SIG_UNBLOCK, &signals_, nullptr);
    }

private:
    sigset_t signals_ {};
    std::thread waiter_;
};

} // namespace

Action addRunCommand(CLI::App& app)
{
    auto options = std::make_shared<RunOptions>();
    auto* run = app.add_subcommand("run", "Run a shell command as the Commands widget does and print its result as JSON");
    run->add_option("--folder", options->folder, "Working folder (default: the home folder)");
    run->add_option("--time-limit", options->timeLimit, "Stop the command after this many seconds")
        ->check(CLI::NonNegativeNumber);
    run->add_flag("--login", options->login, "Run zsh as a login shell that also reads ~/.zshrc");
    run->add_option("command", options->command, "The command, after --")->required();
    run->positionals_at_end();

    return [options] {
        LoopRuntime runtime;
        ShellCommandRunner runner(runtime);
        runner.setReadsStartupFiles(options->login);

        ShellCommand command;
        for (const auto& word : options->command)
            command.command += (command.command.empty() ? "" : " ") + word;
        command.folder = options->folder;
        if (options->timeLimit > 0)
            command.timeLimit = options->timeLimit;

        std::optional<ShellCommandResult> result;
        runner.onFinish = [&](const Uuid&, const ShellCommandResult& finished) {
            result = finished;
            runtime.quit();
        };
        StopOnSignal signals(runtime, [&runner, id = command.id] { runner.stop(id); });
        runner.run(command);
        if (!result && runner.isRunning(command.id))
            runtime.run();
        if (!result) {
            std::cerr << "kestrune run: the command is blank\n";
            return exitUsage;
        }
        std::cout << result->toJSON() << "\n";
        if (result->outcome == ShellCommandResult::Outcome::couldNotStart)
            return exitFailure;
        return result->exitCode;
    };
}

} // namespace kestrune::cli
