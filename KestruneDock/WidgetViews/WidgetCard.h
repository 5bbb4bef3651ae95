#pragma once
// OVERVIEW
// A widget's card: a larger panel beside its tile with the full view and the controls. One is open
// at a time; Escape, a click outside it or a second press on its tile closes it. The content is
// the tile's own (WidgetTile::makeCard); `ListCard` is the common shape: a line of status, a list,
// and buttons under it.
//
// TYPICAL USAGE
//   auto* card = new WidgetCard(QStringLiteral("Dev Servers"), tile->makeCard(), tileRect, edge, [] { closed(); });
//   card->show();
//
// Main thread only.

#include <functional>

#include <QFrame>
#include <QRect>

#include "KestruneDock/Dock/DockEdge.h"

class QHBoxLayout;
class QLabel;
class QListWidget;
class QListWidgetItem;

namespace kestrune {

// Puts a popup beside a tile (desktop coordinates), on the screen's side of the dock, kept on the
// screen.
void placeBesideTile(QWidget& popup, QRect tile, DockEdge edge);

class WidgetCard final : public QFrame {
public:
    WidgetCard(const QString& title, QWidget* content, QRect tile, DockEdge edge, std::function<void()> closed);
    ~WidgetCard() override;

protected:
    void hideEvent(QHideEvent* event) override;

private:
    std::function<void()> closed_;
};

class ListCard final : public QWidget {
public:
    // `fill` shows the card's data again; it is called now and on every `refresh`. `leaving` is
    // called when the card goes (to give up a want).
    ListCard(std::function<void(ListCard&)> fill, std::function<void()> leaving = {});
    ~ListCard() override;

    void refresh();
    // Called with the item activated (double-click, Return).
    std::function<void(QListWidgetItem&)> activated;

    QLabel* status = nullptr;
    QListWidget* items = nullptr;
    QHBoxLayout* buttons = nullptr;

private:
    std::function<void(ListCard&)> fill_;
    std::function<void()> leaving_;
};

} // namespace kestrune
