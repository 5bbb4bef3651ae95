#include "KestruneDock/Panel/DockPanel.h"

#include <QCursor>
#include <QEnterEvent>
#include <QMouseEvent>
#include <QPaintEvent>
#include <QPainter>

#include "KestruneDock/Desktop/X11WindowList.h"
#include "KestruneDock/Panel/DockPanelController.h"

namespace kestrune {

DockPanel::DockPanel(DockPanelController& controller) : controller_(controller)
{
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_ShowWithoutActivating);
    setMouseTracking(true);
    setWindowTitle(QStringLiteral("Kestrune Dock"));
    setAccessibleName(QStringLiteral("Dock"));
}

QImage DockPanel::render() const
{
    double ratio = devicePixelRatioF();
    QImage image((QSizeF(size()) * ratio).toSize(), QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(ratio);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    controller_.paint(painter, ratio);
    return image;
}

void DockPanel::paintEvent(QPaintEvent* event)
{
    QPainter painter(this);
    controller_.paint(painter, devicePixelRatioF());
    painter.end();
    controller_.painted(event->region());
}

void DockPanel::mouseMoveEvent(QMouseEvent* event) { controller_.pointerMoved(event->globalPosition()); }

void DockPanel::mouseReleaseEvent(QMouseEvent* event)
{
    // The click's own X time goes with what it asks of the window manager.
    X11WindowList::noteUserTime(static_cast<uint32_t>(event->timestamp()));
    if (rect().contains(event->position().toPoint()))
        controller_.clicked(event->globalPosition(), event->button());
}

void DockPanel::enterEvent(QEnterEvent* event) { controller_.pointerMoved(event->globalPosition()); }

void DockPanel::leaveEvent(QEvent*)
{
    // Growing the window under the pointer can report a leave that is none, and without a
    // compositor the window is cut to its tiles, so the pointer leaves it inside its rectangle:
    // where the pointer is now decides.
    QPoint pointer = QCursor::pos();
    if (geometry().contains(pointer))
        controller_.pointerMoved(pointer);
    else
        controller_.pointerLeft();
}

} // namespace kestrune
