#pragma once
// OVERVIEW
// The dock in the desktop's applications menu: our desktop entry in the user's data folder, with
// an icon beside it in the hicolor theme. A dock started from a build folder or an unpacked
// archive has none, and is offered to add one once; "Don’t ask again" is remembered.
//
// TYPICAL USAGE (the launch)
//   if (ApplicationsMenuOffer::isWanted(preferences, environment, home))
//       offer = std::make_unique<ApplicationsMenuOffer>(preferences, ApplicationsMenuEntry::forThisUser(environment, home, exe));
//
// Main thread only.

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "KestruneKit/Core/Environment.h"

class QMessageBox;

namespace kestrune {

class Preferences;

struct ApplicationsMenuEntry {
    static constexpr std::string_view entryName = "app.quillane.dock.desktop";

    // Where the entry and its icon go: $XDG_DATA_HOME (~/.local/share when unset or relative).
    std::string entryPath;
    std::string iconPath;
    // The program the entry starts.
    std::string executable;

    [[nodiscard]] static ApplicationsMenuEntry forThisUser(const Environment& environment, const std::string& home, std::string executable);
    // Ours is in the user's data folder or any of $XDG_DATA_DIRS (a package installed it).
    [[nodiscard]] static bool isInstalled(const Environment& environment, const std::string& home);
    // An Exec value that starts exactly this program, quoted as desktop entries want.
    [[nodiscard]] static std::string execValue(std::string_view program);

    [[nodiscard]] std::string text() const;
    // Writes the icon, then the entry (each whole or not at all); the problem, or empty.
    [[nodiscard]] std::string install(const std::string& iconBytes) const;
};

// The question, as a window of its own that the launch does not wait for.
class ApplicationsMenuOffer {
public:
    static constexpr std::string_view declinedKey = "kestrune.launch.applicationsMenuDeclined";

    // No entry of ours is installed and the user has not said not to ask.
    [[nodiscard]] static bool isWanted(const Preferences& preferences, const Environment& environment, const std::string& home);

    ApplicationsMenuOffer(Preferences& preferences, ApplicationsMenuEntry entry, std::function<void()> answered = nullptr);
    ~ApplicationsMenuOffer();
    ApplicationsMenuOffer(const ApplicationsMenuOffer&) = delete;
    ApplicationsMenuOffer& operator=(const ApplicationsMenuOffer&) = delete;

    void show();
    [[nodiscard]] QMessageBox& box() { return *box_; }

private:
    void addEntry();

    Preferences& preferences_;
    ApplicationsMenuEntry entry_;
    std::function<void()> answered_;
    std::unique_ptr<QMessageBox> box_;
};

} // namespace kestrune
