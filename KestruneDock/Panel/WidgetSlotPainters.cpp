#include "KestruneDock/Panel/WidgetSlotPainters.h"

#include <algorithm>

#include <QPainter>

#include "KestruneDock/WidgetViews/WidgetRow.h"

namespace kestrune {

void WidgetSlotPainter::paint(QPainter& painter, const DockRowItem& item, const DockSlotFrame& frame, const QRectF& tile,
    const DockPaintContext& context)
{
    (void)frame;
    auto id = Uuid::fromString(item.path);
    WidgetTile* widget = id ? row_.tile(*id) : nullptr;
    if (!widget)
        return;
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::TextAntialiasing);
    widget->paint(painter, tile, { context.devicePixelRatio, context.translucent });
    painter.restore();
}

void WidgetPagesPainter::paint(QPainter& painter, const DockRowItem& item, const DockSlotFrame& frame, const QRectF& tile,
    const DockPaintContext& context)
{
    (void)item;
    (void)frame;
    const WidgetPaging& paging = row_.paging();
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    bool upright = tile.width() < tile.height();
    double across = upright ? tile.width() : tile.height();
    if (paging.showsStackTile()) {
        // The count of the widgets waiting, on a plate of its own.
        widgetface::paintPlate(painter, tile, { context.devicePixelRatio, context.translucent });
        QFont font = widgetface::captionFont(context.metrics->iconSize);
        font.setPixelSize(std::max(8, static_cast<int>(across * 0.42)));
        painter.setFont(font);
        painter.setPen(QColor(255, 255, 255, 230));
        painter.drawText(tile, Qt::AlignCenter, QStringLiteral("+%1").arg(paging.stacked().size()));
    } else {
        // A dot per page, one above the other, the shown page's lit.
        size_t count = paging.pages().size();
        double dot = std::clamp(across * 0.22, 3.0, 8.0);
        double step = dot * 1.8;
        double run = step * static_cast<double>(count - 1);
        QPointF center = tile.center();
        for (size_t page = 0; page < count; ++page) {
            double offset = -run / 2 + step * static_cast<double>(page);
            QPointF at = upright ? QPointF(center.x(), center.y() + offset) : QPointF(center.x() + offset, center.y());
            painter.setPen(Qt::NoPen);
            painter.setBrush(page == paging.page() ? QColor(255, 255, 255, 235) : QColor(255, 255, 255, 90));
            painter.drawEllipse(at, dot / 2, dot / 2);
        }
    }
    painter.restore();
}

} // namespace kestrune
