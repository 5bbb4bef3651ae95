#pragma once
// OVERVIEW
// What the dock's context menus hold: a tile's (its app's windows, the entry's own actions,
// "Options", "Quit") and the dock's own (hiding, magnification, position, settings). A pure
// description, built from the facts of the moment; the application shows it and carries out
// the action chosen.
//
// TYPICAL USAGE
//   auto entries = appMenu({ .pinned = true, .running = true, .windows = { { 0x3a00007, "Notes" } } });
//   for (const DockMenuEntry& entry : dockMenu(preferences)) add(entry);

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "KestruneDock/Dock/DockPreferences.h"

namespace kestrune {

enum class DockMenuAction {
    none,
    activateWindow,
    desktopAction,
    keepInDock,
    openAtLogin,
    showInFiles,
    quit,
    forceQuit,
    toggleHiding,
    toggleMagnification,
    positionLeft,
    positionBottom,
    positionRight,
    dockSettings,
    openTrash,
    emptyTrash,
    // A stack's: its option named by the argument ("sort=added", "view=list"), its folder, leaving.
    stackOption,
    openFolder,
    removeStack,
};

struct DockMenuEntry {
    std::string title;
    DockMenuAction action = DockMenuAction::none;
    // The window (as a number) or the desktop action's id the entry is about.
    std::string argument;
    bool checkable = false;
    bool checked = false;
    bool separator = false;
    std::vector<DockMenuEntry> children;
    bool enabled = true;

    bool operator==(const DockMenuEntry&) const = default;
};

struct DockAppMenuFacts {
    bool pinned = false;
    bool running = false;
    // The app's open windows, oldest first: the window and its title.
    std::vector<std::pair<uint32_t, std::string>> windows;
    // The desktop entry's own actions: their id and name.
    std::vector<std::pair<std::string, std::string>> actions;
    bool opensAtLogin = false;
    // A quit was asked for and the app is still there: the next one may force it.
    bool quitPending = false;
    // A window of no desktop entry: nothing to keep, start at login or show.
    bool windowOnly = false;
};

[[nodiscard]] std::vector<DockMenuEntry> appMenu(const DockAppMenuFacts& facts);
[[nodiscard]] std::vector<DockMenuEntry> dockMenu(const DockPreferences& preferences);
// The trash's: "Open", and "Empty Trash" while there is something to empty.
[[nodiscard]] std::vector<DockMenuEntry> trashMenu(size_t items);

// A stack's: "Sort by", "Display as" and "View as" with the present choices ticked, "Open in Files" and
// "Remove from Dock". `options` are the stack's own (see StackPopup.h for their values).
[[nodiscard]] std::vector<DockMenuEntry> stackMenu(const std::map<std::string, std::string>& options);

// What emptying the trash asks first: its question and what it says of the items.
struct DockQuestion {
    std::string title;
    std::string detail;
    std::string confirm;
};
[[nodiscard]] DockQuestion emptyTrashQuestion(size_t items);

} // namespace kestrune
