#include <fmt/core.h>

#include "KestruneDock/SystemDock/SystemDockHandover.h"
#include "tools/kestrune/Commands.h"

namespace kestrune::cli {

Action addDockCommand(CLI::App& app)
{
    auto* command = app.add_subcommand("dock", "The system dock's handover");
    command->add_subcommand("restore", "Put the system dock back as it was before Kestrune Dock hid it");
    command->require_subcommand(1, 1);
    return [] {
        auto preferences = Preferences::open(dockPreferencesDomain);
        auto handover = SystemDockHandover::forThisPlatform(*preferences, dockPreferencesDomain);
        if (!handover) {
            fmt::print("There is no system dock to restore here: this system has none for Kestrune Dock to hide.\n");
            return exitSuccess;
        }
        handover->restore();
        fmt::print("The system dock is back as it was.\n");
        return exitSuccess;
    };
}

} // namespace kestrune::cli
