#include <gtest/gtest.h>

#include "KestruneDock/Dock/DockMenu.h"

namespace kestrune {
namespace {

std::vector<std::string> titles(const std::vector<DockMenuEntry>& entries)
{
    std::vector<std::string> list;
    for (const auto& entry : entries)
        list.push_back(entry.separator ? "-" : entry.title);
    return list;
}

TEST(DockMenu, AnAppsMenuListsItsWindowsItsActionsItsOptionsAndQuit)
{
    DockAppMenuFacts facts;
    facts.pinned = true;
    facts.running = true;
    facts.windows = { { 0x3a00007, "Notes — Today" }, { 0x3a00010, "" } };
    facts.actions = { { "new-window", "New Window" }, { "new-private-window", "New Private Window" } };
    auto menu = appMenu(facts);
    EXPECT_EQ(titles(menu), (std::vector<std::string> { "Notes — Today", "Untitled", "-", "New Window", "New Private Window", "-",
                                "Options", "-", "Quit" }));
    EXPECT_EQ(menu[0].action, DockMenuAction::activateWindow);
    EXPECT_EQ(menu[0].argument, std::to_string(0x3a00007));
    EXPECT_EQ(menu[4].argument, "new-private-window");
    ASSERT_EQ(titles(menu[6].children), (std::vector<std::string> { "Keep in Dock", "Open at Login", "Show in Files" }));
    EXPECT_TRUE(menu[6].children[0].checkable && menu[6].children[0].checked) << "a pinned app is kept, with a tick";
    EXPECT_FALSE(menu[6].children[1].checked);

    // Asked to quit and still there: the next quit may force it.
    facts.quitPending = true;
    EXPECT_EQ(appMenu(facts).back().action, DockMenuAction::forceQuit);
    EXPECT_EQ(appMenu(facts).back().title, "Force Quit");

    // Not running, nothing of its own: its options alone, no dangling separator.
    DockAppMenuFacts recent;
    EXPECT_EQ(titles(appMenu(recent)), std::vector<std::string> { "Options" });
    EXPECT_FALSE(appMenu(recent)[0].children[0].checked);
    // A window of no desktop entry has nothing to keep: its window and Quit.
    DockAppMenuFacts window;
    window.running = true;
    window.windowOnly = true;
    window.windows = { { 7, "xterm" } };
    EXPECT_EQ(titles(appMenu(window)), (std::vector<std::string> { "xterm", "-", "Quit" }));
}

TEST(DockMenu, TheDocksOwnMenuSaysWhatEachChoiceWillDo)
{
    DockPreferences preferences;
    auto menu = dockMenu(preferences);
    EXPECT_EQ(titles(menu), (std::vector<std::string> { "Turn Hiding On", "Turn Magnification Off", "Position on Screen", "-",
                                "Dock Settings…" }));
    ASSERT_EQ(menu[2].children.size(), 3u);
    EXPECT_TRUE(menu[2].children[1].checked) << "bottom is where it is";
    preferences.autohide = true;
    preferences.magnification = false;
    preferences.edge = DockEdge::left;
    menu = dockMenu(preferences);
    EXPECT_EQ(menu[0].title, "Turn Hiding Off");
    EXPECT_EQ(menu[1].title, "Turn Magnification On");
    EXPECT_TRUE(menu[2].children[0].checked);
    EXPECT_FALSE(menu[2].children[1].checked);
}

TEST(DockMenu, TheTrashEmptiesOnlyWhenItHoldsSomethingAndSaysHowMuchGoes)
{
    EXPECT_EQ(titles(trashMenu(0)), (std::vector<std::string> { "Open", "-", "Empty Trash" }));
    EXPECT_FALSE(trashMenu(0)[2].enabled);
    EXPECT_TRUE(trashMenu(3)[2].enabled);
    EXPECT_EQ(emptyTrashQuestion(3).detail, "The 3 items in the Trash will be deleted for good. You can’t undo this.");
    EXPECT_EQ(emptyTrashQuestion(1).detail, "The item in the Trash will be deleted for good. You can’t undo this.");
    EXPECT_EQ(emptyTrashQuestion(1).confirm, "Empty Trash");
}

TEST(DockMenu, AStacksMenuTicksItsOwnOrderDisplayAndViewAndNamesWhatEachChoiceSets)
{
    auto menu = stackMenu({});
    EXPECT_EQ(titles(menu), (std::vector<std::string> { "Sort by", "Display as", "View as", "-", "Open in Files", "-", "Remove from Dock" }));
    auto ticked = [](const DockMenuEntry& submenu) {
        std::vector<std::string> on;
        for (const auto& choice : submenu.children)
            if (choice.checked)
                on.push_back(choice.argument);
        return on;
    };
    EXPECT_EQ(ticked(menu[0]), std::vector<std::string> { "sort=name" }) << "by name, as a folder, in a grid, until chosen otherwise";
    EXPECT_EQ(ticked(menu[1]), std::vector<std::string> { "display=folder" });
    EXPECT_EQ(ticked(menu[2]), std::vector<std::string> { "view=grid" });
    EXPECT_EQ(titles(menu[0].children), (std::vector<std::string> { "Name", "Date Added", "Date Modified", "Kind" }));

    menu = stackMenu({ { "sort", "modified" }, { "display", "stack" }, { "view", "list" } });
    EXPECT_EQ(ticked(menu[0]), std::vector<std::string> { "sort=modified" });
    EXPECT_EQ(ticked(menu[1]), std::vector<std::string> { "display=stack" });
    EXPECT_EQ(ticked(menu[2]), std::vector<std::string> { "view=list" });
}

} // namespace
} // namespace kestrune
