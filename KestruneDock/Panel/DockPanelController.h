#pragma once
// OVERVIEW
// Owns the dock's window and everything about where it stands and what it shows: it reads the
// dock store's tiles and the dock preferences, lays the row out through the core (DockRowLayout,
// DockPanelPlacement), puts the window on its edge of the primary screen with its strut, raises
// it while the pointer is on it and lets it rest when the pointer leaves, and follows screens as
// they change.
//
// TYPICAL USAGE
//   DockPanelController controller(preferences, store, runtime);
//   controller.show();
//
// Nothing runs while nothing moves: the frame timer runs only while a tile bounces or the dock
// slides in, and stops itself at rest.
//
// Main thread only.

#include <functional>
#include <map>
#include <set>
#include <string>
#include <memory>
#include <optional>
#include <vector>

#include <QAbstractNativeEventFilter>
#include <QMenu>
#include <QMessageBox>
#include <QPointer>
#include <QImage>
#include <QMimeData>
#include <QPixmap>
#include <QRegion>
#include <QMetaObject>
#include <QPointF>
#include <QRect>
#include <QScreen>

#include "KestruneDock/Dock/DockMenu.h"
#include "KestruneDock/Dock/DockPanelPlacement.h"
#include "KestruneDock/Dock/DockPreferences.h"
#include "KestruneDock/Dock/DockRowLayout.h"
#include "KestruneDock/Panel/DockRowPainters.h"
#include "KestruneDock/Panel/DockWindow.h"
#include "KestruneDock/Panel/EdgePush.h"
#include "KestruneDock/Panel/StackFans.h"
#include "KestruneDock/Panel/StackPopup.h"
#include "KestruneDock/WidgetViews/WidgetCard.h"
#include "KestruneDock/WidgetViews/WidgetRow.h"
#include "KestruneKit/Core/Runtime.h"

class QPainter;


namespace kestrune {

class DockPanel;

class DockStore;
class Preferences;

// What the dock's menus ask of the desktop beyond the store. An empty function leaves its
// entries out (a test, or a platform without them).
struct DockDesktopServices {
    // An app's windows, oldest first, with their titles.
    std::function<std::vector<std::pair<uint32_t, std::string>>(const std::string& path)> windows;
    std::function<void(uint32_t window)> activateWindow;
    // The desktop entry's own actions: id and name.
    std::function<std::vector<std::pair<std::string, std::string>>(const std::string& path)> actions;
    std::function<void(const std::string& path, const std::string& action)> launchAction;
    std::function<bool(const std::string& path)> opensAtLogin;
    std::function<void(const std::string& path, bool open)> setOpensAtLogin;
    // Asks the app's windows to close.
    std::function<void(const std::string& path)> quit;
    // Ends its processes (SIGTERM) when asking was not enough.
    std::function<void(const std::string& path)> forceQuit;
    std::function<void()> openSettings;
    // Empties the trash for good: the problem met, or empty.
    std::function<std::string()> emptyTrash;
    // Files dropped on an app's tile: whether it opens them all, and opening them.
    std::function<bool(const std::string& path, const std::vector<std::string>& files)> opensFiles;
    std::function<void(const std::string& path, const std::vector<std::string>& files)> openFiles;
    // Files dropped on the trash: the problem met, or empty.
    std::function<std::string(const std::vector<std::string>& files)> moveToTrash;
};

class DockPanelController {
public:
    // A launching tile hops this often, and the dock slides in over this long.
    static constexpr double hopSeconds = 0.6;
    static constexpr double revealSeconds = 0.25;
    // Tiles making room for a dragged one glide there over this long.
    static constexpr double shiftSeconds = 0.2;
    // A new page of widgets slides in over this long, from the side it was stepped to.
    static constexpr double pageSlideSeconds = 0.25;
    // With auto-hide on: how long after the pointer leaves the dock slides out.
    static constexpr double hideDelaySeconds = 0.5;
    // Slid out of sight, the window off the screen (auto-hide).
    [[nodiscard]] bool isHidden() const { return hidden_; }

    DockPanelController(Preferences& preferences, DockStore& store, Runtime& runtime);
    ~DockPanelController();
    DockPanelController(const DockPanelController&) = delete;
    DockPanelController& operator=(const DockPanelController&) = delete;

    void show();
    // Out of sight (the welcome, a full-screen hand-over); `heldDown` until prepareToRise.
    void orderOut(bool heldDown = false);
    // After the welcome: the dock rises from 0.6 of its travel.
    void prepareToRise();
    [[nodiscard]] bool isShown() const { return shown_; }
    [[nodiscard]] bool isHeldDown() const { return heldDown_; }

