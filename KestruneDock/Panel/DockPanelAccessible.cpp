#include "KestruneDock/Panel/DockPanelAccessible.h"

#include <optional>
#include <utility>
#include <vector>

#include <QAccessible>
#include <QAccessibleWidget>

#include "KestruneDock/Panel/DockPanel.h"
#include "KestruneDock/Panel/DockPanelController.h"

namespace kestrune {

namespace {

bool inWidgetGroup(const DockRowItem& item)
{
    return item.slot.kind == DockSlotKind::widget || item.slot.kind == DockSlotKind::widgetPages;
}

class DockGroupAccessible;

// One tile, by its place in the row; it reads the row afresh each time it is asked.
class DockTileAccessible final : public QAccessibleInterface, public QAccessibleActionInterface {
public:
    DockTileAccessible(DockPanelController& controller, QAccessibleInterface* parent, size_t slot)
        : controller_(controller), parent_(parent), slot_(slot)
    {
    }

    bool isValid() const override { return slot_ < controller_.items().size(); }
    QObject* object() const override { return nullptr; }
    QWindow* window() const override { return parent_->window(); }
    QAccessibleInterface* childAt(int, int) const override { return nullptr; }
    QAccessibleInterface* parent() const override { return parent_; }
    QAccessibleInterface* child(int) const override { return nullptr; }
    int childCount() const override { return 0; }
    int indexOfChild(const QAccessibleInterface*) const override { return -1; }
    QString text(QAccessible::Text kind) const override
    {
        if (!isValid() || (kind != QAccessible::Name && kind != QAccessible::Description))
            return {};
        return QString::fromStdString(controller_.accessibleName(slot_));
    }
    void setText(QAccessible::Text, const QString&) override {}
    QRect rect() const override { return isValid() ? controller_.slotOnDesktop(slot_) : QRect(); }
    QAccessible::Role role() const override { return QAccessible::Button; }
    QAccessible::State state() const override
    {
        QAccessible::State state;
        state.invisible = !isValid();
        return state;
    }
    void* interface_cast(QAccessible::InterfaceType type) override
    {
        return type == QAccessible::ActionInterface ? static_cast<QAccessibleActionInterface*>(this) : nullptr;
    }
    QStringList actionNames() const override { return { pressAction() }; }
    void doAction(const QString& name) override
    {
        if (name == pressAction() && isValid())
            controller_.press(slot_);
    }
    QStringList keyBindingsForAction(const QString&) const override { return {}; }

    [[nodiscard]] size_t slot() const { return slot_; }

private:
    DockPanelController& controller_;
    QAccessibleInterface* parent_;
    size_t slot_;
};

// The tiles of one kind of entry, made as asked for and kept: a row is never long.
class TileCache {
public:
    TileCache(DockPanelController& controller, QAccessibleInterface* parent) : controller_(controller), parent_(parent) {}
    ~TileCache()
    {
        for (DockTileAccessible* tile : tiles_)
            if (tile)
                QAccessible::deleteAccessibleInterface(QAccessible::uniqueId(tile));
    }
    TileCache(const TileCache&) = delete;
    TileCache& operator=(const TileCache&) = delete;

    QAccessibleInterface* at(size_t slot)
    {
        if (slot >= tiles_.size())
            tiles_.resize(slot + 1, nullptr);
        if (!tiles_[slot]) {
            tiles_[slot] = new DockTileAccessible(controller_, parent_, slot);
            QAccessible::registerAccessibleInterface(tiles_[slot]);
        }
        return tiles_[slot];
    }

private:
    DockPanelController& controller_;
    QAccessibleInterface* parent_;
    std::vector<DockTileAccessible*> tiles_;
};

// The widget tiles, with the pages or stack tile after them.
class DockGroupAccessible final : public QAccessibleInterface {
public:
    DockGroupAccessible(DockPanelController& controller, QAccessibleInterface* parent)
        : controller_(controller), parent_(parent), tiles_(controller, this)
    {
    }

    [[nodiscard]] std::vector<size_t> slots() const
    {
        std::vector<size_t> found;
        for (size_t slot = 0; slot < controller_.items().size(); ++slot)
            if (inWidgetGroup(controller_.items()[slot]))
                found.push_back(slot);
        return found;
    }

