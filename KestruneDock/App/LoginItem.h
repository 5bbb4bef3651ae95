#pragma once
// The dock's login item on Linux: an XDG autostart entry. It counts as registered when the entry
// exists and is not hidden; a launch it makes passes `--at-login`.
//
// Main thread only.

#include <string>
#include <string_view>

#include "KestruneKit/Core/Environment.h"

namespace kestrune {

struct LoginItem {
    static constexpr std::string_view entryName = "app.quillane.dock.desktop";
    static constexpr std::string_view loginArgument = "--at-login";

    // $XDG_CONFIG_HOME/autostart/app.quillane.dock.desktop (~/.config when unset or relative).
    [[nodiscard]] static std::string entryPath(const Environment& environment, const std::string& home);
    // Exists, and says neither Hidden=true nor X-GNOME-Autostart-enabled=false.
    [[nodiscard]] static bool isRegistered(const std::string& entryPath);
    // Writes the entry (atomically) to start `executable` with `--at-login`, or removes it: the
    // problem met, or empty.
    [[nodiscard]] static std::string setRegistered(const std::string& entryPath, const std::string& executable, bool registered);
};

} // namespace kestrune
