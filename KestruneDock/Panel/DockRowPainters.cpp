#include "KestruneDock/Panel/DockRowPainters.h"

#include <algorithm>
#include <cmath>

#include <QFontMetricsF>
#include <QIcon>
#include <QPainter>
#include <QPainterPath>

#include "KestruneDock/Dock/DockStore.h"
#include "KestruneDock/Panel/TileRasterQt.h"

namespace kestrune {

namespace {

QImage smoothCopy(const QImage& image, int pixels)
{
    // Two halvings at most before the last step keep a large SVG render crisp when shrunk.
    QImage scaled = image;
    while (scaled.width() >= 2 * pixels)
        scaled = scaled.scaled(scaled.width() / 2, scaled.height() / 2, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    return scaled.scaled(pixels, pixels, Qt::KeepAspectRatio, Qt::SmoothTransformation);
}

void drawFolder(QPainter& painter, const QRectF& box)
{
    double s = box.width();
    QPainterPath back;
    back.addRoundedRect(QRectF(box.x() + s * 0.08, box.y() + s * 0.2, s * 0.84, s * 0.66), s * 0.06, s * 0.06);
    QPainterPath tab;
    tab.addRoundedRect(QRectF(box.x() + s * 0.08, box.y() + s * 0.14, s * 0.36, s * 0.14), s * 0.05, s * 0.05);
    painter.fillPath(back.united(tab), QColor(0x3d, 0x8b, 0xd9));
    QPainterPath front;
    front.addRoundedRect(QRectF(box.x() + s * 0.08, box.y() + s * 0.3, s * 0.84, s * 0.56), s * 0.06, s * 0.06);
    QLinearGradient fill(box.topLeft(), box.bottomLeft());
    fill.setColorAt(0, QColor(0x8c, 0xc4, 0xf5));
    fill.setColorAt(1, QColor(0x58, 0xa4, 0xec));
    painter.fillPath(front, fill);
}

void drawTrash(QPainter& painter, const QRectF& box, bool full)
{
    double s = box.width();
    QRectF can(box.x() + s * 0.22, box.y() + s * 0.26, s * 0.56, s * 0.64);
    if (full) {
        // Crumpled paper over the rim, under the lid.
        painter.setPen(QPen(QColor(0xb8, 0xbe, 0xc5), std::max(1.0, s * 0.015)));
        painter.setBrush(QColor(0xf4, 0xf5, 0xf2));
        painter.drawEllipse(QRectF(box.x() + s * 0.24, box.y() + s * 0.06, s * 0.28, s * 0.22));
        painter.drawEllipse(QRectF(box.x() + s * 0.46, box.y() + s * 0.03, s * 0.3, s * 0.24));
        painter.setBrush(Qt::NoBrush);
    }
    QPainterPath body;
    body.moveTo(can.left(), can.top());
    body.lineTo(can.right(), can.top());
    body.lineTo(can.right() - s * 0.05, can.bottom());
    body.lineTo(can.left() + s * 0.05, can.bottom());
    body.closeSubpath();
    QLinearGradient fill(can.topLeft(), can.topRight());
    fill.setColorAt(0, QColor(0xd8, 0xdc, 0xe0));
    fill.setColorAt(1, QColor(0xa9, 0xb0, 0xb7));
    painter.fillPath(body, fill);
    painter.setPen(QPen(QColor(0x7d, 0x86, 0x8f), std::max(1.0, s * 0.025)));
    for (double x : { 0.38, 0.5, 0.62 })
        painter.drawLine(QPointF(box.x() + s * x, can.top() + s * 0.1), QPointF(box.x() + s * x, can.bottom() - s * 0.08));
    QPainterPath lid;
    lid.addRoundedRect(QRectF(box.x() + s * 0.16, box.y() + s * 0.18, s * 0.68, s * 0.08), s * 0.03, s * 0.03);
    painter.fillPath(lid, QColor(0x8e, 0x97, 0xa0));
}

} // namespace

void paintIndicator(QPainter& painter, const DockSlotFrame& frame, const DockPaintContext& context)
{
    const DockRowMetrics& metrics = *context.metrics;
    double radius = std::max(1.5, metrics.iconSize * 0.045);
    QPointF center = context.toWindow(frame.tile.axisCenter(), metrics.padding / 2);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(255, 255, 255, 230));
    painter.drawEllipse(center, radius, radius);
}

void AppTilePainter::paint(QPainter& painter, const DockRowItem& item, const DockSlotFrame& frame, const QRectF& tile,
    const DockPaintContext& context)
{
    const DockRowMetrics& metrics = *context.metrics;
    double dpr = context.devicePixelRatio;
    // One drawing per app at the largest size it is shown at; the resting size is scaled from it.
    const CachedIcon* icon = store_.icon(item.path, std::ceil(std::max(context.largestTile, metrics.iconSize)), dpr);
    if (icon) {
        QImage full = TileRasterQt::image(icon->bitmap);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        if (frame.scale == 1.0) {
            int pixels = static_cast<int>(std::round(metrics.iconSize * dpr));
            Resting& resting = resting_[item.path];
            if (resting.source != icon->bitmap.pixels.data() || resting.image.width() != pixels) {
                resting.source = icon->bitmap.pixels.data();
                resting.image = smoothCopy(full, pixels);
                resting.image.setDevicePixelRatio(dpr);
            }
            painter.drawImage(tile, resting.image);
        } else {
            painter.drawImage(tile, full);
        }
    }
    if (item.running && context.showIndicators)
        paintIndicator(painter, frame, context);
    paintBadge(painter, item.badge, tile);
}

void paintBadge(QPainter& painter, const DockBadge& badge, const QRectF& tile)
{
    double s = tile.width();
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    if (badge.progress) {
        // A bar across the icon's foot: a dark track, filled in light.
        QRectF track(tile.x() + s * 0.1, tile.bottom() - s * 0.2, s * 0.8, std::max(3.0, s * 0.1));
        double radius = track.height() / 2;
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor(20, 22, 26, 210));
        painter.drawRoundedRect(track, radius, radius);
        QRectF done = track.adjusted(1, 1, -1, -1);
        done.setWidth(done.width() * *badge.progress);
        painter.setBrush(QColor(250, 250, 250));
        if (done.width() > 0)
            painter.drawRoundedRect(done, done.height() / 2, done.height() / 2);
    }
    if (badge.count) {
        if (auto text = badgeText(*badge.count)) {
            QFont font = painter.font();
            font.setPixelSize(std::max(8, static_cast<int>(std::round(s * 0.24))));
            font.setBold(true);
            QFontMetricsF metrics(font);
            QString label = QString::fromStdString(*text);
            double height = std::round(s * 0.36);
            double width = std::max(height, std::ceil(metrics.horizontalAdvance(label)) + height * 0.6);
            QRectF pill(tile.right() - width + s * 0.08, tile.top() - s * 0.06, width, height);
            painter.setPen(QPen(QColor(255, 255, 255, 230), std::max(1.0, s * 0.025)));
            painter.setBrush(QColor(0xe5, 0x48, 0x4d));
            painter.drawRoundedRect(pill, height / 2, height / 2);
            painter.setFont(font);
            painter.setPen(Qt::white);
            painter.drawText(pill, Qt::AlignCenter, label);
        }
    }
    painter.restore();
}

