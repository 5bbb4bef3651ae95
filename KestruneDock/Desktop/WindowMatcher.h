#pragma once
// Which desktop entry a window belongs to. X11 gives no direct link from a window to the
// application it came from, so the answer is a chain of evidence, tried from the strongest:
//
//   1. the GTK application id the toolkit put on the window (_GTK_APPLICATION_ID);
//   2. the desktop file KDE's toolkit named (_KDE_NET_WM_DESKTOP_FILE);
//   3. the entry's StartupWMClass against the window's WM_CLASS (browser web apps, crx_<id>,
//      find their own entries this way);
//   4. the entry's id against WM_CLASS, ignoring case, also its last reverse-DNS part
//      ("org.gnome.Nautilus" is "nautilus");
//   5. the sandbox's own app id (flatpak's .flatpak-info, a snap's name), read by the caller;
//   6. the entry whose Exec names the process's executable.
//
// A window that matches nothing is an app of its own, named from its WM_CLASS.
//
//   auto match = matchWindow(facts, entries);
//   if (match.entry) path = entries[*match.entry].path;
//
// A pure function: the caller reads the window's properties and /proc.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kestrune {

struct WindowFacts {
    std::string gtkApplicationId;
    std::string kdeDesktopFile;
    // WM_CLASS: the instance ("res_name") and the class ("res_class").
    std::string wmClassInstance;
    std::string wmClass;
    // flatpak or snap app ids of the window's process, when it runs in one.
    std::vector<std::string> sandboxIds;
    // The process's executable (/proc/PID/exe), when it can be read.
    std::string executable;
};

struct DesktopEntryFacts {
    std::string path;
    // The desktop-file id without ".desktop" ("org.gnome.Nautilus").
    std::string id;
    std::string startupWMClass;
    // The program Exec runs, as written (a name looked up in PATH, or a path).
    std::string execProgram;
};

enum class WindowMatchEvidence { gtkApplicationId, kdeDesktopFile, startupWMClass, entryId, sandboxId, executable, none };

struct WindowMatch {
    std::optional<size_t> entry;
    WindowMatchEvidence evidence = WindowMatchEvidence::none;
    bool operator==(const WindowMatch&) const = default;
};

[[nodiscard]] WindowMatch matchWindow(const WindowFacts& window, std::span<const DesktopEntryFacts> entries);

// The program of an Exec line: its first word, past "env" and its assignments, unquoted.
[[nodiscard]] std::string execProgram(std::string_view exec);

} // namespace kestrune
