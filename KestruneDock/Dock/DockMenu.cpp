#include "KestruneDock/Dock/DockMenu.h"

namespace kestrune {

namespace {

DockMenuEntry separator() { return { {}, DockMenuAction::none, {}, false, false, true, {}, true }; }

DockMenuEntry item(std::string title, DockMenuAction action, std::string argument = {})
{
    return { std::move(title), action, std::move(argument), false, false, false, {}, true };
}

DockMenuEntry tick(std::string title, DockMenuAction action, bool checked)
{
    return { std::move(title), action, {}, true, checked, false, {}, true };
}

} // namespace

std::vector<DockMenuEntry> appMenu(const DockAppMenuFacts& facts)
{
    std::vector<DockMenuEntry> entries;
    for (const auto& [window, title] : facts.windows)
        entries.push_back(item(title.empty() ? "Untitled" : title, DockMenuAction::activateWindow, std::to_string(window)));
    if (!facts.windows.empty())
        entries.push_back(separator());
    for (const auto& [id, name] : facts.actions)
        entries.push_back(item(name, DockMenuAction::desktopAction, id));
    if (!facts.actions.empty())
        entries.push_back(separator());
    if (!facts.windowOnly) {
        DockMenuEntry options = item("Options", DockMenuAction::none);
        options.children = {
            tick("Keep in Dock", DockMenuAction::keepInDock, facts.pinned),
            tick("Open at Login", DockMenuAction::openAtLogin, facts.opensAtLogin),
            item("Show in Files", DockMenuAction::showInFiles),
        };
        entries.push_back(std::move(options));
    }
    if (facts.running) {
        if (!entries.empty() && !entries.back().separator)
            entries.push_back(separator());
        entries.push_back(facts.quitPending ? item("Force Quit", DockMenuAction::forceQuit) : item("Quit", DockMenuAction::quit));
    }
    while (!entries.empty() && entries.back().separator)
        entries.pop_back();
    return entries;
}

std::vector<DockMenuEntry> dockMenu(const DockPreferences& preferences)
{
    DockMenuEntry position = item("Position on Screen", DockMenuAction::none);
    position.children = {
        tick("Left", DockMenuAction::positionLeft, preferences.edge == DockEdge::left),
        tick("Bottom", DockMenuAction::positionBottom, preferences.edge == DockEdge::bottom),
        tick("Right", DockMenuAction::positionRight, preferences.edge == DockEdge::right),
    };
    return {
        item(preferences.autohide ? "Turn Hiding Off" : "Turn Hiding On", DockMenuAction::toggleHiding),
        item(preferences.magnification ? "Turn Magnification Off" : "Turn Magnification On", DockMenuAction::toggleMagnification),
        std::move(position),
        separator(),
        item("Dock Settings…", DockMenuAction::dockSettings),
    };
}

std::vector<DockMenuEntry> trashMenu(size_t items)
{
    DockMenuEntry empty = item("Empty Trash", DockMenuAction::emptyTrash);
    empty.enabled = items > 0;
    return { item("Open", DockMenuAction::openTrash), separator(), std::move(empty) };
}

std::vector<DockMenuEntry> stackMenu(const std::map<std::string, std::string>& options)
{
    auto chosen = [&](const char* key, const char* fallback) {
        auto found = options.find(key);
        return found == options.end() ? std::string(fallback) : found->second;
    };
    auto choices = [&](const char* title, const char* key, const char* fallback,
                       std::vector<std::pair<const char*, const char*>> values) {
        DockMenuEntry menu = item(title, DockMenuAction::none);
        std::string current = chosen(key, fallback);
        for (auto [value, name] : values) {
            DockMenuEntry choice = tick(name, DockMenuAction::stackOption, current == value);
            choice.argument = std::string(key) + "=" + value;
            menu.children.push_back(std::move(choice));
        }
        return menu;
    };
    return {
        choices("Sort by", "sort", "name", { { "name", "Name" }, { "added", "Date Added" }, { "modified", "Date Modified" }, { "kind", "Kind" } }),
        choices("Display as", "display", "folder", { { "folder", "Folder" }, { "stack", "Stack" } }),
        choices("View as", "view", "grid", { { "grid", "Grid" }, { "list", "List" } }),
        separator(),
        item("Open in Files", DockMenuAction::openFolder),
        separator(),
        item("Remove from Dock", DockMenuAction::removeStack),
    };
}

DockQuestion emptyTrashQuestion(size_t items)
{
    std::string what = items == 1 ? "The item in the Trash" : "The " + std::to_string(items) + " items in the Trash";
    return { "Empty the Trash?", what + " will be deleted for good. You can’t undo this.", "Empty Trash" };
}

} // namespace kestrune