    [[nodiscard]] DockPanel& panel() { return *panel_; }
    [[nodiscard]] const DockRowLayout& layout() const { return layout_; }
    [[nodiscard]] const DockPanelPlacement& placement() const { return placement_; }
    [[nodiscard]] const std::vector<DockRowItem>& items() const { return items_; }
    [[nodiscard]] DockPanelRaise raise() const { return raise_; }
    [[nodiscard]] std::optional<size_t> hovered() const { return hovered_; }
    [[nodiscard]] bool isTranslucent() const { return translucent_; }
    // The window's rectangle in desktop coordinates, as placed.
    [[nodiscard]] DockScreenRect windowRect() const { return window_; }

    // A tile's place on the desktop.
    // A tile's place on the desktop.
    [[nodiscard]] QRect slotOnDesktop(size_t slot) const;
    // How far the widget tiles are drawn from their places while a new page slides in.
    [[nodiscard]] double pageSlideOffset() const;
    // What a screen reader says for a tile: the app's or stack's name, a widget's face.
    [[nodiscard]] std::string accessibleName(size_t slot) const;
    // The widget tiles' group: "Widgets, page 2 of 3", or "Widgets" with one page.
    [[nodiscard]] std::string widgetsAccessibleName() const;
    // What a click on the tile does; `global`, where it landed, lets a widget act on the part
    // of its face that was pressed.
    void press(size_t slot, std::optional<QPointF> global = std::nullopt);

    // From the panel, in desktop coordinates.
    void pointerMoved(QPointF global);
    void pointerLeft();
    void clicked(QPointF global, Qt::MouseButton button);
    // A turn of the wheel over the dock, in steps (positive away from the user).
    void scrolled(QPointF global, double steps);
    // A press that may become a drag: past the drag distance with the button held, a kept app's
    // tile or a stack leaves with the pointer. Let go off the dock, it goes from the dock.
    void pressed(QPointF global, Qt::MouseButton button);
    void draggedTo(QPointF global);
    // A drag over the dock, ours or another program's: what a drop there would do, shown as it
    // would be (room made where it lands, the tile that would take it lit).
    Qt::DropAction dragOver(QPointF global, const QMimeData& data);
    void dragLeft();
    Qt::DropAction dropped(QPointF global, const QMimeData& data);
    [[nodiscard]] bool isDragging() const { return dragging_; }
    // A widget carried out of the stack's list, or a widget tile off the row: dropped on the row
    // it goes where it was let go; on the stack tile, into the stack.
    void dragWidget(const Uuid& id);
    // The path of the pages or stack tile after the widgets.
    static constexpr std::string_view widgetControlPath = "kestrune:widgetControl";
    // The menu of what lies there: a tile's, or the dock's own on its bar and dividers.
    void contextMenu(QPointF global);
    void setDesktopServices(DockDesktopServices services) { services_ = std::move(services); }
    // What the trash holds: its tile shows it full or empty, and its menu offers to empty it.
    void setTrashItems(size_t items);
    // An app's badge (count, progress, urgent); an empty one takes it away. An urgent app's tile
    // hops until it is no longer.
    void setBadge(const std::string& path, const DockBadge& badge);
    [[nodiscard]] size_t trashItems() const { return trashItems_; }
    // Minimized windows: with "minimizeIntoApp" off each has a tile of its own after the apps,
    // named after the window, that brings it back.
    struct MinimizedWindow {
        uint32_t window = 0;
        std::string title;
        // Its app's path, for the icon.
        std::string path;
        bool operator==(const MinimizedWindow&) const = default;
    };
    void setMinimizedWindows(std::vector<MinimizedWindow> windows);
    // Apps with a window asking for attention: their tiles hop until it is given.
    void setDemandingAttention(std::set<std::string> paths);
    // While the active window fills the screen the dock steps aside, and comes back after.
    void setFullScreenActive(bool fullScreen) { setAside(asideForFullScreen_, fullScreen); }
    // While a screen saver or lock screen has the screen (or another user's session), the dock's
    // window is withdrawn, so that nothing shows it above them.
    void setScreenGivenAway(bool away) { setAside(asideForLock_, away); }
    [[nodiscard]] bool isSteppedAside() const { return asideForFullScreen_ || asideForLock_; }
    // The question emptying the trash asks, while it is open.
    [[nodiscard]] QMessageBox* openQuestion() const { return question_; }
    // The stack's popup open now, if any.
    [[nodiscard]] StackPopup* openStackPopup() const { return stack_; }
    // The widget card open now, if any.
    [[nodiscard]] WidgetCard* openCard() const { return card_; }
    // The menu open now, if any.
    [[nodiscard]] QMenu* openMenu() const { return menu_; }
    // A quit that was asked for this long ago, with the app still there, may be forced.
    static constexpr double quitGraceSeconds = 3;
    // `cleared`: the surface is transparent where it is painted (a window with an alpha channel,
    // whose backing store clears what is repainted); else the controller clears it.
    void paint(QPainter& painter, double devicePixelRatio, bool cleared = false);
    // What a paint covers, in window pixels: each slot's stretch from the edge to its tile's far
    // side (indicator and tile), the hovered slot's label and the bar.
    struct RowPicture {
        DockScreenRect window;
        DockPanelRaise raise = DockPanelRaise::resting;
        std::vector<QRectF> slots;
        QRectF label;
        QRectF bar;
    };
    [[nodiscard]] RowPicture picture() const;
    // The parts that differ between two pictures; none when they are of different windows.
    [[nodiscard]] static std::optional<QRegion> changes(const RowPicture& before, const RowPicture& after);