QImage SymbolTilePainter::render(int pixels, bool full) const
{
    QString name = symbol_ == Symbol::folder ? QStringLiteral("folder") : full ? QStringLiteral("user-trash-full") : QStringLiteral("user-trash");
    QIcon themed = QIcon::fromTheme(name);
    if (!themed.isNull())
        return themed.pixmap(QSize(pixels, pixels), 1.0).toImage();
    QImage drawn(pixels, pixels, QImage::Format_ARGB32_Premultiplied);
    drawn.fill(Qt::transparent);
    QPainter drawing(&drawn);
    drawing.setRenderHint(QPainter::Antialiasing);
    QRectF box(0, 0, pixels, pixels);
    symbol_ == Symbol::trash ? drawTrash(drawing, box, full) : drawFolder(drawing, box);
    return drawn;
}

void SymbolTilePainter::paint(QPainter& painter, const DockRowItem& item, const DockSlotFrame& frame, const QRectF& tile,
    const DockPaintContext& context)
{
    double dpr = context.devicePixelRatio;
    if (item.full != full_drawn_) {
        full_drawn_ = item.full;
        full_ = QImage();
        resting_ = QImage();
    }
    int largest = std::max(1, static_cast<int>(std::ceil(std::max(context.largestTile, context.metrics->iconSize) * dpr)));
    int restingPixels = std::max(1, static_cast<int>(std::round(context.metrics->iconSize * dpr)));
    if (full_.width() != largest || full_.devicePixelRatio() != dpr) {
        full_ = render(largest, item.full);
        full_.setDevicePixelRatio(dpr);
    }
    if (resting_.width() != restingPixels || resting_.devicePixelRatio() != dpr) {
        resting_ = render(restingPixels, item.full);
        resting_.setDevicePixelRatio(dpr);
    }
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(tile, frame.scale == 1.0 ? resting_ : full_);
}

void DividerPainter::paint(QPainter& painter, const DockRowItem& item, const DockSlotFrame& frame, const QRectF& tile,
    const DockPaintContext& context)
{
    (void)item;
    (void)frame;
    // One device pixel wide, on a pixel boundary, so it stays a crisp hairline at every scale.
    double hairline = 1 / context.devicePixelRatio;
    QRectF line = tile.width() < tile.height()
        ? QRectF(std::round((tile.center().x()) * context.devicePixelRatio) / context.devicePixelRatio, tile.y(), hairline, tile.height())
        : QRectF(tile.x(), std::round((tile.center().y()) * context.devicePixelRatio) / context.devicePixelRatio, tile.width(), hairline);
    painter.fillRect(line, QColor(255, 255, 255, context.translucent ? 110 : 90));
}

std::unique_ptr<DockSlotPainter> makeSlotPainter(DockSlotKind kind, DockStore& store)
{
    switch (kind) {
    case DockSlotKind::app:
        return std::make_unique<AppTilePainter>(store);
    case DockSlotKind::stack:
        return std::make_unique<SymbolTilePainter>(SymbolTilePainter::Symbol::folder);
    case DockSlotKind::trash:
        return std::make_unique<SymbolTilePainter>(SymbolTilePainter::Symbol::trash);
    case DockSlotKind::divider:
        return std::make_unique<DividerPainter>();
    case DockSlotKind::widget:
    case DockSlotKind::widgetPages:
        // Widget tiles bring their own painters.
        return nullptr;
    }
    return nullptr;
}

} // namespace kestrune
