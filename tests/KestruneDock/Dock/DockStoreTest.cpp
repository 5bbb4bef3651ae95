#include <gtest/gtest.h>

#include "KestruneDock/Dock/DockStore.h"
#include "KestruneKit/Core/ManualRuntime.h"
#include "tests/helpers/FakeWorkspace.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune {
namespace {

std::vector<std::string> paths(const std::vector<DockApp>& apps)
{
    std::vector<std::string> result;
    for (const auto& app : apps)
        result.push_back(app.url);
    return result;
}

using Paths = std::vector<std::string>;

class DockStoreTest : public ::testing::Test {
protected:
    test::TemporaryFolder folder;
    JSONFilePreferences preferences { folder.file("app.quillane.dock.json") };
    test::FakeWorkspace workspace;
    ManualRuntime runtime;

    static RunningApplication app(int64_t pid, std::string path, bool finished = true) { return { pid, std::move(path), finished }; }
    Paths stored(std::string_view key) { return JSONFilePreferences(folder.file("app.quillane.dock.json")).stringListValue(key).value_or(Paths {}); }
};

TEST_F(DockStoreTest, AFirstStartPinsTheInstalledDefaultAppsInOrder)
{
    workspace.defaults = {
        { DockDefaultApp::settings, "/Applications/System Settings.app" },
        { DockDefaultApp::webBrowser, "/Applications/Safari.app/" },
        { DockDefaultApp::fileManager, std::string(DockStore::finderPath) },
        { DockDefaultApp::notes, "/Applications/Safari.app" },
    };
    DockStore store(preferences, workspace, runtime);
    const Paths expected { "/System/Library/CoreServices/Finder.app", "/Applications/Safari.app", "/Applications/System Settings.app" };
    EXPECT_EQ(paths(store.pinnedItems()), expected) << "missing ones skipped, one app pinned once";
    EXPECT_EQ(stored(DockStore::pinnedKey), expected);
    EXPECT_EQ(store.name("/Applications/Safari.app"), "name of /Applications/Safari.app");

    // The user's own list, even an empty one, is never replaced by the defaults.
    preferences.set(DockStore::pinnedKey, Paths {});
    DockStore again(preferences, workspace, runtime);
    EXPECT_TRUE(again.pinnedItems().empty());
}

TEST_F(DockStoreTest, ListsKeepOnlyApplicationPathsAndStandardizeThem)
{
    preferences.set(DockStore::pinnedKey, Paths { "/Applications/Mail.app", "relative/Notes.app", "/Applications/Notes.txt",
                                                  "/Applications/./Mail.app/", "/Applications/Music.app" });
    preferences.set(DockStore::recentsKey, Paths { "/A/One.app", "/A/Two.app", "/A/Three.app", "/A/Four.app" });
    preferences.set(DockStore::stacksKey, Paths { "/home/u/Downloads/", "/home/u/Downloads", "Documents" });
    preferences.set(DockStore::stackOptionsKey, PreferenceData { R"({"/home/u/Downloads":{"sort":"date","bad":1}})" });
    workspace.files = { "/A/One.app", "/A/Two.app", "/A/Three.app", "/A/Four.app" };
    DockStore store(preferences, workspace, runtime);
    EXPECT_EQ(paths(store.pinnedItems()), (Paths { "/Applications/Mail.app", "/Applications/Music.app" }));
    EXPECT_EQ(paths(store.recentItems()), (Paths { "/A/One.app", "/A/Two.app", "/A/Three.app" })) << "never more than three";
    EXPECT_EQ(store.stackURLs(), (Paths { "/home/u/Downloads" }));
    EXPECT_EQ(store.stackOptions().at("/home/u/Downloads"), (std::map<std::string, std::string> { { "sort", "date" } }));

    store.addStack("/home/u/Documents", 0);
    store.setStackOptions("/home/u/Documents", { { "view", "grid" } });
    store.removeStack("/home/u/Downloads");
    DockStore reread(preferences, workspace, runtime);
    EXPECT_EQ(reread.stackURLs(), (Paths { "/home/u/Documents" }));
    EXPECT_EQ(reread.stackOptions(), (std::map<std::string, std::map<std::string, std::string>> { { "/home/u/Documents", { { "view", "grid" } } } }));

    // On Linux the applications are desktop entries.
    workspace.suffix = ".desktop";
    preferences.set(DockStore::pinnedKey, Paths { "/usr/share/applications/firefox-esr.desktop", "/Applications/Mail.app" });
    DockStore linux(preferences, workspace, runtime);
    EXPECT_EQ(paths(linux.pinnedItems()), (Paths { "/usr/share/applications/firefox-esr.desktop" }));
}

TEST_F(DockStoreTest, RunningAppsAndRecentsFollowTheWorkspace)
{
    preferences.set(DockStore::pinnedKey, Paths { "/A/Mail.app" });
    preferences.set(DockStore::recentsKey, Paths { "/A/Gone.app", "/A/Old.app" });
    workspace.files = { "/A/Old.app", "/A/Term.app", "/A/Edit.app", "/A/Chat.app", "/A/Draw.app" };
    workspace.running = { app(1, "/A/Kestrune Dock.app"), app(10, "/A/Mail.app"), app(11, "/A/Term.app"), app(12, "") };
    DockStore store(preferences, workspace, runtime);
    int heard = 0;
    store.addObserver([&] { ++heard; });

    EXPECT_EQ(store.missingRecents(), (std::set<std::string> { "/A/Gone.app" }));
    EXPECT_EQ(stored(DockStore::recentsKey), (Paths { "/A/Old.app" })) << "a missing recent is dropped";
    ASSERT_EQ(store.pinnedItems().size(), 1u);
    EXPECT_EQ(store.pinnedItems()[0].running->processIdentifier, 10) << "a pinned app that runs shows on its pinned tile";
    EXPECT_EQ(paths(store.runningOnlyItems()), (Paths { "/A/Term.app" })) << "this app and apps without a path get no tile";
    EXPECT_EQ(paths(store.othersAndRecents()), (Paths { "/A/Term.app", "/A/Old.app" }));

    // Apps start in an order, and keep it; a quitting running-only app becomes the newest recent.
    workspace.setRunning({ app(1, "/A/Kestrune Dock.app"), app(13, "/A/Edit.app"), app(10, "/A/Mail.app"), app(11, "/A/Term.app"), app(14, "/A/Chat.app") });
    EXPECT_EQ(paths(store.runningOnlyItems()), (Paths { "/A/Term.app", "/A/Edit.app", "/A/Chat.app" }));
    EXPECT_GT(heard, 0);
    workspace.setRunning({ app(10, "/A/Mail.app"), app(14, "/A/Chat.app") });
    EXPECT_EQ(stored(DockStore::recentsKey), (Paths { "/A/Edit.app", "/A/Term.app", "/A/Old.app" }));
    workspace.setRunning({ app(10, "/A/Mail.app"), app(15, "/A/Draw.app") });
    EXPECT_EQ(stored(DockStore::recentsKey), (Paths { "/A/Chat.app", "/A/Edit.app", "/A/Term.app" })) << "three at most";
    EXPECT_EQ(paths(store.othersAndRecents()), (Paths { "/A/Draw.app", "/A/Chat.app", "/A/Edit.app", "/A/Term.app" }));
    // Windows of no application have a running tile, but nothing to be started from later.
    workspace.setRunning({ app(10, "/A/Mail.app"), app(15, "/A/Draw.app"), app(17, "window:Mystery") });
    EXPECT_EQ(paths(store.runningOnlyItems()), (Paths { "/A/Draw.app", "window:Mystery" }));
    store.pin("window:Mystery");
    EXPECT_EQ(paths(store.pinnedItems()), (Paths { "/A/Mail.app" }));
    workspace.setRunning({ app(10, "/A/Mail.app"), app(15, "/A/Draw.app") });
    EXPECT_EQ(stored(DockStore::recentsKey), (Paths { "/A/Chat.app", "/A/Edit.app", "/A/Term.app" }));
    workspace.setRunning({});
    EXPECT_EQ(stored(DockStore::recentsKey), (Paths { "/A/Draw.app", "/A/Chat.app", "/A/Edit.app" })) << "a pinned app that quits is no recent";

    // A recent that starts again has its running tile instead; pinning takes it out of both.
    workspace.setRunning({ app(16, "/A/Chat.app") });
    EXPECT_EQ(paths(store.runningOnlyItems()), (Paths { "/A/Chat.app" }));
    EXPECT_EQ(paths(store.recentItems()), (Paths { "/A/Draw.app", "/A/Edit.app" }));
    store.pin("/A/Chat.app");
    EXPECT_EQ(paths(store.pinnedItems()), (Paths { "/A/Mail.app", "/A/Chat.app" }));
    EXPECT_TRUE(store.runningOnlyItems().empty()) << "pinned, not shown twice";
    EXPECT_TRUE(store.pinnedItems()[1].running.has_value());
    store.unpin("/A/Chat.app");
    EXPECT_EQ(paths(store.runningOnlyItems()), (Paths { "/A/Chat.app" }));
    EXPECT_EQ(stored(DockStore::pinnedKey), (Paths { "/A/Mail.app" }));

    preferences.set("showRecents", false);
    EXPECT_EQ(paths(store.othersAndRecents()), (Paths { "/A/Chat.app" }));
    EXPECT_EQ(store.recentItems().size(), 2u);
}

TEST_F(DockStoreTest, PinnedTilesMove)
{
    preferences.set(DockStore::pinnedKey, Paths { "/A/1.app", "/A/2.app", "/A/3.app" });
    DockStore store(preferences, workspace, runtime);
    store.movePinned(0, 2);
    EXPECT_EQ(paths(store.pinnedItems()), (Paths { "/A/2.app", "/A/3.app", "/A/1.app" }));
    EXPECT_FALSE(store.holdsTilesStill());
    store.setReorder({ DockReorder::Phase::dragging, "/A/1.app", 1 });
    EXPECT_TRUE(store.holdsTilesStill());
    store.setReorder({});
    store.setMenuOpen(true);
    EXPECT_TRUE(store.holdsTilesStill());
    store.setMenuOpen(false);
    EXPECT_FALSE(store.holdsTilesStill());
    store.movePinned(2, 99);
    store.pin("/A/0.app", 0);
    store.pin("/A/2.app", 0);
    EXPECT_EQ(stored(DockStore::pinnedKey), (Paths { "/A/0.app", "/A/2.app", "/A/3.app", "/A/1.app" }));
}

TEST_F(DockStoreTest, ALaunchBouncesUntilTheAppIsUp)
{
    preferences.set(DockStore::pinnedKey, Paths { "/A/Mail.app", "/A/Music.app" });
    DockStore store(preferences, workspace, runtime);

    store.launch("/A/Mail.app");
    EXPECT_EQ(store.launching(), (std::set<std::string> { "/A/Mail.app" }));
    EXPECT_EQ(store.launchStarted("/A/Mail.app"), runtime.now());
    store.launch("/A/Mail.app");
    EXPECT_EQ(workspace.launched.size(), 1u) << "a second click while it bounces opens nothing more";
    // The workspace reports the app running but not yet up, then up.
    workspace.setRunning({ app(20, "/A/Mail.app", false) });
    EXPECT_FALSE(store.launching().empty());
    workspace.setRunning({ app(20, "/A/Mail.app", true) });
    EXPECT_TRUE(store.launching().empty());
    workspace.pendingLaunch(true);  // late: nothing left to end

    // A running app is brought forward without a bounce.
    store.launch("/A/Mail.app");
    EXPECT_TRUE(store.launching().empty());
    EXPECT_EQ(workspace.launched.size(), 2u);

    // A launch that fails ends at once; one that never reports ends after the limit.
    store.launch("/A/Music.app");
    workspace.pendingLaunch(false);
    EXPECT_TRUE(store.launching().empty());
    store.launch("/A/Music.app");
    runtime.advance(Seconds(DockStore::launchLimitSeconds - 1));
    EXPECT_FALSE(store.launching().empty());
    runtime.advance(Seconds(2));
    EXPECT_TRUE(store.launching().empty());
    EXPECT_FALSE(store.launchStarted("/A/Music.app"));
}

TEST_F(DockStoreTest, IconsAreDrawnOnceAndAgainForANewAppearance)
{
    struct CountingRaster final : TileRaster {
        std::vector<DockIconSource> drawn;
        DockIconBitmap render(const DockIconSource& source, double tileSize, double scale) override
        {
            drawn.push_back(source);
            auto side = static_cast<int>(tileSize * scale);
            return { side, side, scale, std::vector<uint32_t>(static_cast<size_t>(side * side)) };
        }
    } raster;
    workspace.icons["/A/Mail.app"] = { "/A/Mail.app/Contents/Resources/Mail.icns", false };
    DockStore store(preferences, workspace, runtime, &raster);

    const auto* icon = store.icon("/A/Mail.app", 48, 2);
    ASSERT_NE(icon, nullptr);
    EXPECT_EQ(icon->bitmap.width, 96);
    EXPECT_EQ(store.icon("/A/Mail.app", 48, 2), icon);
    EXPECT_EQ(raster.drawn.size(), 1u);
    (void)store.icon("/A/Mail.app", 48, 1);
    EXPECT_EQ(raster.drawn.size(), 2u) << "another display scale is drawn anew";

    EXPECT_EQ(store.iconSource("/A/None.app"), (DockIconSource { std::string(DockStore::genericIconPath), true }));
    workspace.suffix = ".desktop";
    EXPECT_EQ(store.iconSource("/A/none.desktop").name, DockStore::genericIconName);

    store.appearanceChanged("dark");
    (void)store.icon("/A/Mail.app", 48, 1);
    EXPECT_EQ(raster.drawn.size(), 3u);
    store.appearanceChanged("dark");
    (void)store.icon("/A/Mail.app", 48, 1);
    EXPECT_EQ(raster.drawn.size(), 3u) << "the same appearance keeps the cache";
}

} // namespace
} // namespace kestrune