    // After a paint of `region`: what changed since the last one and lay outside it is painted next.
    void painted(const QRegion& region);

    // The widget tiles of the row, after the stacks and before the trash; none leaves them out.
    void setWidgetRow(WidgetRow* row);

    // Placement follows the screens: resolution, primary screen, screens added and removed.
    // `followPointerNow`: a dock that follows the pointer goes to the pointer's screen at once.
    void screensChanged(bool followPointerNow = false);
    [[nodiscard]] QScreen* screen() const { return screen_; }
    // Whether a compositing manager runs; without one nothing translucent is drawn.
    void setTranslucent(bool translucent);

private:
    void reload();
    void readPreferences();
    void place();
    void setRaise(DockPanelRaise raise);
    void takeBackdrop();
    void repaintSoon();
    void tick();
    [[nodiscard]] bool animating() const;
    [[nodiscard]] std::optional<size_t> hitAt(QPointF global) const;
    void paintLabel(QPainter& painter, size_t slot, const DockPaintContext& context);
    [[nodiscard]] QRectF labelBox(size_t slot, const QString& text, const QFont& font) const;
    void perform(const DockMenuEntry& entry, const std::string& path);
    void openStack(size_t slot);
    struct DropPlan {
        enum class Kind { none, back, reorder, pin, stack, openFiles, trash, widget } kind = Kind::none;
        // The app moved or pinned, the folder stacked, or the tile that takes the files.
        std::string path;
        // Among the kept apps.
        size_t index = 0;
        // A widget dragged: the tile it goes beside, or the stack tile's path (into the stack).
        std::string beside;
        std::vector<std::string> files;
    };
    [[nodiscard]] DropPlan planDrop(QPointF global, const QMimeData& data) const;
    [[nodiscard]] static Qt::DropAction actionFor(DropPlan::Kind kind);
    [[nodiscard]] size_t keptIndexAt(double axis) const;
    void showDrop(const DropPlan& plan);
    void settle();
    [[nodiscard]] QPixmap tilePixmap(const DockRowItem& item) const;
    void askToEmptyTrash();
    [[nodiscard]] double shownFraction() const;
    void slide(double to);
    void scheduleHide();
    void hideNow();
    void reveal();
    void setAside(bool& reason, bool on);
    void addWidgets(const std::function<DockRowItem&(DockSlotKind, std::string, std::string)>& add);
    // Repaints one widget tile's rectangle, or the row when its length changed.
    void repaintWidget(const Uuid& id);
    // A press on a widget tile opens its card, or closes it when it is the one open.
    void toggleCard(size_t slot);
    void openCard(const Uuid& id, QRect from);
    // The stack tile's list of the widgets behind it; one chosen opens its card.
    void openWidgetStack(size_t slot);
    // Widget tiles are shown (and so want their monitors) only while the dock is in sight.
    void followVisibility();
    // With the dock on the screen with the pointer: a push against the dock's edge of another
    // screen calls it there.
    void moveToScreen(QScreen* screen);
    void watchOtherScreens();
    [[nodiscard]] bool showsLabel() const;

