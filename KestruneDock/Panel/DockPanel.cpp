#include "KestruneDock/Panel/DockPanel.h"

#include <QCursor>
#include <QEnterEvent>
#include <QMouseEvent>
#include <QPaintEvent>
#include <QPainter>
#include <QWindow>

#include "KestruneDock/Desktop/X11WindowList.h"
#include "KestruneDock/Panel/DockPanelController.h"

namespace kestrune {

DockPanel::DockPanel(DockPanelController& controller) : controller_(controller)
{
    setAttribute(Qt::WA_TranslucentBackground);
    // The controller clears what it paints (or covers it with the screen's copy): Qt's own
    // clearing first would fill every repainted pixel twice.
    setAttribute(Qt::WA_NoSystemBackground);
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
    controller_.paint(painter, ratio, true);
    return image;
}

void DockPanel::paintEvent(QPaintEvent* event)
{
    QPainter painter(this);
    // A window with an alpha channel has what is repainted cleared by its backing store.
    bool cleared = windowHandle() && windowHandle()->format().hasAlpha();
    controller_.paint(painter, devicePixelRatioF(), cleared);
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
