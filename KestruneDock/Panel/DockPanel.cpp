#include "KestruneDock/Panel/DockPanel.h"

#include <algorithm>
#include <cmath>
#include <mutex>

#include <QAccessible>
#include <QContextMenuEvent>
#include <QWheelEvent>
#include <QCursor>
#include <QEnterEvent>
#include <QMimeData>
#include <QMouseEvent>
#include <QPaintEvent>
#include <QPainter>

#include "KestruneDock/Desktop/X11WindowList.h"
#include "KestruneDock/Panel/DockPanelAccessible.h"
#include "KestruneDock/Panel/DockPanelController.h"

namespace kestrune {

namespace {

// Device rows painted at a time: an antialiased shape gives a few spans a row, and Qt's painter
// splits the work of more than 96 spans across threads.
constexpr int bandRows = 24;

} // namespace

DockPanel::DockPanel(DockPanelController& controller) : controller_(controller)
{
    setAttribute(Qt::WA_TranslucentBackground);
    // The controller clears what it paints (or covers it with the screen's copy): Qt's own
    // clearing first would fill every repainted pixel twice.
    setAttribute(Qt::WA_NoSystemBackground);
    setAttribute(Qt::WA_ShowWithoutActivating);
    setMouseTracking(true);
    setAcceptDrops(true);
    setWindowTitle(QStringLiteral("Kestrune Dock"));
    // Before anything asks for the panel's accessible interface, which Qt then keeps.
    static std::once_flag installed;
    std::call_once(installed, [] { QAccessible::installFactory(dockPanelAccessibleFactory); });
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
    // Qt's raster painter hands any fill of more than 96 spans to its thread pool and waits for
    // it: on a row this small the handing over costs more than the fill. So the row is painted
    // into a picture of our own, a band of a few rows at a time under a plain rectangular clip,
    // and the changed parts are copied to the window, which a copy does on this thread.
    double ratio = devicePixelRatioF();
    QSize pixels = (QSizeF(size()) * ratio).toSize();
    if (frame_.size() != pixels || frame_.devicePixelRatio() != ratio) {
        frame_ = QImage(pixels, QImage::Format_ARGB32_Premultiplied);
        frame_.setDevicePixelRatio(ratio);
    }
    int band = std::max(1, static_cast<int>(std::floor(bandRows / ratio)));
    QPainter drawing(&frame_);
    for (const QRect& rect : event->region()) {
        for (int top = rect.top(); top <= rect.bottom(); top += band) {
            QRect strip(rect.left(), top, rect.width(), std::min(band, rect.bottom() + 1 - top));
            drawing.save();
            drawing.setClipRect(strip);
            drawing.setCompositionMode(QPainter::CompositionMode_Source);
            drawing.fillRect(strip, Qt::transparent);
            drawing.setCompositionMode(QPainter::CompositionMode_SourceOver);
            controller_.paint(drawing, ratio, true);
            drawing.restore();
        }
    }
    drawing.end();
    QPainter painter(this);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    for (const QRect& rect : event->region())
        painter.drawImage(rect, frame_, QRectF(QPointF(rect.topLeft()) * ratio, QSizeF(rect.size()) * ratio));
    painter.end();
    controller_.painted(event->region());
}

void DockPanel::mousePressEvent(QMouseEvent* event) { controller_.pressed(event->globalPosition(), event->button()); }

void DockPanel::mouseMoveEvent(QMouseEvent* event)
{
    if (event->buttons() & Qt::LeftButton)
        controller_.draggedTo(event->globalPosition());
    else
        controller_.pointerMoved(event->globalPosition());
}

QPointF DockPanel::dragPosition() const
{
    // The event's position is relative to the window as it stood when the drag moved; the
    // window may have grown or rested since. Where the pointer is on the screen is what counts.
    return QCursor::pos();
}

void DockPanel::dragEnterEvent(QDragEnterEvent* event)
{
    // Entered even where nothing would take the drop, so that moves keep coming as it crosses
    // the row.
    Qt::DropAction action = controller_.dragOver(dragPosition(), *event->mimeData());
    event->setDropAction(action == Qt::IgnoreAction ? event->proposedAction() : action);
    event->accept();
}

namespace {

// Takes the drop with the action, or turns it down.
void answer(QDropEvent* event, Qt::DropAction action)
{
    if (action == Qt::IgnoreAction) {
        event->ignore();
        return;
    }
    event->setDropAction(action);
    event->accept();
}

} // namespace

void DockPanel::dragMoveEvent(QDragMoveEvent* event) { answer(event, controller_.dragOver(dragPosition(), *event->mimeData())); }

void DockPanel::dragLeaveEvent(QDragLeaveEvent*) { controller_.dragLeft(); }

void DockPanel::dropEvent(QDropEvent* event) { answer(event, controller_.dropped(dragPosition(), *event->mimeData())); }

void DockPanel::mouseReleaseEvent(QMouseEvent* event)
{
    // The click's own X time goes with what it asks of the window manager.
    X11WindowList::noteUserTime(static_cast<uint32_t>(event->timestamp()));
    if (rect().contains(event->position().toPoint()))
        controller_.clicked(event->globalPosition(), event->button());
}

void DockPanel::wheelEvent(QWheelEvent* event)
{
    // A notched wheel turns 120 eighths of a degree a step; a touchpad gives fractions of one.
    double steps = event->angleDelta().y() / 120.0;
    if (steps != 0)
        controller_.scrolled(event->globalPosition(), steps);
    event->accept();
}

void DockPanel::contextMenuEvent(QContextMenuEvent* event) { controller_.contextMenu(event->globalPos()); }

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
