#include "KestruneKit/DevTools/ShellCommandTerminal.h"

namespace kestrune {

std::optional<ShellCommandTerminal::Launcher> ShellCommandTerminal::findTerminal(const Environment&)
{
    return std::nullopt;
}

std::optional<ShellCommandTerminal::Failure> ShellCommandTerminal::open(const std::string&, const Environment&)
{
    return Failure { "Opening a terminal isn’t supported on this system" };
}

} // namespace kestrune