    bool isValid() const override { return !slots().empty(); }
    QObject* object() const override { return nullptr; }
    QWindow* window() const override { return parent_->window(); }
    QAccessibleInterface* childAt(int x, int y) const override
    {
        for (size_t slot : slots())
            if (controller_.slotOnDesktop(slot).contains(x, y))
                return const_cast<TileCache&>(tiles_).at(slot);
        return nullptr;
    }
    QAccessibleInterface* parent() const override { return parent_; }
    QAccessibleInterface* child(int index) const override
    {
        auto found = slots();
        if (index < 0 || static_cast<size_t>(index) >= found.size())
            return nullptr;
        return const_cast<TileCache&>(tiles_).at(found[static_cast<size_t>(index)]);
    }
    int childCount() const override { return static_cast<int>(slots().size()); }
    int indexOfChild(const QAccessibleInterface* child) const override
    {
        for (int index = 0; index < childCount(); ++index)
            if (this->child(index) == child)
                return index;
        return -1;
    }
    QString text(QAccessible::Text kind) const override
    {
        return kind == QAccessible::Name ? QString::fromStdString(controller_.widgetsAccessibleName()) : QString();
    }
    void setText(QAccessible::Text, const QString&) override {}
    QRect rect() const override
    {
        QRect all;
        for (size_t slot : slots())
            all = all.united(controller_.slotOnDesktop(slot));
        return all;
    }
    QAccessible::Role role() const override { return QAccessible::Grouping; }
    QAccessible::State state() const override { return {}; }

private:
    DockPanelController& controller_;
    QAccessibleInterface* parent_;
    TileCache tiles_;
};

// The window: its tiles in order, the widgets' group standing where the first widget does.
class DockPanelAccessibleWidget final : public QAccessibleWidget {
public:
    DockPanelAccessibleWidget(DockPanel* panel, DockPanelController& controller)
        : QAccessibleWidget(panel, QAccessible::ToolBar, QStringLiteral("Dock"))
        , controller_(controller)
        , tiles_(controller, this)
        , group_(new DockGroupAccessible(controller, this))
    {
        QAccessible::registerAccessibleInterface(group_);
    }
    ~DockPanelAccessibleWidget() override { QAccessible::deleteAccessibleInterface(QAccessible::uniqueId(group_)); }

    // Each entry a slot, or none for the group.
    [[nodiscard]] std::vector<std::optional<size_t>> entries() const
    {
        std::vector<std::optional<size_t>> found;
        bool grouped = false;
        for (size_t slot = 0; slot < controller_.items().size(); ++slot) {
            const DockRowItem& item = controller_.items()[slot];
            if (item.slot.kind == DockSlotKind::divider || item.placeholder)
                continue;
            if (inWidgetGroup(item)) {
                if (!std::exchange(grouped, true))
                    found.emplace_back(std::nullopt);
                continue;
            }
            found.emplace_back(slot);
        }
        return found;
    }

    int childCount() const override { return static_cast<int>(entries().size()); }
    QAccessibleInterface* child(int index) const override
    {
        auto found = entries();
        if (index < 0 || static_cast<size_t>(index) >= found.size())
            return nullptr;
        auto entry = found[static_cast<size_t>(index)];
        return entry ? const_cast<TileCache&>(tiles_).at(*entry) : group_;
    }
    int indexOfChild(const QAccessibleInterface* child) const override
    {
        for (int index = 0; index < childCount(); ++index)
            if (this->child(index) == child)
                return index;
        return -1;
    }
    QAccessibleInterface* childAt(int x, int y) const override
    {
        for (int index = 0; index < childCount(); ++index) {
            QAccessibleInterface* entry = child(index);
            if (entry->rect().contains(x, y))
                return entry;
        }
        return nullptr;
    }

private:
    DockPanelController& controller_;
    TileCache tiles_;
    DockGroupAccessible* group_;
};

} // namespace

QAccessibleInterface* dockPanelAccessibleFactory(const QString& className, QObject* object)
{
    // The panel has no meta-object of its own: Qt asks with its base's name.
    if (className != QLatin1String("QWidget"))
        return nullptr;
    auto* panel = dynamic_cast<DockPanel*>(object);
    return panel ? new DockPanelAccessibleWidget(panel, panel->controller()) : nullptr;
}

} // namespace kestrune
