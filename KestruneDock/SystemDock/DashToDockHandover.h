#pragma once
// OVERVIEW
// GNOME's Dash to Dock, and Ubuntu Dock (the same extension under another id), kept out of the
// way while our dock runs, with the design of the macOS handover: the values about to change
// are recorded once, the dock is hidden through `gsettings` argument lists, and the record is
// written back exactly (a key the user never set is reset, not set to its default) by
// `restore` at a normal quit or by the restore guard after a crash.
//
// The record is a small text file beside our preferences, so that the guard, a plain shell
// script, can read it without a JSON parser:
//
//   owner 4242
//   set dash-max-icon-size 36
//   reset autohide
//
// The first line names the process whose end the guard waits for; a newer instance's hide
// rewrites it, so an older instance's guard leaves the newer one's takeover alone. Values stay
// as GLib prints them ('BOTTOM', 0.25, true), which `gsettings set` reads back.
//
// TYPICAL USAGE: through `SystemDockHandover::forThisPlatform`, which makes one only when the
// schema is installed.

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "KestruneDock/SystemDock/SystemDockHandover.h"

namespace kestrune {

class DashToDockHandover final : public SystemDockHandover {
public:
    static constexpr const char* schema = "org.gnome.shell.extensions.dash-to-dock";

    DashToDockHandover(Preferences& preferences, std::string recordPath, std::string gsettings = "/usr/bin/gsettings");

    // Whether GSettings knows the schema (the extension is installed, for this user or all).
    [[nodiscard]] static bool isInstalled();
    [[nodiscard]] static std::string recordPathFor(const std::string& domain);
    // The keys hide writes, with the values that keep the dock from showing: it only comes
    // back on a push against the edge harder and longer than anyone makes.
    [[nodiscard]] static const std::vector<std::pair<std::string, std::string>>& hiddenValues();
    [[nodiscard]] static std::string guardScript();

    void importSystemDockLook() override;
    void restore() override;
    bool startRestoreGuard() override;

private:
    void hideAs(pid_t owner) override;
    bool gsettings(const std::vector<std::string>& arguments);

    Preferences& preferences_;
    std::string recordPath_;
    std::string gsettings_;
};

} // namespace kestrune
