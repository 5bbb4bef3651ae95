#include "KestruneDock/WidgetViews/WidgetCard.h"

#include <algorithm>

#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QScreen>
#include <QVBoxLayout>

namespace kestrune {

void placeBesideTile(QWidget& popup, QRect tile, DockEdge edge)
{
    QScreen* screen = QGuiApplication::screenAt(tile.center());
    QRect room = screen ? screen->geometry() : QRect(tile.topLeft() - QPoint(popup.width(), popup.height()), popup.size() * 2);
    QPoint at;
    switch (edge) {
    case DockEdge::bottom: at = QPoint(tile.center().x() - popup.width() / 2, tile.top() - popup.height() - 8); break;
    case DockEdge::left: at = QPoint(tile.right() + 8, tile.center().y() - popup.height() / 2); break;
    case DockEdge::right: at = QPoint(tile.left() - popup.width() - 8, tile.center().y() - popup.height() / 2); break;
    }
    at.setX(std::clamp(at.x(), room.left() + 4, std::max(room.left() + 4, room.right() - popup.width() - 4)));
    at.setY(std::clamp(at.y(), room.top() + 4, std::max(room.top() + 4, room.bottom() - popup.height() - 4)));
    popup.move(at);
}

WidgetCard::WidgetCard(const QString& title, QWidget* content, QRect tile, DockEdge edge, std::function<void()> closed)
    : QFrame(nullptr, Qt::Popup), closed_(std::move(closed))
{
    setAttribute(Qt::WA_DeleteOnClose);
    // The click that closes the card from outside is not passed on: a second press on the tile
    // closes it rather than opening it again.
    setAttribute(Qt::WA_NoMouseReplay);
    setFrameShape(QFrame::StyledPanel);
    setAccessibleName(title);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(12, 10, 12, 10);
    auto* heading = new QLabel(title);
    QFont font = heading->font();
    font.setBold(true);
    heading->setFont(font);
    layout->addWidget(heading);
    layout->addWidget(content, 1);
    resize(380, 320);
    placeBesideTile(*this, tile, edge);
}

WidgetCard::~WidgetCard()
{
    if (auto closed = std::exchange(closed_, nullptr))
        closed();
}

void WidgetCard::hideEvent(QHideEvent* event)
{
    QFrame::hideEvent(event);
    if (auto closed = std::exchange(closed_, nullptr))
        closed();
}

ListCard::ListCard(std::function<void(ListCard&)> fill, std::function<void()> leaving) : fill_(std::move(fill)), leaving_(std::move(leaving))
{
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    status = new QLabel;
    status->setWordWrap(true);
    items = new QListWidget;
    items->setAccessibleName(QStringLiteral("Items"));
    buttons = new QHBoxLayout;
    buttons->addStretch();
    layout->addWidget(status);
    layout->addWidget(items, 1);
    layout->addLayout(buttons);
    QObject::connect(items, &QListWidget::itemActivated, this, [this](QListWidgetItem* item) {
        if (activated && item)
            activated(*item);
    });
    refresh();
}

ListCard::~ListCard()
{
    if (leaving_)
        leaving_();
}

void ListCard::refresh()
{
    if (fill_)
        fill_(*this);
    // Nothing to list: the status line says why, alone.
    items->setVisible(items->count() > 0);
}

} // namespace kestrune
