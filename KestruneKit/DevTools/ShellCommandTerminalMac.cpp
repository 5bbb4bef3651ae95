#include "KestruneKit/DevTools/ShellCommandTerminal.h"

#include "KestruneKit/Process/ChildProcess.h"

namespace kestrune {

std::optional<ShellCommandTerminal::Launcher> ShellCommandTerminal::findTerminal(const Environment&)
{
    return Launcher { "/usr/bin/open", { "-b", "com.apple.Terminal" } };
}

std::optional<ShellCommandTerminal::Failure> ShellCommandTerminal::open(const std::string& script,
                                                                        const Environment& environment)
{
    // open(1) finds the application by its bundle identifier and fails when there is none.
    auto launcher = findTerminal(environment);
    ChildProcessOptions options;
    options.executable = launcher->executable;
    options.arguments = launcher->arguments;
    options.arguments.push_back(script);
    options.output = ChildStream::nullDevice;
    options.error = ChildStream::nullDevice;
    auto spawned = ChildProcess::spawn(options);
    if (auto* failure = std::get_if<SpawnFailure>(&spawned))
        return Failure { failure->description() };
    if (!std::get<std::unique_ptr<ChildProcess>>(spawned)->wait().succeeded())
        return Failure { "Couldn’t open the Terminal application" };
    return std::nullopt;
}

} // namespace kestrune
