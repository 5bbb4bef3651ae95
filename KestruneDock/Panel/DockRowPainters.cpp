#include "KestruneDock/Panel/DockRowPainters.h"

#include <algorithm>
#include <array>
#include <cmath>

#include <QAbstractFileIconProvider>
#include <QFileInfo>
#include <QFontMetricsF>
#include <QImageReader>
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

void drawPage(QPainter& painter, const QRectF& box)
{
    double s = box.width();
    double fold = s * 0.2;
    QRectF sheet(box.x() + s * 0.18, box.y() + s * 0.08, s * 0.64, s * 0.84);
    QPainterPath outline;
    outline.moveTo(sheet.topLeft());
    outline.lineTo(sheet.right() - fold, sheet.top());
    outline.lineTo(sheet.right(), sheet.top() + fold);
    outline.lineTo(sheet.bottomRight());
    outline.lineTo(sheet.bottomLeft());
    outline.closeSubpath();
    painter.setPen(QPen(QColor(0x9a, 0xa2, 0xab), std::max(1.0, s * 0.02)));
    painter.setBrush(QColor(0xfb, 0xfb, 0xfa));
    painter.drawPath(outline);
    QPainterPath corner;
    corner.moveTo(sheet.right() - fold, sheet.top());
    corner.lineTo(sheet.right() - fold, sheet.top() + fold);
    corner.lineTo(sheet.right(), sheet.top() + fold);
    painter.setBrush(QColor(0xdf, 0xe3, 0xe7));
    painter.drawPath(corner);
    painter.setPen(QPen(QColor(0xc4, 0xca, 0xd0), std::max(1.0, s * 0.02)));
    for (double line = 0.4; line < 0.85; line += 0.12)
        painter.drawLine(QPointF(sheet.left() + s * 0.1, box.y() + s * line), QPointF(sheet.right() - s * 0.1, box.y() + s * line));
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

// How one item of a pile looks: a picture as a small white-edged print of itself, anything else as
// its kind's icon, or a plain page where the theme has none.
QImage itemFace(const std::string& path, int pixels)
{
    QFileInfo info(QString::fromStdString(path));
    constexpr qint64 largestPicture = 64LL << 20;
    QImageReader reader(info.absoluteFilePath());
    if (info.isFile() && info.size() <= largestPicture && reader.canRead() && reader.size().isValid()) {
        int border = std::max(1, pixels / 20);
        QSize inside = reader.size().scaled(QSize(pixels - 2 * border, pixels - 2 * border), Qt::KeepAspectRatio);
        reader.setScaledSize(inside.expandedTo(QSize(1, 1)));
        QImage picture = reader.read();
        if (!picture.isNull()) {
            QImage print(picture.width() + 2 * border, picture.height() + 2 * border, QImage::Format_ARGB32_Premultiplied);
            print.fill(QColor(250, 250, 248));
            QPainter onto(&print);
            onto.drawImage(border, border, picture);
            onto.setPen(QColor(0, 0, 0, 60));
            onto.drawRect(QRectF(0.5, 0.5, print.width() - 1, print.height() - 1));
            return print;
        }
    }
    QIcon icon = QAbstractFileIconProvider().icon(info);
    if (!icon.isNull() && !icon.availableSizes().isEmpty())
        return icon.pixmap(QSize(pixels, pixels), 1.0).toImage();
    QImage page(pixels, pixels, QImage::Format_ARGB32_Premultiplied);
    page.fill(Qt::transparent);
    QPainter drawing(&page);
    drawing.setRenderHint(QPainter::Antialiasing);
    drawPage(drawing, QRectF(0, 0, pixels, pixels));
    return page;
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

const QImage& TwoSizes::pick(const DockSlotFrame& frame, const DockPaintContext& context, const std::function<QImage(int)>& render)
{
    double dpr = context.devicePixelRatio;
    bool atRest = frame.scale == 1.0;
    double size = atRest ? context.metrics->iconSize : std::max(context.largestTile, context.metrics->iconSize);
    int pixels = std::max(1, static_cast<int>(atRest ? std::round(size * dpr) : std::ceil(size * dpr)));
    QImage& image = atRest ? resting : full;
    if (image.width() != pixels || image.devicePixelRatio() != dpr) {
        image = render(pixels);
        image.setDevicePixelRatio(dpr);
    }
    return image;
}

void SymbolTilePainter::paint(QPainter& painter, const DockRowItem& item, const DockSlotFrame& frame, const QRectF& tile,
    const DockPaintContext& context)
{
    if (item.full != full_drawn_) {
        full_drawn_ = item.full;
        images_.clear();
    }
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(tile, images_.pick(frame, context, [&](int pixels) { return render(pixels, item.full); }));
}

void StackTilePainter::paint(QPainter& painter, const DockRowItem& item, const DockSlotFrame& frame, const QRectF& tile,
    const DockPaintContext& context)
{
    if (item.fanned.empty()) {
        piles_.erase(item.path);
        folder_.paint(painter, item, frame, tile, context);
        return;
    }
    Pile& pile = piles_[item.path];
    if (pile.items != item.fanned) {
        pile.items = item.fanned;
        pile.images.clear();
    }
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(tile, pile.images.pick(frame, context, [&](int pixels) { return renderPile(pile.items, pixels); }));
}

QImage StackTilePainter::renderPile(const std::vector<std::string>& items, int pixels)
{
    QImage pile(pixels, pixels, QImage::Format_ARGB32_Premultiplied);
    pile.fill(Qt::transparent);
    QPainter drawing(&pile);
    drawing.setRenderHints(QPainter::Antialiasing | QPainter::SmoothPixmapTransform);
    double card = pixels * 0.74;
    // The newest lies straight on top; the older ones turn out a little to either side.
    constexpr std::array<double, 3> turns { 0, -10, 9 };
    for (size_t index = std::min(items.size(), turns.size()); index-- > 0;) {
        QImage face = itemFace(items[index], static_cast<int>(std::round(card)));
        if (face.isNull())
            continue;
        drawing.save();
        drawing.translate(pixels / 2.0, pixels - card / 2 - pixels * 0.06);
        drawing.rotate(turns[index]);
        QRectF at(-face.width() / 2.0, -face.height() / 2.0, face.width(), face.height());
        drawing.drawImage(at, face);
        drawing.restore();
    }
    return pile;
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
        return std::make_unique<StackTilePainter>();
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
