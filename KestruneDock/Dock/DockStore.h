#pragma once
// OVERVIEW
// The dock's app tiles: the pinned apps in the user's order, the running apps that are not
// pinned, up to three recently used apps, and the folder stacks. The arrangement is kept in the
// application's preferences ("pinnedApps", "recentApps", "stacks", "stackOptions"); the running
// apps come from the `Workspace`, and the tiles are rebuilt on every change of them.
//
// TYPICAL USAGE
//   DockStore store(preferences, workspace, runtime);
//   store.addObserver([&] { panel.reload(store.pinnedItems(), store.othersAndRecents()); });
//   store.pin(path);
//   store.launch(path);        // bounces until the app is up
//
// Recents: an app that was shown as running but not pinned enters the recents, at the front,
// when it quits; an app that starts running again leaves them (it has its running tile), as does
// one that is pinned. So "recentApps" holds the apps most recently quit, newest first, never
// more than three. Running-only tiles keep the order in which their apps started.
//
// Main thread only.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "KestruneDock/Dock/Workspace.h"
#include "KestruneKit/Core/ObserverList.h"
#include "KestruneKit/Core/Runtime.h"
#include "KestruneKit/Preferences/Preferences.h"

namespace kestrune {

struct DockApp {
    // The application's standardized path: the tile's identity.
    std::string url;
    bool isPinned = false;
    std::optional<RunningApplication> running;

    bool operator==(const DockApp&) const = default;
};

// An icon drawn for one tile size and display scale: premultiplied 32-bit ARGB pixels.
struct DockIconBitmap {
    int width = 0;
    int height = 0;
    double scale = 1;
    std::vector<uint32_t> pixels;
};

struct CachedIcon {
    DockIconSource image;
    DockIconBitmap bitmap;
    double tileSize = 0;
};

// Draws an icon into a bitmap; the application supplies it (the core draws nothing).
class TileRaster {
public:
    virtual ~TileRaster() = default;
    [[nodiscard]] virtual DockIconBitmap render(const DockIconSource& source, double tileSize, double scale) = 0;
};

// A tile being dragged to a new place.
struct DockReorder {
    enum class Phase : uint8_t { idle, dragging, settling };
    Phase phase = Phase::idle;
    std::string dragged;
    std::optional<size_t> insertion;

    [[nodiscard]] bool holdsTilesStill() const { return phase != Phase::idle; }
    bool operator==(const DockReorder&) const = default;
};

class DockStore {
public:
    static constexpr std::string_view pinnedKey = "pinnedApps";
    static constexpr std::string_view recentsKey = "recentApps";
    static constexpr std::string_view stacksKey = "stacks";
    static constexpr std::string_view stackOptionsKey = "stackOptions";
    static constexpr size_t maxRecents = 3;
    // Tiles dragged out of the dock carry this type.
    static constexpr std::string_view dragType = "app.quillane.dock.item";
    static constexpr std::string_view trashIdentifier = "__trash__";
    static constexpr std::string_view finderPath = "/System/Library/CoreServices/Finder.app";
    static constexpr std::string_view genericIconPath =
        "/System/Library/CoreServices/CoreTypes.bundle/Contents/Resources/GenericQuestionMarkIcon.icns";
    // The theme icon that stands for an unknown application on Linux desktops.
    static constexpr std::string_view genericIconName = "application-x-executable";
    // A launch that never reports back stops bouncing after this long.
    static constexpr double launchLimitSeconds = 30;

    DockStore(Preferences& preferences, Workspace& workspace, Runtime& runtime, TileRaster* raster = nullptr);
    ~DockStore();
    DockStore(const DockStore&) = delete;
    DockStore& operator=(const DockStore&) = delete;

