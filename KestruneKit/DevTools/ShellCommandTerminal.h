#pragma once

// Hands a saved command to a terminal window instead of running it here: the command is written
// to a `.command` script in a private temporary folder, and the script is opened with the
// desktop's terminal (the Terminal application on macOS; on Linux $TERMINAL, else
// x-terminal-emulator, else the first installed of the common emulators).

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "KestruneKit/Core/Environment.h"

namespace kestrune {

struct ShellCommandTerminal {
    // The script, byte for byte: a login zsh, the name as a comment, a cd into the folder that
    // gives up when it fails, then the command.
    [[nodiscard]] static std::string scriptText(std::string_view name, std::string_view folder,
                                                std::string_view command);

    // "Kestrune Commands" inside the user's temporary folder ($TMPDIR, else /tmp).
    [[nodiscard]] static std::string commandsFolder(const Environment& environment);

    struct Failure {
        std::string text;
    };
    // Writes the script under a fresh name into `folder` (made 0700 when missing, refused when
    // it is not a private folder of this user) and returns its path.
    [[nodiscard]] static std::variant<std::string, Failure> writeScript(const std::string& folder,
                                                                        std::string_view text);

    // A terminal program and the arguments that make it run a file.
    struct Launcher {
        std::string executable;
        std::vector<std::string> arguments;
    };
    // The terminal this desktop would use, looked up in the environment's PATH. Linux.
    [[nodiscard]] static std::optional<Launcher> findTerminal(const Environment& environment);

    // Opens the script in a terminal; std::nullopt when that worked, else what went wrong.
    // Returns once the terminal has been started; it is not waited for.
    [[nodiscard]] static std::optional<Failure> open(const std::string& script, const Environment& environment);
};

} // namespace kestrune
