#include "KestruneDock/Panel/DockPanelController.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <numbers>

#include <QAction>
#include <QApplication>
#include <QDrag>
#include <QCursor>
#include <QDesktopServices>
#include <QMenu>
#include <QMimeData>
#include <QMouseEvent>
#include <QPushButton>
#include <QFontMetricsF>
#include <QGuiApplication>
#include <QLabel>
#include <QListWidget>
#include <QPainter>
#include <QPainterPath>
#include <QScreen>
#include <QUrl>

#include "KestruneDock/Dock/DockStore.h"
#include "KestruneDock/Panel/DockPanel.h"
#include "KestruneDock/Panel/DockPoof.h"
#include "KestruneDock/Panel/StackPopup.h"
#include "KestruneDock/Panel/WidgetSlotPainters.h"
#include "KestruneDock/WidgetViews/WidgetCard.h"
#include "KestruneDock/Panel/FailureAlert.h"
#include "KestruneDock/Panel/DockWindow.h"
#include "KestruneKit/Preferences/Preferences.h"

namespace kestrune {

namespace {

// Watches a list of widgets for a press that moves past the drag distance, and names the widget
// pressed (its id in Qt::UserRole).
class WidgetDragStart final : public QObject {
public:
    WidgetDragStart(QListWidget* list, std::function<void(const Uuid&)> start) : QObject(list), list_(list), start_(std::move(start)) {}

