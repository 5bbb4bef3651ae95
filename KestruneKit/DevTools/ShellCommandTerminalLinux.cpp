#include "KestruneKit/DevTools/ShellCommandTerminal.h"

#include <array>

#include "KestruneKit/Process/ChildProcess.h"

namespace kestrune {

namespace {

struct KnownTerminal {
    std::string_view name;
    // What comes before the program to run.
    std::vector<std::string> arguments;
};

// Debian's alternative first, then the desktops' own terminals, then the rest.
const std::array<KnownTerminal, 13>& knownTerminals()
{
    static const std::array<KnownTerminal, 13> terminals { {
        { "x-terminal-emulator", { "-e" } },
        { "gnome-terminal", { "--" } },
        { "konsole", { "-e" } },
        { "xfce4-terminal", { "-x" } },
        { "mate-terminal", { "-x" } },
        { "lxterminal", { "-e" } },
        { "tilix", { "-e" } },
        { "terminator", { "-x" } },
        { "alacritty", { "-e" } },
        { "kitty", {} },
        { "foot", {} },
        { "wezterm", { "start", "--" } },
        { "xterm", { "-e" } },
    } };
    return terminals;
}

std::vector<std::string> argumentsFor(std::string_view executable)
{
    auto slash = executable.rfind('/');
    std::string_view name = slash == std::string_view::npos ? executable : executable.substr(slash + 1);
    for (const auto& terminal : knownTerminals())
        if (terminal.name == name)
            return terminal.arguments;
    // -e is what nearly every emulator takes, and what x-terminal-emulator promises.
    return { "-e" };
}

} // namespace

std::optional<ShellCommandTerminal::Launcher> ShellCommandTerminal::findTerminal(const Environment& environment)
{
    std::string path;
    if (auto found = environment.find("PATH"); found != environment.end())
        path = found->second;
    if (auto chosen = environment.find("TERMINAL"); chosen != environment.end() && !chosen->second.empty()) {
        if (auto executable = findInPath(chosen->second, path))
            return Launcher { *executable, argumentsFor(*executable) };
    }
    for (const auto& terminal : knownTerminals()) {
        if (auto executable = findInPath(std::string(terminal.name), path))
            return Launcher { *executable, terminal.arguments };
    }
    return std::nullopt;
}

std::optional<ShellCommandTerminal::Failure> ShellCommandTerminal::open(const std::string& script,
                                                                        const Environment& environment)
{
    auto launcher = findTerminal(environment);
    if (!launcher)
        return Failure { "No terminal application found: set TERMINAL or install one (x-terminal-emulator)" };

    // The terminal lives as long as its window; a shell starts it in the background of a new
    // session and exits at once, so nothing is left for us to reap later.
    ChildProcessOptions options;
    options.executable = "/bin/sh";
    options.arguments = { "-c", "\"$@\" </dev/null >/dev/null 2>&1 &", "sh", launcher->executable };
    options.arguments.insert(options.arguments.end(), launcher->arguments.begin(), launcher->arguments.end());
    options.arguments.push_back(script);
    options.environment = environment;
    options.output = ChildStream::nullDevice;
    options.error = ChildStream::nullDevice;
    options.grouping = ChildGrouping::newSession;
    auto spawned = ChildProcess::spawn(options);
    if (auto* failure = std::get_if<SpawnFailure>(&spawned))
        return Failure { failure->description() };
    auto status = std::get<std::unique_ptr<ChildProcess>>(spawned)->wait();
    if (!status.succeeded())
        return Failure { "Couldn’t start " + launcher->executable };
    return std::nullopt;
}

} // namespace kestrune