    // Repaints what moved since the last paint, not the whole window.
    void repaintChanges();
    // Each tile's identity in the row, in the row's order.
    [[nodiscard]] std::vector<std::string> rowKeys() const;
    // How far from its place in the layout a tile is drawn now, gliding there.
    [[nodiscard]] double shiftNow(const std::string& key) const;
    // Where a point of the row's axis lies along the edge, in desktop coordinates.
    [[nodiscard]] double onDesktop(double axis) const;
    [[nodiscard]] std::map<std::string, double> drawnAxes() const;
    void shiftRow(const std::map<std::string, double>& drawnBefore);

    Preferences& preferences_;
    DockStore& store_;
    Runtime& runtime_;
    std::unique_ptr<DockPanel> panel_;
    DockPreferences values_;
    DockRowLayout layout_;
    DockPanelPlacement placement_;
    DockScreenRect window_;
    std::vector<DockRowItem> items_;
    // One painter per kind of slot, shared by every slot of that kind (their caches are per path).
    std::map<DockSlotKind, std::unique_ptr<DockSlotPainter>> painters_;
    bool pointerInside_ = false;
    DockPanelRaise raise_ = DockPanelRaise::resting;
    std::optional<size_t> hovered_;
    bool translucent_ = true;
    bool shown_ = false;
    bool heldDown_ = false;
    // The slide-in: fraction of the travel done, and when it started.
    // The slide along the edge, as the fraction of the dock shown: from, to, and since when.
    double slideFrom_ = 1;
    double slideTo_ = 1;
    std::optional<Date> slideStarted_;
    // The widget page on screen, and the slide that brought it: since when, and from which side
    // (1: the end of the row, -1: its start).
    size_t widgetPage_ = 0;
    std::optional<Date> pageSlideStarted_;
    int pageSlideSide_ = 0;
    // Auto-hide: slid out with the window off the screen, called back from the edge strip.
    bool hidden_ = false;
    TimerHandle hideTimer_;
    EdgePush edgePush_;
    // One per other screen the dock may be called to, while it follows the pointer.
    struct ScreenPush {
        QPointer<QScreen> screen;
        std::unique_ptr<EdgePush> push;
        QMetaObject::Connection resized;
    };
    std::vector<ScreenPush> screenPushes_;
    TimerHandle frames_;
    TimerHandle repaint_;
    QImage backdrop_;
    struct LabelImage {
        QString text;
        double devicePixelRatio = 0;
        bool translucent = false;
        QImage image;
    };
    LabelImage label_;
    // The last label measured: the box is asked for on every pointer move.
    mutable QString measuredText_;
    mutable QSizeF measuredSize_;
    std::optional<RowPicture> painted_;
    DockDesktopServices services_;
    QPointer<QMenu> menu_;
    QPointer<QMessageBox> question_;
    QPointer<StackPopup> stack_;
    size_t trashItems_ = 0;
    // Drag and drop: where the button went down, whether our own drag runs, whether its drop
    // landed on the dock, the tile lit as a drop target, and the kept apps shown (with the room
    // made for a drop among them).
    std::optional<QPointF> pressedAt_;
    bool dragging_ = false;
    bool droppedHere_ = false;
    std::string dropTarget_;
    // Another program's files over the dock, and what they are, read once per drag.
    struct DragFiles {
        std::vector<std::string> files;
        bool entries = false;
        bool oneFolder = false;
        // Whether an app's tile would open them, by the app's path.
        std::map<std::string, bool> opens;
    };
    mutable DragFiles drag_;
    size_t keptShown_ = 0;
    bool roomShown_ = false;
    TimerHandle settleTimer_;
    StackFans fans_;
    WidgetRow* widgets_ = nullptr;
    uint64_t pagingWatch_ = 0;
    bool rebuildPosted_ = false;
    QPointer<WidgetCard> card_;
    std::optional<Uuid> cardId_;
    // The glide of tiles making room: how far each was from its new place when it began.
    std::vector<std::string> keys_;
    std::map<std::string, double> shift_;
    // Where the layout put each tile when the glide began.
    std::map<std::string, double> placed_;
    std::optional<Date> shiftStarted_;
    bool wasReordering_ = false;
    std::map<std::string, DockBadge> badges_;
    std::set<std::string> attention_;
    std::vector<MinimizedWindow> minimized_;
    bool asideForFullScreen_ = false;
    bool asideForLock_ = false;
    // Apps asked to quit, and when.
    std::map<std::string, Date> quitAsked_;
    std::unique_ptr<QAbstractNativeEventFilter> compositingWatch_;
    uint64_t storeWatch_ = 0;
    uint64_t preferencesWatch_ = 0;
    std::vector<QMetaObject::Connection> screenWatches_;
    QScreen* screen_ = nullptr;
};

} // namespace kestrune