    bool eventFilter(QObject*, QEvent* event) override
    {
        if (event->type() == QEvent::MouseButtonPress) {
            auto* press = static_cast<QMouseEvent*>(event);
            pressedAt_ = press->button() == Qt::LeftButton ? std::optional(press->position()) : std::nullopt;
        } else if (event->type() == QEvent::MouseMove && pressedAt_) {
            auto* move = static_cast<QMouseEvent*>(event);
            if ((move->position() - *pressedAt_).manhattanLength() < QApplication::startDragDistance())
                return false;
            QListWidgetItem* item = list_->itemAt(pressedAt_->toPoint());
            pressedAt_.reset();
            if (auto id = item ? Uuid::fromString(item->data(Qt::UserRole).toString().toStdString()) : std::nullopt) {
                start_(*id);
                return true;
            }
        } else if (event->type() == QEvent::MouseButtonRelease) {
            pressedAt_.reset();
        }
        return false;
    }

private:
    QListWidget* list_;
    std::function<void(const Uuid&)> start_;
    std::optional<QPointF> pressedAt_;
};


// The bar where nothing can show through it (no compositor).
const QColor opaqueBar(0x2a, 0x2d, 0x32);

QRectF toQt(const DockScreenRect& rect) { return { rect.x, rect.y, rect.width, rect.height }; }

DockScreenRect fromQt(const QRect& rect) { return { double(rect.x()), double(rect.y()), double(rect.width()), double(rect.height()) }; }

// 60 frames a second while something moves; nothing at all otherwise.
constexpr double frameSeconds = 1.0 / 60;

constexpr int labelPixels = 13;

} // namespace

DockPanelController::DockPanelController(Preferences& preferences, DockStore& store, Runtime& runtime)
    : preferences_(preferences), store_(store), runtime_(runtime), panel_(std::make_unique<DockPanel>(*this)),
      edgePush_(runtime, [this] { reveal(); }), fans_([this] {
          reload();
          panel_->update();
      })
{
    dockwindow::prepare(*panel_);
    translucent_ = dockwindow::compositingActive();
    compositingWatch_ = dockwindow::watchCompositing([this](bool active) { setTranslucent(active); });
    readPreferences();
    storeWatch_ = store_.addObserver([this] { reload(); });
    preferencesWatch_ = preferences_.addObserver([this](const std::string& key) {
        if (DockPreferences::isDockKey(key))
            readPreferences();
    });
    auto* app = qGuiApp;
    screenWatches_.push_back(QObject::connect(app, &QGuiApplication::primaryScreenChanged, [this] { screensChanged(); }));
    screenWatches_.push_back(QObject::connect(app, &QGuiApplication::screenAdded, [this] { screensChanged(); }));
    screenWatches_.push_back(QObject::connect(app, &QGuiApplication::screenRemoved, [this] { screensChanged(); }));
    screensChanged();
}

DockPanelController::~DockPanelController()
{
    for (auto& watch : screenWatches_)
        QObject::disconnect(watch);
    store_.removeObserver(storeWatch_);
    preferences_.removeObserver(preferencesWatch_);
    delete card_.data();
    if (widgets_) {
        widgets_->paging().removeObserver(pagingWatch_);
        widgets_->changed = nullptr;
        widgets_->setOnScreen({});
    }
}

void DockPanelController::readPreferences()
{
    DockPreferences before = values_;
    bool hiding = values_.autohide;
    values_ = DockPreferences::read(preferences_);
    layout_.setPreferences(values_);
    if (widgets_) {
        widgets_->setIconSize(values_.iconSize);
        widgets_->paging().setIconSize(values_.iconSize);
        widgets_->paging().setEdge(values_.edge);
    }
    reload();
    if (values_.screen != before.screen)
        screensChanged(true);
    else if (values_.edge != before.edge)
        watchOtherScreens();
    if (hiding && !values_.autohide && (hidden_ || slideTo_ < 1))
        reveal();
    else if (!hiding && values_.autohide && !pointerInside_)
        scheduleHide();
}

void DockPanelController::reload()
{
    std::map<std::string, double> drawnBefore = drawnAxes();
    items_.clear();
    auto add = [this](DockSlotKind kind, std::string path = {}, std::string name = {}) -> DockRowItem& {
        DockRowItem& item = items_.emplace_back();
        item.slot = { kind };
        item.path = std::move(path);
        item.name = std::move(name);
        return item;
    };
    auto addApps = [&](const std::vector<DockApp>& apps) {
        for (const DockApp& app : apps) {
            DockRowItem& item = add(DockSlotKind::app, app.url, store_.name(app.url));
            item.running = app.running.has_value();
            item.launching = store_.launching().contains(app.url);
            if (auto badge = badges_.find(app.url); badge != badges_.end())
                item.badge = badge->second;
            // A window asking for attention hops its tile as an urgent badge does.
            item.badge.urgent = item.badge.urgent || attention_.contains(app.url);
        }
    };
    // While a tile is dragged over the kept apps, it stands where it would land, drawn by the
    // drag; dragged off the dock, it leaves the row.
    std::vector<DockApp> kept = store_.pinnedItems();
    const DockReorder& reorder = store_.reorder();
    roomShown_ = false;
    if (reorder.phase == DockReorder::Phase::dragging && !reorder.dragged.empty()) {
        std::erase_if(kept, [&](const DockApp& app) { return app.url == reorder.dragged; });
        if (reorder.insertion) {
            DockApp room;
            room.url = reorder.dragged;
            kept.insert(kept.begin() + static_cast<ptrdiff_t>(std::min(*reorder.insertion, kept.size())), room);
            roomShown_ = true;
        }
    }
    addApps(kept);
    keptShown_ = kept.size();
    if (roomShown_)
        items_[std::min(*reorder.insertion, kept.size() - 1)].placeholder = true;
    for (DockRowItem& item : items_)
        item.highlighted = !dropTarget_.empty() && item.path == dropTarget_;
    std::erase_if(quitAsked_, [this](const auto& asked) {
        auto running = [&](const std::vector<DockApp>& apps) {
            return std::any_of(apps.begin(), apps.end(), [&](const DockApp& app) { return app.url == asked.first && app.running; });
        };
        return !running(store_.pinnedItems()) && !running(store_.runningOnlyItems());
    });
    if (!store_.othersAndRecents().empty()) {
        if (!items_.empty())
            add(DockSlotKind::divider);
        addApps(store_.othersAndRecents());
    }
    if (!values_.minimizeIntoApp && !minimized_.empty()) {
        if (!items_.empty())
            add(DockSlotKind::divider);
        for (const MinimizedWindow& minimized : minimized_)
            add(DockSlotKind::app, minimized.path, minimized.title.empty() ? store_.name(minimized.path) : minimized.title).window = minimized.window;
    }
    if (!items_.empty())
        add(DockSlotKind::divider);
    std::set<std::string> piles;
    for (const std::string& folder : store_.stackURLs()) {
        auto options = store_.stackOptions().find(folder);
        if (options != store_.stackOptions().end() && options->second.contains("display") && options->second.at("display") == "stack")
            piles.insert(folder);
    }
    fans_.show(piles);
    for (const std::string& folder : store_.stackURLs())
        add(DockSlotKind::stack, folder, std::filesystem::path(folder).filename().string()).fanned = fans_.newest(folder);
    addWidgets(add);
    add(DockSlotKind::trash, std::string(DockStore::trashIdentifier), "Trash").full = trashItems_ > 0;
    items_.back().highlighted = dropTarget_ == DockStore::trashIdentifier;

    std::vector<DockRowSlot> slots;
    slots.reserve(items_.size());
    for (const DockRowItem& item : items_) {
        slots.push_back(item.slot);
        if (painters_.contains(item.slot.kind))
            continue;
        if (item.slot.kind == DockSlotKind::widget && widgets_)
            painters_[item.slot.kind] = std::make_unique<WidgetSlotPainter>(*widgets_);
        else if (item.slot.kind == DockSlotKind::widgetPages && widgets_)
            painters_[item.slot.kind] = std::make_unique<WidgetPagesPainter>(*widgets_);
        else
            painters_[item.slot.kind] = makeSlotPainter(item.slot.kind, store_);
    }
    layout_.setHeldStill(store_.holdsTilesStill());
    bool sameSlots = slots == layout_.slots();
    if (!sameSlots) {
        layout_.setSlots(std::move(slots));
        hovered_.reset();
    }
    place();
    shiftRow(drawnBefore);
    followVisibility();
    if (animating() && !frames_.isArmed())
        frames_ = runtime_.schedule(Seconds(frameSeconds), TimerRepeat::repeating, Seconds(0), [this] { tick(); });
}

void DockPanelController::setWidgetRow(WidgetRow* row)
{
    if (widgets_)
        widgets_->paging().removeObserver(pagingWatch_);
    widgets_ = row;
    if (!widgets_)
        return;
    widgets_->setIconSize(values_.iconSize);
    widgets_->paging().setIconSize(values_.iconSize);
    widgets_->paging().setEdge(values_.edge);
    // The pager tells of a new cut or page from inside the row's own rebuild, at times: the row
    // is built again once that is done.
    pagingWatch_ = widgets_->paging().addObserver([this] {
        // A card whose widget left the row (or the pager let go of) closes.
        if (card_ && widgets_->paging().presented() != cardId_)
            card_->close();
        const WidgetPaging& paging = widgets_->paging();
        if (paging.page() != std::exchange(widgetPage_, paging.page()) && paging.transition() != WidgetPageTransition::none) {
            pageSlideStarted_ = runtime_.now();
            pageSlideSide_ = paging.transition() == WidgetPageTransition::forward ? 1 : -1;
        }
        if (std::exchange(rebuildPosted_, true))
            return;
        QMetaObject::invokeMethod(panel_.get(), [this] {
            rebuildPosted_ = false;
            reload();
            panel_->update();
        }, Qt::QueuedConnection);
    });
    widgets_->changed = [this](const Uuid& id) { repaintWidget(id); };
    reload();
}

void DockPanelController::addWidgets(const std::function<DockRowItem&(DockSlotKind, std::string, std::string)>& add)
{
    if (!widgets_)
        return;
    WidgetPaging& paging = widgets_->paging();
    // The room the rest of the row leaves on the screen, a margin kept at either end.
    if (screen_) {
        DockRowLayout rest;
        rest.setPreferences(values_);
        std::vector<DockRowSlot> slots;
        for (const DockRowItem& item : items_)
            slots.push_back(item.slot);
        slots.push_back({ DockSlotKind::divider });
        slots.push_back({ DockSlotKind::trash });
        rest.setSlots(std::move(slots));
        double screenLength = values_.edge == DockEdge::bottom ? screen_->geometry().width() : screen_->geometry().height();
        paging.setAvailable(screenLength - 2 * values_.iconSize - rest.restingLength());
    }
    if (paging.shown().empty() && !paging.showsPagesTile() && !paging.showsStackTile())
        return;
    if (!items_.empty() && items_.back().slot.kind != DockSlotKind::divider)
        add(DockSlotKind::divider, {}, {});
    for (const Uuid& id : paging.shown()) {
        WidgetTile* tile = widgets_->tile(id);
        if (!tile)
            continue;
        DockRowItem& item = add(DockSlotKind::widget, id.toString(), std::string(title(tile->instance().kind)));
        item.slot.length = tile->length(values_.iconSize);
    }
    if (paging.showsPagesTile() || paging.showsStackTile()) {
        std::string help = paging.showsStackTile() ? WidgetPaging::stackHelp(paging.stacked().size()) : WidgetPaging::pagesHelp();
        add(DockSlotKind::widgetPages, std::string(widgetControlPath), std::move(help)).slot.length = values_.iconSize / 2;
    }
    for (DockRowItem& item : items_)
        if (item.slot.kind == DockSlotKind::widget || item.slot.kind == DockSlotKind::widgetPages)
            item.highlighted = !dropTarget_.empty() && item.path == dropTarget_;
}

void DockPanelController::toggleCard(size_t slot)
{
    if (auto id = Uuid::fromString(items_[slot].path))
        openCard(*id, slotOnDesktop(slot));
}

QRect DockPanelController::slotOnDesktop(size_t slot) const
{
    return toQt(placement_.toWindow(window_, layout_.frames()[slot].tile)).translated(window_.x, window_.y).toAlignedRect();
}

std::string DockPanelController::accessibleName(size_t slot) const
{
    if (slot >= items_.size())
        return {};
    const DockRowItem& item = items_[slot];
    if (item.slot.kind == DockSlotKind::widget && widgets_)
        if (auto id = Uuid::fromString(item.path))
            if (WidgetTile* tile = widgets_->tile(*id))
                return tile->accessibleText();
    if (item.slot.kind == DockSlotKind::widgetPages && widgets_ && widgets_->paging().showsStackTile())
        return WidgetPaging::stackTitle(widgets_->paging().stacked().size());
    return item.name;
}

std::string DockPanelController::widgetsAccessibleName() const
{
    if (!widgets_ || !widgets_->paging().showsPagesTile())
        return "Widgets";
    const WidgetPaging& paging = widgets_->paging();
    return WidgetPaging::accessibilityLabel(paging.page(), paging.pages().size());
}

void DockPanelController::openCard(const Uuid& id, QRect from)
{
    bool again = card_ && cardId_ == id;
    if (card_)
        card_->close();
    WidgetTile* tile = widgets_ ? widgets_->tile(id) : nullptr;
    if (again || !tile)
        return;
    QWidget* content = tile->makeCard();
    if (!content)
        return;
    cardId_ = id;
    widgets_->paging().present(id, id);
    // The row holds still under the open card, as under a stack.
    store_.setStackOpen(true);
    std::string_view name = title(tile->instance().kind);
    card_ = new WidgetCard(QString::fromUtf8(name.data(), static_cast<qsizetype>(name.size())), content, from, values_.edge, [this] {
        cardId_.reset();
        store_.setStackOpen(false);
        if (widgets_ && widgets_->paging().presented())
            widgets_->paging().dismiss();
    });
    card_->show();
}

void DockPanelController::openWidgetStack(size_t slot)
{
    // A second press closes the stack's list.
    bool wasStack = card_ && !cardId_;
    if (card_)
        card_->close();
    if (wasStack || !widgets_)
        return;
    QRect from = slotOnDesktop(slot);
    WidgetRow* row = widgets_;
    std::vector<Uuid> stacked = row->paging().stacked();
    auto* list = new ListCard([row, stacked](ListCard& shown) {
        shown.items->clear();
        for (const Uuid& id : stacked) {
            WidgetTile* tile = row->tile(id);
            if (!tile)
                continue;
            auto* item = new QListWidgetItem(QString::fromStdString(WidgetPaging::stackedLabel(title(tile->instance().kind))));
            item->setData(Qt::UserRole, QString::fromStdString(id.toString()));
            item->setToolTip(QString::fromStdString(tile->accessibleText()));
            shown.items->addItem(item);
        }
    });
    list->status->setText(QString::fromStdString(WidgetPaging::stackHelp(stacked.size())));
    // A widget chosen from the stack opens its card where the stack stands.
    list->activated = [this, from](QListWidgetItem& item) {
        auto id = Uuid::fromString(item.data(Qt::UserRole).toString().toStdString());
        QMetaObject::invokeMethod(panel_.get(), [this, id, from] {
            if (id)
                openCard(*id, from);
        }, Qt::QueuedConnection);
    };
    // A widget pulled out of the list is carried to the row.
    list->items->setDragEnabled(false);
    list->items->viewport()->installEventFilter(new WidgetDragStart(list->items, [this](const Uuid& id) {
        QMetaObject::invokeMethod(panel_.get(), [this, id] { dragWidget(id); }, Qt::QueuedConnection);
    }));
    store_.setStackOpen(true);
    card_ = new WidgetCard(QString::fromStdString(WidgetPaging::stackTitle(stacked.size())), list, from, values_.edge,
                           [this] { store_.setStackOpen(false); });
    card_->show();
}

void DockPanelController::repaintWidget(const Uuid& id)
{
    WidgetTile* tile = widgets_ ? widgets_->tile(id) : nullptr;
    if (!tile)
        return;
    std::string key = id.toString();
    for (size_t index = 0; index < items_.size() && index < layout_.frames().size(); ++index) {
        if (items_[index].slot.kind != DockSlotKind::widget || items_[index].path != key)
            continue;
        // A new length moves the row: the pager's rebuild repaints it all.
        if (std::abs(items_[index].slot.length - tile->length(values_.iconSize)) > WidgetPaging::cutTolerance) {
            reload();
            panel_->update();
            return;
        }
        panel_->update(toQt(placement_.toWindow(window_, layout_.frames()[index].tile)).toAlignedRect().adjusted(-1, -1, 1, 1));
        return;
    }
}

void DockPanelController::followVisibility()
{
    if (!widgets_)
        return;
    bool visible = shown_ && !hidden_ && !isSteppedAside();
    widgets_->setOnScreen(visible ? widgets_->paging().shown() : std::vector<Uuid> {});
}

void DockPanelController::screensChanged(bool followPointerNow)
{
    // Following the pointer, the dock stays on the screen it was called to while that screen is
    // there; it starts on the pointer's.
    QScreen* target = QGuiApplication::primaryScreen();
    if (values_.screen == DockScreenChoice::pointer) {
        QScreen* pointers = QGuiApplication::screenAt(QCursor::pos());
        if (screen_ && !followPointerNow && QGuiApplication::screens().contains(screen_))
            target = screen_;
        else if (pointers)
            target = pointers;
    }
    moveToScreen(target);
}

void DockPanelController::moveToScreen(QScreen* screen)
{
    if (screen != screen_) {
        if (screen_)
            QObject::disconnect(screen_, nullptr, panel_.get(), nullptr);
        screen_ = screen;
        if (screen_) {
            // The panel is the context, so the connections go with it.
            QObject::connect(screen_, &QScreen::geometryChanged, panel_.get(), [this] {
                place();
                watchOtherScreens();
            });
            QObject::connect(screen_, &QScreen::physicalDotsPerInchChanged, panel_.get(), [this] { place(); });
        }
    }
    place();
    watchOtherScreens();
}

void DockPanelController::watchOtherScreens()
{
    for (const ScreenPush& push : screenPushes_)
        QObject::disconnect(push.resized);
    screenPushes_.clear();
    if (values_.screen != DockScreenChoice::pointer || !screen_)
        return;
    DockScreenRect here = fromQt(screen_->geometry());
    for (QScreen* other : QGuiApplication::screens()) {
        DockScreenRect there = fromQt(other->geometry());
        // A mirror of this screen, or one that holds it, is no other place for the dock.
        if (other == screen_ || there.overlaps(here))
            continue;
        QPointer<QScreen> target(other);
        auto push = std::make_unique<EdgePush>(runtime_, [this, target] {
            // Once the pointer's event is done with: the move replaces the strip that took it.
            QMetaObject::invokeMethod(panel_.get(), [this, target] {
                if (!target)
                    return;
                moveToScreen(target);
                if (hidden_ || slideTo_ < 1)
                    reveal();
            }, Qt::QueuedConnection);
        });
        push->place(toQt(DockPanelPlacement::screenEdge(there, values_.edge)), other->devicePixelRatio(), values_.edge);
        // Its strip follows its size; once the resize is told, not under Qt's own call.
        auto resized = QObject::connect(other, &QScreen::geometryChanged, panel_.get(), [this] { watchOtherScreens(); },
                                        Qt::QueuedConnection);
        screenPushes_.push_back({ target, std::move(push), resized });
    }
}

void DockPanelController::place()
{
    if (!screen_)
        return;
    const DockRowMetrics& metrics = layout_.metrics();
    placement_ = DockPanelPlacement { fromQt(screen_->geometry()), fromQt(screen_->virtualGeometry()), values_.edge,
        layout_.restingLength(), metrics.thickness(), layout_.spread(), layout_.raisedDepth() };
    window_ = placement_.window(raise_);
    panel_->setGeometry(toQt(window_).toRect());
    // While auto-hide is on the dock reserves nothing: windows may use the whole screen.
    std::array<uint32_t, 12> none {};
    dockwindow::setStrut(*panel_, values_.autohide ? none : placement_.strut(screen_->devicePixelRatio()));
    if (hidden_)
        edgePush_.place(toQt(placement_.edgeStrip()), screen_->devicePixelRatio(), values_.edge);
    panel_->update();
}

void DockPanelController::setTranslucent(bool translucent)
{
    if (translucent == translucent_)
        return;
    translucent_ = translucent;
    takeBackdrop();
    panel_->update();
}

void DockPanelController::show()
{
    heldDown_ = false;
    shown_ = true;
    place();
    // Behind a full-screen window or a lock screen it waits to come back.
    if (!isSteppedAside())
        panel_->show();
    followVisibility();
    scheduleHide();
    // The label's font is loaded once the dock is up, not on the first hover: loading it reads
    // the font configuration, which would hold up the first frames of the magnification.
    runtime_.post([this] {
        QFont font = panel_->font();
        font.setPixelSize(labelPixels);
        (void)QFontMetricsF(font).height();
    });
}

void DockPanelController::orderOut(bool heldDown)
{
    heldDown_ = heldDown;
    shown_ = false;
    hidden_ = false;
    hideTimer_.cancel();
    edgePush_.remove();
    panel_->hide();
    followVisibility();
}

void DockPanelController::setDemandingAttention(std::set<std::string> paths)
{
    if (paths == attention_)
        return;
    attention_ = std::move(paths);
    reload();
    panel_->update();
}

void DockPanelController::setMinimizedWindows(std::vector<MinimizedWindow> windows)
{
    if (windows == minimized_)
        return;
    minimized_ = std::move(windows);
    reload();
    panel_->update();
}

void DockPanelController::setAside(bool& reason, bool on)
{
    bool before = isSteppedAside();
    reason = on;
    if (isSteppedAside() == before || !shown_)
        return;
    if (isSteppedAside()) {
        // Withdrawn, not merely lowered: nothing can raise it above what has the screen.
        hideTimer_.cancel();
        edgePush_.remove();
        panel_->hide();
        followVisibility();
        return;
    }
    // An auto-hidden dock comes back hidden, its edge strip listening again.
    place();
    if (!hidden_) {
        panel_->show();
        scheduleHide();
    }
    followVisibility();
}

void DockPanelController::prepareToRise()
{
    if (!heldDown_)
        return;
    heldDown_ = false;
    slideFrom_ = 0.6;
    show();
    slide(1);
}

double DockPanelController::shownFraction() const
{
    if (!slideStarted_)
        return slideTo_;
    double done = std::clamp(secondsBetween(*slideStarted_, runtime_.now()).count() / revealSeconds, 0.0, 1.0);
    return slideFrom_ + (slideTo_ - slideFrom_) * (1 - (1 - done) * (1 - done));
}

void DockPanelController::slide(double to)
{
    slideFrom_ = slideStarted_ ? shownFraction() : slideFrom_;
    slideTo_ = to;
    slideStarted_ = runtime_.now();
    if (!frames_.isArmed())
        frames_ = runtime_.schedule(Seconds(frameSeconds), TimerRepeat::repeating, Seconds(0), [this] { tick(); });
}

void DockPanelController::scheduleHide()
{
    if (!values_.autohide || hidden_ || !shown_)
        return;
    hideTimer_ = runtime_.schedule(Seconds(hideDelaySeconds), TimerRepeat::once, Seconds(0), [this] { hideNow(); });
}

void DockPanelController::hideNow()
{
    if (!values_.autohide || hidden_ || pointerInside_)
        return;
    // Not from under an open menu, stack or card, or a launch that is still hopping.
    if (store_.isMenuOpen() || store_.isStackOpen() || (values_.animateLaunch && std::any_of(items_.begin(), items_.end(), [](const auto& item) { return item.launching; }))) {
        scheduleHide();
        return;
    }
    slideFrom_ = shownFraction();
    slide(0);
}

void DockPanelController::reveal()
{
    hideTimer_.cancel();
    edgePush_.remove();
    if (hidden_) {
        hidden_ = false;
        slideFrom_ = 0;
        panel_->show();
        followVisibility();
    }
    if (slideTo_ < 1)
        slide(1);
    // Called back but never entered: it goes again.
    scheduleHide();
}

std::vector<std::string> DockPanelController::rowKeys() const
{
    std::vector<std::string> keys;
    keys.reserve(items_.size());
    std::map<DockSlotKind, int> unnamed;
    for (const DockRowItem& item : items_) {
        std::string key = std::to_string(static_cast<int>(item.slot.kind)) + ":" + item.path + ":" + std::to_string(item.window);
        // Dividers have no path: the first, the second…
        if (item.path.empty())
            key += ":" + std::to_string(unnamed[item.slot.kind]++);
        keys.push_back(std::move(key));
    }
    return keys;
}

double DockPanelController::shiftNow(const std::string& key) const
{
    auto found = shift_.find(key);
    if (!shiftStarted_ || found == shift_.end())
        return 0;
    double done = std::clamp(secondsBetween(*shiftStarted_, runtime_.now()).count() / shiftSeconds, 0.0, 1.0);
    return found->second * (1 - done) * (1 - done) * (1 - done);
}

double DockPanelController::pageSlideOffset() const
{
    if (!pageSlideStarted_)
        return 0;
    double start = 0, end = 0;
    bool found = false;
    for (size_t index = 0; index < items_.size() && index < layout_.frames().size(); ++index) {
        if (items_[index].slot.kind != DockSlotKind::widget)
            continue;
        const DockRowRect& tile = layout_.frames()[index].tile;
        start = found ? start : tile.axis;
        end = tile.axisEnd();
        found = true;
    }
    double done = std::clamp(secondsBetween(*pageSlideStarted_, runtime_.now()).count() / pageSlideSeconds, 0.0, 1.0);
    return found ? pageSlideSide_ * (end - start) * (1 - done) * (1 - done) * (1 - done) : 0;
}

double DockPanelController::onDesktop(double axis) const
{
    auto [x, y] = placement_.toWindow(window_, axis, 0);
    return values_.edge == DockEdge::bottom ? window_.x + x : window_.y + y;
}

std::map<std::string, double> DockPanelController::drawnAxes() const
{
    std::map<std::string, double> axes;
    std::vector<std::string> keys = rowKeys();
    for (size_t index = 0; index < items_.size() && index < layout_.frames().size(); ++index)
        if (!items_[index].placeholder)
            axes[keys[index]] = onDesktop(layout_.frames()[index].tile.axis + shiftNow(keys[index]));
    return axes;
}

void DockPanelController::shiftRow(const std::map<std::string, double>& drawnBefore)
{
    // While a tile is dragged over the row, and as it lands, the tiles that make room or close it
    // glide there from where they were drawn; otherwise the row changes at once.
    bool reordering = store_.reorder().holdsTilesStill();
    bool glides = reordering || wasReordering_;
    wasReordering_ = reordering;
    keys_ = rowKeys();
    // On the desktop: the window grows and shrinks with the row, and the tiles glide from where
    // they were seen.
    std::map<std::string, double> placed;
    for (size_t index = 0; index < keys_.size() && index < layout_.frames().size(); ++index)
        placed[keys_[index]] = onDesktop(layout_.frames()[index].tile.axis);
    // Nothing moved (a badge changed, say): a glide under way goes on as it was.
    if (std::exchange(placed_, placed) == placed && glides)
        return;
    shift_.clear();
    shiftStarted_.reset();
    if (!glides)
        return;
    for (size_t index = 0; index < items_.size() && index < layout_.frames().size(); ++index) {
        auto before = drawnBefore.find(keys_[index]);
        if (items_[index].placeholder || before == drawnBefore.end())
            continue;
        double away = before->second - placed[keys_[index]];
        if (std::abs(away) > 0.5)
            shift_[keys_[index]] = away;
    }
    if (shift_.empty())
        return;
    shiftStarted_ = runtime_.now();
    if (!frames_.isArmed())
        frames_ = runtime_.schedule(Seconds(frameSeconds), TimerRepeat::repeating, Seconds(0), [this] { tick(); });
}

bool DockPanelController::animating() const
{
    if (slideStarted_ || shiftStarted_ || pageSlideStarted_)
        return true;
    if (!values_.animateLaunch)
        return false;
    return std::any_of(items_.begin(), items_.end(), [](const DockRowItem& item) { return item.launching || item.badge.urgent; });
}

void DockPanelController::tick()
{
    if (shiftStarted_ && secondsBetween(*shiftStarted_, runtime_.now()).count() >= shiftSeconds) {
        shiftStarted_.reset();
        shift_.clear();
    }
    if (pageSlideStarted_ && secondsBetween(*pageSlideStarted_, runtime_.now()).count() >= pageSlideSeconds)
        pageSlideStarted_.reset();
    if (slideStarted_ && secondsBetween(*slideStarted_, runtime_.now()).count() >= revealSeconds) {
        slideStarted_.reset();
        slideFrom_ = slideTo_;
        if (slideTo_ <= 0 && !hidden_) {
            // Out of sight: the window goes, and the edge strip listens for the pointer.
            hidden_ = true;
            panel_->hide();
            followVisibility();
            if (screen_)
                edgePush_.place(toQt(placement_.edgeStrip()), screen_->devicePixelRatio(), values_.edge);
        }
    }
    bool launching = values_.animateLaunch && animating();
    // A hop rises above the resting bar, so the window is raised while one goes on.
    if (launching)
        setRaise(DockPanelRaise::raised);
    else if (!pointerInside_)
        setRaise(DockPanelRaise::resting);
    panel_->update();
    if (!animating())
        frames_.cancel();
}

void DockPanelController::setRaise(DockPanelRaise raise)
{
    if (raise == raise_)
        return;
    raise_ = raise;
    window_ = placement_.window(raise_);
    takeBackdrop();
    panel_->setGeometry(toQt(window_).toRect());
    panel_->update();
}

std::optional<size_t> DockPanelController::hitAt(QPointF global) const
{
    auto [axis, depth] = placement_.toRow(window_, global.x() - window_.x, global.y() - window_.y);
    return layout_.hit(axis, depth);
}

void DockPanelController::pointerMoved(QPointF global)
{
    // Desktop coordinates, not the window's: while the window grows or rests, events still in
    // flight are relative to the size it had, and would land on the wrong tile.
    auto [axis, depth] = placement_.toRow(window_, global.x() - window_.x, global.y() - window_.y);
    auto hit = layout_.hit(axis, depth);
    // Above the bar and off every tile the pointer is no longer on the dock: the window rests, so
    // that what lies under that empty space gets the clicks.
    if (!hit && depth > layout_.metrics().thickness()) {
        pointerLeft();
        return;
    }
    pointerInside_ = true;
    hideTimer_.cancel();
    if (slideTo_ < 1 && !hidden_)
        reveal();
    // Raising moves the window's origin; the row point stays what it was.
    setRaise(DockPanelRaise::raised);
    layout_.setPointer(axis);
    hovered_ = layout_.hit(axis, depth);
    repaintSoon();
}

void DockPanelController::repaintSoon()
{
    // Pointer events come faster than a screen shows frames; the row is drawn at most once a
    // frame, with the latest pointer.
    if (repaint_.isArmed())
        return;
    repaint_ = runtime_.schedule(Seconds(frameSeconds), TimerRepeat::once, Seconds(0), [this] { repaintChanges(); });
}

DockPanelController::RowPicture DockPanelController::picture() const
{
    RowPicture picture { window_, raise_, {}, {}, toQt(placement_.toWindow(window_, layout_.bar())) };
    picture.slots.reserve(layout_.frames().size());
    for (const DockSlotFrame& frame : layout_.frames()) {
        DockRowRect reach { frame.tile.axis, 0, frame.tile.axisLength, frame.tile.depthEnd() };
        picture.slots.push_back(toQt(placement_.toWindow(window_, reach)));
    }
    if (showsLabel() && !items_[*hovered_].name.empty()) {
        QFont font = panel_->font();
        font.setPixelSize(labelPixels);
        picture.label = labelBox(*hovered_, QString::fromStdString(items_[*hovered_].name), font);
    }
    return picture;
}

std::optional<QRegion> DockPanelController::changes(const RowPicture& before, const RowPicture& after)
{
    if (before.window != after.window || before.raise != after.raise || before.slots.size() != after.slots.size())
        return std::nullopt;
    QRegion changed;
    // Antialiased edges and shadows reach a little past the rectangles.
    auto differ = [&](const QRectF& a, const QRectF& b) {
        if (a == b)
            return;
        if (!a.isEmpty())
            changed += a.toAlignedRect().adjusted(-2, -2, 2, 2);
        if (!b.isEmpty())
            changed += b.toAlignedRect().adjusted(-2, -2, 2, 2);
    };
    for (size_t index = 0; index < after.slots.size(); ++index)
        differ(before.slots[index], after.slots[index]);
    differ(before.label, after.label);
    differ(before.bar, after.bar);
    return changed;
}

void DockPanelController::repaintChanges()
{
    auto changed = painted_ && !animating() ? changes(*painted_, picture()) : std::nullopt;
    if (!changed)
        panel_->update();
    else if (!changed->isEmpty())
        panel_->update(*changed);
}

void DockPanelController::painted(const QRegion& region)
{
    RowPicture now = picture();
    // The row may have moved again between the request and this paint: what moved outside the
    // painted region still shows the old row, and is painted next.
    if (painted_) {
        auto changed = changes(*painted_, now);
        if (!changed)
            panel_->update();
        else if (QRegion missed = *changed - region; !missed.isEmpty())
            panel_->update(missed);
    }
    painted_ = std::move(now);
}

void DockPanelController::pointerLeft()
{
    scheduleHide();
    pointerInside_ = false;
    hovered_.reset();
    layout_.setPointer(std::nullopt);
    if (!(values_.animateLaunch && animating()))
        setRaise(DockPanelRaise::resting);
    panel_->update();
}

void DockPanelController::clicked(QPointF global, Qt::MouseButton button)
{
    if (button != Qt::LeftButton)
        return;
    if (auto slot = hitAt(global))
        press(*slot, global);
}

void DockPanelController::scrolled(QPointF global, double steps)
{
    auto slot = hitAt(global);
    if (!slot || !widgets_ || items_[*slot].slot.kind != DockSlotKind::widget)
        return;
    if (auto id = Uuid::fromString(items_[*slot].path))
        if (WidgetTile* tile = widgets_->tile(*id))
            tile->scrolled(steps);
}

void DockPanelController::press(size_t slot, std::optional<QPointF> global)
{
    if (slot >= items_.size())
        return;
    const DockRowItem& item = items_[slot];
    switch (item.slot.kind) {
    case DockSlotKind::app:
        if (item.window != 0) {
            if (services_.activateWindow)
                services_.activateWindow(item.window);
        } else {
            store_.launch(item.path);
        }
        break;
    case DockSlotKind::stack:
        openStack(slot);
        break;
    case DockSlotKind::trash:
        QDesktopServices::openUrl(QUrl(QStringLiteral("trash:///")));
        break;
    case DockSlotKind::widget: {
        // A tile may act on the press itself (a mute, a switch of desktop) rather than open its card.
        auto id = Uuid::fromString(item.path);
        WidgetTile* tile = id && widgets_ ? widgets_->tile(*id) : nullptr;
        if (tile && global) {
            QRectF frame = slotOnDesktop(slot);
            QPointF within((global->x() - frame.left()) / std::max(1.0, frame.width()), (global->y() - frame.top()) / std::max(1.0, frame.height()));
            if (tile->pressed(within))
                break;
        }
        toggleCard(slot);
        break;
    }
    case DockSlotKind::widgetPages:
        if (widgets_ && widgets_->paging().showsStackTile()) {
            openWidgetStack(slot);
        } else if (widgets_ && widgets_->paging().showsPagesTile()) {
            // Alt-click goes back, as the tile's help says.
            if (QGuiApplication::queryKeyboardModifiers() & Qt::AltModifier)
                widgets_->paging().showPreviousPage();
            else
                widgets_->paging().showNextPage();
        }
        break;
    default:
        break;
    }
}

void DockPanelController::pressed(QPointF global, Qt::MouseButton button)
{
    pressedAt_ = button == Qt::LeftButton ? std::optional(global) : std::nullopt;
}

void DockPanelController::draggedTo(QPointF global)
{
    if (!pressedAt_ || dragging_ || (global - *pressedAt_).manhattanLength() < QApplication::startDragDistance())
        return;
    auto slot = hitAt(*pressedAt_);
    pressedAt_.reset();
    if (!slot || *slot >= items_.size())
        return;
    DockRowItem item = items_[*slot];
    if (item.slot.kind == DockSlotKind::widget) {
        if (auto id = Uuid::fromString(item.path))
            dragWidget(*id);
        return;
    }
    bool kept = item.slot.kind == DockSlotKind::app && *slot < keptShown_;
    if (!kept && item.slot.kind != DockSlotKind::stack)
        return;
    auto* data = new QMimeData;
    data->setData(QString::fromLatin1(DockStore::dragType.data(), static_cast<qsizetype>(DockStore::dragType.size())),
                  QByteArray::fromStdString(item.path));
    data->setUrls({ QUrl::fromLocalFile(QString::fromStdString(item.path)) });
    auto* drag = new QDrag(panel_.get());
    drag->setMimeData(data);
    QPixmap picture = tilePixmap(item);
    drag->setPixmap(picture);
    drag->setHotSpot(QPoint(picture.width(), picture.height()) / 2 / picture.devicePixelRatio());
    if (kept)
        store_.setReorder({ DockReorder::Phase::dragging, item.path, *slot });
    dragging_ = true;
    droppedHere_ = false;
    Qt::DropAction action = drag->exec(Qt::MoveAction | Qt::CopyAction, Qt::MoveAction);
    dragging_ = false;
    // Let go where nothing took it: off the dock, and gone from it (a running app keeps its
    // running tile). Taken by another program, it was a copy of the entry and stays.
    if (!droppedHere_ && action == Qt::IgnoreAction) {
        if (kept)
            store_.unpin(item.path);
        else
            store_.removeStack(item.path);
        showPoof(QCursor::pos(), layout_.metrics().iconSize);
    }
    settle();
}

void DockPanelController::dragWidget(const Uuid& id)
{
    WidgetTile* tile = widgets_ ? widgets_->tile(id) : nullptr;
    if (!tile || dragging_)
        return;
    // The stack's list makes way for the drop.
    if (card_)
        card_->close();
    auto* data = new QMimeData;
    data->setData(QString::fromLatin1(WidgetPaging::dragFromStackType.data(), static_cast<qsizetype>(WidgetPaging::dragFromStackType.size())),
                  QByteArray::fromStdString(id.toString()));
    auto* drag = new QDrag(panel_.get());
    drag->setMimeData(data);
    // The tile as the row draws it, whether it stands there now or waits in the stack.
    DockRowItem item;
    item.slot = { DockSlotKind::widget, tile->length(layout_.metrics().iconSize) };
    item.path = id.toString();
    if (!painters_.contains(DockSlotKind::widget))
        painters_[DockSlotKind::widget] = std::make_unique<WidgetSlotPainter>(*widgets_);
    QPixmap picture = tilePixmap(item);
    drag->setPixmap(picture);
    drag->setHotSpot(QPoint(picture.width(), picture.height()) / 2 / picture.devicePixelRatio());
    dragging_ = true;
    droppedHere_ = false;
    drag->exec(Qt::MoveAction, Qt::MoveAction);
    dragging_ = false;
    settle();
}

size_t DockPanelController::keptIndexAt(double axis) const
{
    // Before every kept tile whose middle lies past the pointer. The room made for the drop is
    // not counted, so the pointer over it keeps it where it is.
    size_t before = 0;
    for (size_t index = 0; index < keptShown_ && index < layout_.frames().size(); ++index) {
        if (!items_[index].placeholder && layout_.frames()[index].restingCenter < axis)
            ++before;
    }
    return before;
}

DockPanelController::DropPlan DockPanelController::planDrop(QPointF global, const QMimeData& data) const
{
    DropPlan plan;
    auto [axis, depth] = placement_.toRow(window_, global.x() - window_.x, global.y() - window_.y);
    auto type = QString::fromLatin1(DockStore::dragType.data(), static_cast<qsizetype>(DockStore::dragType.size()));
    if (data.hasFormat(type)) {
        plan.path = data.data(type).toStdString();
        const auto& kept = store_.pinnedItems();
        bool isKept = std::any_of(kept.begin(), kept.end(), [&](const DockApp& app) { return app.url == plan.path; });
        plan.kind = isKept ? DropPlan::Kind::reorder : DropPlan::Kind::back;
        plan.index = keptIndexAt(axis);
        return plan;
    }
    auto widgetType = QString::fromLatin1(WidgetPaging::dragFromStackType.data(), static_cast<qsizetype>(WidgetPaging::dragFromStackType.size()));
    if (data.hasFormat(widgetType)) {
        auto slot = layout_.hit(axis, depth);
        const DockRowItem* under = slot && *slot < items_.size() ? &items_[*slot] : nullptr;
        bool overStack = under && under->slot.kind == DockSlotKind::widgetPages && widgets_ && widgets_->paging().showsStackTile();
        if (!under || (under->slot.kind != DockSlotKind::widget && !overStack))
            return plan;
        plan.kind = DropPlan::Kind::widget;
        plan.path = data.data(widgetType).toStdString();
        plan.beside = under->path;
        return plan;
    }
    std::vector<std::string> files;
    for (const QUrl& url : data.urls()) {
        if (url.isLocalFile())
            files.push_back(url.toLocalFile().toStdString());
    }
    // What the files are is read once per drag, not on every move. Another program's data can
    // come back empty at the drop: what the same drag offered on its way across is used then.
    if (!files.empty() && files != drag_.files) {
        drag_ = {};
        drag_.files = std::move(files);
        drag_.entries = std::all_of(drag_.files.begin(), drag_.files.end(), [](const std::string& file) { return file.ends_with(".desktop"); });
        drag_.oneFolder = drag_.files.size() == 1 && std::filesystem::is_directory(drag_.files.front());
    }
    plan.files = drag_.files;
    if (plan.files.empty())
        return plan;
    auto slot = layout_.hit(axis, depth);
    const DockRowItem* under = slot && *slot < items_.size() && !items_[*slot].placeholder ? &items_[*slot] : nullptr;
    auto opens = [&](const std::string& path) {
        auto known = drag_.opens.find(path);
        if (known == drag_.opens.end())
            known = drag_.opens.emplace(path, services_.opensFiles && services_.opensFiles(path, plan.files)).first;
        return known->second;
    };
    if (under && under->slot.kind == DockSlotKind::trash) {
        plan.kind = DropPlan::Kind::trash;
        plan.path = under->path;
    } else if (under && under->slot.kind == DockSlotKind::app && !drag_.entries && opens(under->path)) {
        plan.kind = DropPlan::Kind::openFiles;
        plan.path = under->path;
    } else if (drag_.entries && plan.files.size() == 1) {
        plan.kind = DropPlan::Kind::pin;
        plan.path = plan.files.front();
        plan.index = keptIndexAt(axis);
    } else if (drag_.oneFolder) {
        plan.kind = DropPlan::Kind::stack;
        plan.path = plan.files.front();
    }
    return plan;
}

void DockPanelController::showDrop(const DropPlan& plan)
{
    std::string target = plan.kind == DropPlan::Kind::trash || plan.kind == DropPlan::Kind::openFiles ? plan.path
                         : plan.kind == DropPlan::Kind::widget && plan.beside != plan.path     ? plan.beside
                                                                                                : std::string();
    bool retarget = target != dropTarget_;
    dropTarget_ = std::move(target);
    if (plan.kind == DropPlan::Kind::reorder || plan.kind == DropPlan::Kind::pin)
        store_.setReorder({ DockReorder::Phase::dragging, plan.path, plan.index });
    else if (dragging_)
        // Our own tile over what does not take it: it is not where it would land.
        store_.setReorder({ DockReorder::Phase::dragging, store_.reorder().dragged, std::nullopt });
    else
        store_.setReorder({});
    if (retarget) {
        reload();
        panel_->update();
    }
}

Qt::DropAction DockPanelController::dragOver(QPointF global, const QMimeData& data)
{
    settleTimer_.cancel();
    auto plan = planDrop(global, data);
    showDrop(plan);
    return actionFor(plan.kind);
}

Qt::DropAction DockPanelController::actionFor(DropPlan::Kind kind)
{
    switch (kind) {
    case DropPlan::Kind::none: return Qt::IgnoreAction;
    case DropPlan::Kind::back:
    case DropPlan::Kind::reorder:
    case DropPlan::Kind::widget:
    case DropPlan::Kind::trash: return Qt::MoveAction;
    default: return Qt::CopyAction;
    }
}

void DockPanelController::dragLeft()
{
    drag_ = {};
    showDrop({});
    if (!dragging_)
        settle();
}

Qt::DropAction DockPanelController::dropped(QPointF global, const QMimeData& data)
{
    settleTimer_.cancel();
    auto plan = planDrop(global, data);
    droppedHere_ = true;
    dropTarget_.clear();
    drag_ = {};
    switch (plan.kind) {
    case DropPlan::Kind::reorder: {
        const auto& kept = store_.pinnedItems();
        auto from = std::find_if(kept.begin(), kept.end(), [&](const DockApp& app) { return app.url == plan.path; });
        store_.movePinned(static_cast<size_t>(from - kept.begin()), plan.index);
        break;
    }
    case DropPlan::Kind::pin: store_.pin(plan.path, plan.index); break;
    case DropPlan::Kind::stack: store_.addStack(plan.path); break;
    case DropPlan::Kind::widget: {
        auto id = Uuid::fromString(plan.path);
        if (!id || !widgets_ || widgets_->store().instances().empty())
            break;
        // Into the stack: last in the row, the first to be left out. Onto a tile: where it stands.
        auto beside = plan.beside == widgetControlPath ? std::optional(widgets_->store().instances().back().id) : Uuid::fromString(plan.beside);
        if (beside && *beside != *id)
            widgets_->store().move(*id, *beside);
        break;
    }
    case DropPlan::Kind::openFiles:
        if (services_.openFiles)
            services_.openFiles(plan.path, plan.files);
        break;
    case DropPlan::Kind::trash:
        if (services_.moveToTrash) {
            if (auto problem = services_.moveToTrash(plan.files); !problem.empty())
                showFailure(QStringLiteral("Couldn’t move the files to the Trash."), problem);
        }
        break;
    default: break;
    }
    settle();
    return actionFor(plan.kind);
}

void DockPanelController::settle()
{
    // The row holds still a moment longer while the dropped tile settles, then magnifies again.
    if (store_.reorder().phase == DockReorder::Phase::idle && dropTarget_.empty())
        return;
    dropTarget_.clear();
    store_.setReorder({ DockReorder::Phase::settling, {}, std::nullopt });
    settleTimer_ = runtime_.schedule(Seconds(0.25), TimerRepeat::once, Seconds(0), [this] { store_.setReorder({}); });
}

QPixmap DockPanelController::tilePixmap(const DockRowItem& item) const
{
    double ratio = panel_->devicePixelRatioF();
    double size = layout_.metrics().iconSize;
    // Widgets are as long as their faces; every other tile is square.
    double length = item.slot.kind == DockSlotKind::widget ? item.slot.length : size;
    QImage image((QSizeF(length, size) * ratio).toSize(), QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(ratio);
    // Without a compositor the picture that follows the pointer is drawn whole, its clear parts
    // white: it is drawn on the opaque bar's colour instead.
    image.fill(translucent_ ? QColor(Qt::transparent) : opaqueBar);
    auto painterFor = painters_.find(item.slot.kind);
    if (painterFor != painters_.end() && painterFor->second) {
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        DockPaintContext context;
        context.metrics = &layout_.metrics();
        context.devicePixelRatio = ratio;
        context.largestTile = size;
        context.showIndicators = false;
        context.translucent = true;
        context.toWindow = [](double axis, double depth) { return QPointF(axis, depth); };
        DockRowItem still = item;
        still.running = false;
        still.badge = {};
        DockSlotFrame frame;
        frame.tile = { 0, 0, length, size };
        painterFor->second->paint(painter, still, frame, QRectF(0, 0, length, size), context);
    }
    return QPixmap::fromImage(image);
}

void DockPanelController::openStack(size_t slot)
{
    if (stack_) {
        stack_->close();
        return;
    }
    const DockRowItem& item = items_[slot];
    QRectF tile = toQt(placement_.toWindow(window_, layout_.frames()[slot].tile)).translated(window_.x, window_.y);
    std::map<std::string, std::string> options;
    if (auto found = store_.stackOptions().find(item.path); found != store_.stackOptions().end())
        options = found->second;
    // The row holds still under the open popup, and magnifies again once it closes.
    store_.setStackOpen(true);
    stack_ = new StackPopup(item.path, std::move(options), tile.toAlignedRect(), values_.edge, [this] { store_.setStackOpen(false); });
    stack_->show();
}

void DockPanelController::contextMenu(QPointF global)
{
    auto slot = hitAt(global);
    std::vector<DockMenuEntry> entries;
    std::string path;
    DockSlotKind kind = slot && *slot < items_.size() ? items_[*slot].slot.kind : DockSlotKind::divider;
    if (kind == DockSlotKind::app) {
        const DockRowItem& item = items_[*slot];
        path = item.path;
        DockAppMenuFacts facts;
        const auto& pinned = store_.pinnedItems();
        facts.pinned = std::any_of(pinned.begin(), pinned.end(), [&](const DockApp& app) { return app.url == path; });
        facts.running = item.running;
        facts.windowOnly = path.empty() || path.front() != '/';
        if (item.running && services_.windows)
            facts.windows = services_.windows(path);
        if (services_.actions)
            facts.actions = services_.actions(path);
        facts.opensAtLogin = services_.opensAtLogin && services_.opensAtLogin(path);
        auto asked = quitAsked_.find(path);
        facts.quitPending = item.running && asked != quitAsked_.end()
            && secondsBetween(asked->second, runtime_.now()).count() >= quitGraceSeconds;
        entries = appMenu(facts);
    } else if (kind == DockSlotKind::divider) {
        entries = dockMenu(values_);
    } else if (kind == DockSlotKind::trash) {
        entries = trashMenu(trashItems_);
    } else if (kind == DockSlotKind::stack) {
        path = items_[*slot].path;
        auto options = store_.stackOptions().find(path);
        entries = stackMenu(options == store_.stackOptions().end() ? std::map<std::string, std::string> {} : options->second);
    } else {
        return;
    }
    if (menu_)
        menu_->close();
    auto* menu = new QMenu(panel_.get());
    menu->setAttribute(Qt::WA_DeleteOnClose);
    std::function<void(QMenu*, const std::vector<DockMenuEntry>&)> fill = [&](QMenu* into, const std::vector<DockMenuEntry>& list) {
        for (const DockMenuEntry& entry : list) {
            if (entry.separator) {
                into->addSeparator();
            } else if (!entry.children.empty()) {
                fill(into->addMenu(QString::fromStdString(entry.title)), entry.children);
            } else {
                QAction* action = into->addAction(QString::fromStdString(entry.title));
                action->setEnabled(entry.enabled);
                action->setCheckable(entry.checkable);
                action->setChecked(entry.checked);
                QObject::connect(action, &QAction::triggered, panel_.get(), [this, entry, path] { perform(entry, path); });
            }
        }
    };
    fill(menu, entries);
    // The row holds still under an open menu, and the pointer leaving for the menu is no leave.
    store_.setMenuOpen(true);
    QObject::connect(menu, &QMenu::aboutToHide, panel_.get(), [this] {
        store_.setMenuOpen(false);
        QPoint pointer = QCursor::pos();
        if (!panel_->geometry().contains(pointer))
            pointerLeft();
    });
    menu_ = menu;
    menu->popup(global.toPoint());
}

void DockPanelController::perform(const DockMenuEntry& entry, const std::string& path)
{
    auto set = [this](std::string_view key, PreferenceValue value) { preferences_.set(key, std::move(value)); };
    switch (entry.action) {
    case DockMenuAction::activateWindow:
        if (services_.activateWindow)
            services_.activateWindow(static_cast<uint32_t>(std::stoul(entry.argument)));
        break;
    case DockMenuAction::desktopAction:
        if (services_.launchAction)
            services_.launchAction(path, entry.argument);
        break;
    case DockMenuAction::keepInDock:
        entry.checked ? store_.unpin(path) : store_.pin(path);
        break;
    case DockMenuAction::openAtLogin:
        if (services_.setOpensAtLogin)
            services_.setOpensAtLogin(path, !entry.checked);
        break;
    case DockMenuAction::showInFiles:
        QDesktopServices::openUrl(QUrl::fromLocalFile(QString::fromStdString(std::filesystem::path(path).parent_path().string())));
        break;
    case DockMenuAction::quit:
        quitAsked_[path] = runtime_.now();
        if (services_.quit)
            services_.quit(path);
        break;
    case DockMenuAction::forceQuit:
        if (services_.forceQuit)
            services_.forceQuit(path);
        break;
    case DockMenuAction::toggleHiding: set(DockPreferences::autohideKey, !values_.autohide); break;
    case DockMenuAction::toggleMagnification: set(DockPreferences::magnificationKey, !values_.magnification); break;
    case DockMenuAction::positionLeft: set(DockPreferences::edgeKey, std::string(toString(DockEdge::left))); break;
    case DockMenuAction::positionBottom: set(DockPreferences::edgeKey, std::string(toString(DockEdge::bottom))); break;
    case DockMenuAction::positionRight: set(DockPreferences::edgeKey, std::string(toString(DockEdge::right))); break;
    case DockMenuAction::dockSettings:
        if (services_.openSettings)
            services_.openSettings();
        break;
    case DockMenuAction::openTrash:
        QDesktopServices::openUrl(QUrl(QStringLiteral("trash:///")));
        break;
    case DockMenuAction::emptyTrash:
        askToEmptyTrash();
        break;
    case DockMenuAction::stackOption: {
        auto equals = entry.argument.find('=');
        std::map<std::string, std::string> options;
        if (auto found = store_.stackOptions().find(path); found != store_.stackOptions().end())
            options = found->second;
        options[entry.argument.substr(0, equals)] = entry.argument.substr(equals + 1);
        store_.setStackOptions(path, std::move(options));
        break;
    }
    case DockMenuAction::openFolder:
        QDesktopServices::openUrl(QUrl::fromLocalFile(QString::fromStdString(path)));
        break;
    case DockMenuAction::removeStack:
        store_.removeStack(path);
        break;
    case DockMenuAction::none:
        break;
    }
}

void DockPanelController::askToEmptyTrash()
{
    if (!services_.emptyTrash || trashItems_ == 0)
        return;
    if (question_) {
        question_->raise();
        return;
    }
    DockQuestion question = emptyTrashQuestion(trashItems_);
    auto* box = new QMessageBox(QMessageBox::Warning, QStringLiteral("Kestrune Dock"), QString::fromStdString(question.title));
    box->setInformativeText(QString::fromStdString(question.detail));
    QPushButton* confirm = box->addButton(QString::fromStdString(question.confirm), QMessageBox::DestructiveRole);
    // Nothing is lost by a hasty Return: Cancel is the default.
    QPushButton* cancel = box->addButton(QStringLiteral("Cancel"), QMessageBox::RejectRole);
    box->setDefaultButton(cancel);
    box->setEscapeButton(cancel);
    box->setAttribute(Qt::WA_DeleteOnClose);
    QObject::connect(box, &QMessageBox::buttonClicked, panel_.get(), [this, confirm](QAbstractButton* button) {
        if (button != confirm)
            return;
        if (std::string problem = services_.emptyTrash(); !problem.empty())
            showFailure(QStringLiteral("Couldn’t empty the Trash."), problem);
    });
    question_ = box;
    box->show();
    box->raise();
    box->activateWindow();
}

void DockPanelController::setBadge(const std::string& path, const DockBadge& badge)
{
    auto found = badges_.find(path);
    if (found != badges_.end() && found->second == badge)
        return;
    if (badge.empty())
        badges_.erase(path);
    else
        badges_[path] = badge;
    reload();
}

void DockPanelController::setTrashItems(size_t items)
{
    if (std::exchange(trashItems_, items) == items)
        return;
    for (DockRowItem& item : items_)
        if (item.slot.kind == DockSlotKind::trash)
            item.full = items > 0;
    panel_->update();
}

void DockPanelController::takeBackdrop()
{
    // Without a compositor, what lies behind the raised window cannot show through it; a copy
    // of the screen there, taken before the window grows over it, stands in for it while the
    // pointer is on the dock. (Cutting the window to its tiles instead cost a render and a mask
    // on every pointer move.)
    backdrop_ = QImage();
    if (translucent_ || raise_ != DockPanelRaise::raised || !screen_)
        return;
    double ratio = screen_->devicePixelRatio();
    QRect pixels(static_cast<int>(std::round(window_.x * ratio)), static_cast<int>(std::round(window_.y * ratio)),
        static_cast<int>(std::round(window_.width * ratio)), static_cast<int>(std::round(window_.height * ratio)));
    backdrop_ = dockwindow::grabScreen(pixels);
    backdrop_.setDevicePixelRatio(ratio);
}

void DockPanelController::paint(QPainter& painter, double devicePixelRatio, bool cleared)
{
    // The screen's copy where there is one (it covers the whole window), else nothing.
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    if (!translucent_ && raise_ == DockPanelRaise::raised && !backdrop_.isNull())
        painter.drawImage(QPointF(0, 0), backdrop_);
    else if (!cleared)
        painter.fillRect(QRectF(0, 0, window_.width, window_.height), Qt::transparent);
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    painter.setRenderHint(QPainter::Antialiasing);

    const DockRowMetrics& metrics = layout_.metrics();
    // Sliding in or out along the edge: part of the way past it.
    if (double fraction = shownFraction(); fraction < 1) {
        double away = (1 - fraction) * metrics.thickness();
        switch (values_.edge) {
        case DockEdge::bottom: painter.translate(0, away); break;
        case DockEdge::left: painter.translate(-away, 0); break;
        case DockEdge::right: painter.translate(away, 0); break;
        }
    }

    DockPaintContext context;
    context.metrics = &metrics;
    context.devicePixelRatio = devicePixelRatio;
    context.showIndicators = values_.showIndicators;
    context.largestTile = metrics.iconSize * std::max(1.0, values_.magnification ? values_.magnifiedSize / metrics.iconSize : 1.0);
    context.translucent = translucent_;
    context.toWindow = [this](double axis, double depth) {
        auto [x, y] = placement_.toWindow(window_, axis, depth);
        return QPointF(x, y);
    };

    QRectF bar = toQt(placement_.toWindow(window_, layout_.bar()));
    if (translucent_) {
        double radius = std::min(metrics.thickness() * 0.28, 16.0);
        QPainterPath path;
        path.addRoundedRect(bar.adjusted(0.5, 0.5, -0.5, -0.5), radius, radius);
        painter.fillPath(path, QColor(28, 30, 34, 196));
        painter.setPen(QPen(QColor(255, 255, 255, 46), 1));
        painter.drawPath(path);
    } else {
        painter.fillRect(bar, opaqueBar);
    }

    Date now = runtime_.now();
    std::optional<QRectF> clip;
    if (painter.hasClipping())
        clip = painter.clipBoundingRect();
    double reach = metrics.iconSize * 0.5;
    // A page sliding in shows only where the widget tiles stand.
    double pageSlide = pageSlideOffset();
    std::optional<QRectF> widgetArea;
    if (pageSlide != 0)
        for (size_t index = 0; index < items_.size() && index < layout_.frames().size(); ++index)
            if (items_[index].slot.kind == DockSlotKind::widget) {
                QRectF area = toQt(placement_.toWindow(window_, layout_.frames()[index].tile));
                widgetArea = widgetArea ? widgetArea->united(area) : area;
            }
    for (size_t index = 0; index < items_.size() && index < layout_.frames().size(); ++index) {
        const DockRowItem& item = items_[index];
        DockSlotFrame frame = layout_.frames()[index];
        if (index < keys_.size())
            frame.tile.axis += shiftNow(keys_[index]);
        if ((item.launching || item.badge.urgent) && values_.animateLaunch) {
            auto started = item.launching ? store_.launchStarted(item.path) : std::optional<Date>();
            double elapsed = started ? secondsBetween(*started, now).count() : std::chrono::duration<double>(now.time_since_epoch()).count();
            frame.tile.depth += metrics.iconSize * 0.4 * std::abs(std::sin(std::numbers::pi * elapsed / hopSeconds));
        }
        if (item.placeholder)
            continue;
        // A tile well clear of the part being painted (a widget's news repaints its own
        // rectangle) costs nothing: its badge, indicator and hop stay within half an icon.
        if (clip && !toQt(placement_.toWindow(window_, frame.tile)).adjusted(-reach, -reach, reach, reach).intersects(*clip))
            continue;
        bool sliding = widgetArea && item.slot.kind == DockSlotKind::widget;
        if (sliding) {
            frame.tile.axis += pageSlide;
            painter.save();
            painter.setClipRect(*widgetArea);
        }
        if (item.highlighted) {
            QRectF lit = toQt(placement_.toWindow(window_, frame.tile)).adjusted(-3, -3, 3, 3);
            painter.setPen(Qt::NoPen);
            painter.setBrush(QColor(255, 255, 255, 70));
            painter.drawRoundedRect(lit, lit.width() * 0.22, lit.width() * 0.22);
        }
        auto painterFor = painters_.find(item.slot.kind);
        if (painterFor != painters_.end() && painterFor->second)
            painterFor->second->paint(painter, item, frame, toQt(placement_.toWindow(window_, frame.tile)), context);
        if (sliding)
            painter.restore();
    }
    if (showsLabel())
        paintLabel(painter, *hovered_, context);
}

bool DockPanelController::showsLabel() const
{
    // An open menu, card or stack list stands where the name would: the name goes.
    // A dragged tile covers it too.
    return hovered_ && *hovered_ < items_.size() && raise_ == DockPanelRaise::raised && !store_.isMenuOpen() && !card_
        && store_.reorder().phase == DockReorder::Phase::idle && !dragging_;
}

void DockPanelController::paintLabel(QPainter& painter, size_t slot, const DockPaintContext& context)
{
    if (slot >= items_.size() || items_[slot].name.empty() || items_[slot].slot.kind == DockSlotKind::divider)
        return;
    QString text = QString::fromStdString(items_[slot].name);
    QFont font = painter.font();
    font.setPixelSize(labelPixels);
    QRectF box = labelBox(slot, text, font);
    // Laid out and drawn once per name: the tile under it moves on every pointer move.
    double dpr = context.devicePixelRatio;
    if (label_.text != text || label_.devicePixelRatio != dpr || label_.translucent != context.translucent
        || label_.image.deviceIndependentSize() != box.size()) {
        label_ = { text, dpr, context.translucent, QImage((box.size() * dpr).toSize(), QImage::Format_ARGB32_Premultiplied) };
        label_.image.setDevicePixelRatio(dpr);
        label_.image.fill(Qt::transparent);
        QPainter drawing(&label_.image);
        drawing.setRenderHint(QPainter::Antialiasing);
        QRectF inside(QPointF(), box.size());
        QPainterPath path;
        path.addRoundedRect(inside, 6, 6);
        drawing.fillPath(path, context.translucent ? QColor(28, 30, 34, 220) : opaqueBar);
        drawing.setFont(font);
        drawing.setPen(QColor(245, 246, 247));
        drawing.drawText(inside, Qt::AlignCenter, text);
    }
    painter.drawImage(box.topLeft(), label_.image);
}

QRectF DockPanelController::labelBox(size_t slot, const QString& text, const QFont& font) const
{
    const DockSlotFrame& frame = layout_.frames()[slot];
    if (text != measuredText_) {
        QFontMetricsF metrics(font);
        measuredText_ = text;
        measuredSize_ = QSizeF(std::ceil(metrics.horizontalAdvance(text)) + 20, std::ceil(metrics.height()) + 8);
    }
    QSizeF size = measuredSize_;
    auto [anchorX, anchorY] = placement_.toWindow(window_, frame.tile.axisCenter(), frame.tile.depthEnd() + 8);
    QPointF anchor(anchorX, anchorY);
    QRectF box(QPointF(), size);
    switch (values_.edge) {
    case DockEdge::bottom: box.moveCenter(QPointF(anchor.x(), anchor.y() - size.height() / 2)); break;
    case DockEdge::left: box.moveCenter(QPointF(anchor.x() + size.width() / 2, anchor.y())); break;
    case DockEdge::right: box.moveCenter(QPointF(anchor.x() - size.width() / 2, anchor.y())); break;
    }
    // Inside the window, on whole pixels so the text is sharp.
    QRectF inside(0, 0, window_.width, window_.height);
    box.moveLeft(std::clamp(box.left(), inside.left() + 2, std::max(inside.left() + 2, inside.right() - box.width() - 2)));
    box.moveTop(std::clamp(box.top(), inside.top() + 2, std::max(inside.top() + 2, inside.bottom() - box.height() - 2)));
    box.moveTopLeft(QPointF(std::round(box.left()), std::round(box.top())));
    return box;
}

} // namespace kestrune