    [[nodiscard]] const std::vector<DockApp>& pinnedItems() const { return pinnedItems_; }
    [[nodiscard]] const std::vector<DockApp>& runningOnlyItems() const { return runningOnlyItems_; }
    [[nodiscard]] const std::vector<DockApp>& recentItems() const { return recentItems_; }
    // The non-pinned tiles after the pinned ones: running-only, then the recents when shown.
    [[nodiscard]] const std::vector<DockApp>& othersAndRecents() const { return othersAndRecents_; }
    [[nodiscard]] const std::set<std::string>& launching() const { return launching_; }
    [[nodiscard]] const std::vector<std::string>& stackURLs() const { return stackURLs_; }
    [[nodiscard]] const std::map<std::string, std::map<std::string, std::string>>& stackOptions() const { return stackOptions_; }
    [[nodiscard]] const DockReorder& reorder() const { return reorder_; }
    [[nodiscard]] bool isMenuOpen() const { return isMenuOpen_; }
    [[nodiscard]] bool isStackOpen() const { return isStackOpen_; }
    [[nodiscard]] bool isNearDock() const { return isNearDock_; }
    // Magnification pauses while a tile is dragged into a new place or settles there, and while a
    // tile's menu is open (hover effects pause with it).
    [[nodiscard]] bool holdsTilesStill() const { return reorder_.holdsTilesStill() || isMenuOpen_; }
    [[nodiscard]] const std::set<std::string>& missingRecents() const { return missingRecents_; }
    // The recents as stored, newest first (some may be running and so not shown).
    [[nodiscard]] const std::vector<std::string>& recentPaths() const { return recentPaths_; }

    // The display name of an app's path, as the desktop shows it.
    [[nodiscard]] std::string name(const std::string& path);

    // Pins at `index` (the end when none or past it); pinning a pinned app moves nothing.
    void pin(const std::string& path, std::optional<size_t> index = std::nullopt);
    void unpin(const std::string& path);
    void movePinned(size_t from, size_t to);
    void addStack(const std::string& folder, std::optional<size_t> index = std::nullopt);
    void removeStack(const std::string& folder);
    void setStackOptions(const std::string& folder, std::map<std::string, std::string> options);

    void setReorder(DockReorder reorder);
    void setMenuOpen(bool open);
    void setStackOpen(bool open);
    void setNearDock(bool near);

    // Opens the app; a launch (not a running app brought forward) bounces until it is up.
    void launch(const std::string& path);
    [[nodiscard]] std::optional<Date> launchStarted(const std::string& path) const;

    // The icon of an app: its own, or the generic one when it has none.
    [[nodiscard]] DockIconSource iconSource(const std::string& path) const;
    // Drawn through the raster on first use for a size and scale, then cached; none without a raster.
    [[nodiscard]] const CachedIcon* icon(const std::string& path, double tileSize, double scale);
    // Icons drawn for another appearance or icon style are drawn again.
    void appearanceChanged(const std::string& appearanceName);
    void iconStyleChanged();

    // Called after every change of the tiles or of the states above.
    uint64_t addObserver(std::function<void()> observer);
    void removeObserver(uint64_t id);

    // The standardized form of a path ("/A/./B.app/" is "/A/B.app").
    [[nodiscard]] static std::string standardized(const std::string& path);

private:
    void load();
    void checkMissingRecents();
    void rebuild();
    void writePinned();
    void writeRecents();
    void writeStacks();
    void endLaunch(const std::string& path);
    [[nodiscard]] std::vector<std::string> readApplicationList(std::string_view key) const;
    [[nodiscard]] bool isApplicationPath(const std::string& path) const;
    [[nodiscard]] bool isPinned(const std::string& path) const;
    [[nodiscard]] DockApp tile(const std::string& path, bool pinned) const;

    Preferences& preferences_;
    Workspace& workspace_;
    Runtime& runtime_;
    TileRaster* raster_;

    std::vector<DockApp> pinnedItems_;
    std::vector<DockApp> runningOnlyItems_;
    std::vector<DockApp> recentItems_;
    std::set<std::string> launching_;
    std::vector<std::string> stackURLs_;
    std::map<std::string, std::map<std::string, std::string>> stackOptions_;
    DockReorder reorder_;
    bool isMenuOpen_ = false;
    bool isStackOpen_ = false;
    bool isNearDock_ = false;

    std::vector<std::string> pinnedPaths_;
    std::vector<std::string> recentPaths_;
    std::map<std::string, CachedIcon> iconCache_;
    std::map<std::string, std::string> names_;
    std::map<std::string, RunningApplication> runningByPath_;
    // Running apps in the order they started, this app left out.
    std::vector<std::string> runningOrder_;
    std::vector<DockApp> othersAndRecents_;
    std::string appearanceName_;
    std::set<std::string> missingRecents_;
    bool missingChecked_ = false;
    uint64_t preferencesWatch_ = 0;
    uint64_t runningWatch_ = 0;
    int64_t thisApp_ = 0;
    std::map<std::string, TimerHandle> launchWatches_;
    std::map<std::string, Date> launchStarted_;
    // Lets callbacks from the workspace find out that the store has gone.
    std::shared_ptr<DockStore*> self_;
    ObserverList<> observers_;
};

} // namespace kestrune
