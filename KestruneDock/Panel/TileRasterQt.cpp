#include "KestruneDock/Panel/TileRasterQt.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include <QFileInfo>
#include <QPainter>
#include <QPainterPath>
#include <QStringList>
#include <QUrl>

namespace kestrune {

namespace {

// g_icon_to_string's forms: an absolute path or file URL for a file icon, a bare name for a
// themed icon with one name, ". GThemedIcon a b c" for one with fallbacks.
QIcon iconFromString(const QString& text)
{
    if (text.startsWith(u'/'))
        return QFileInfo(text).isFile() ? QIcon(text) : QIcon();
    if (text.startsWith(u"file://"))
        return iconFromString(QUrl(text).toLocalFile());
    QStringList names;
    if (text.startsWith(u". GThemedIcon "))
        names = text.mid(14).split(u' ', Qt::SkipEmptyParts);
    else if (!text.startsWith(u'.'))
        names = { text };
    for (const QString& name : names) {
        QIcon icon = QIcon::fromTheme(name);
        if (!icon.isNull())
            return icon;
    }
    return {};
}

// The last resort: a rounded square with a question mark, never an empty tile.
void drawStandIn(QPainter& painter, double size)
{
    painter.setRenderHint(QPainter::Antialiasing);
    QRectF square(size * 0.08, size * 0.08, size * 0.84, size * 0.84);
    QPainterPath path;
    path.addRoundedRect(square, size * 0.2, size * 0.2);
    QLinearGradient fill(square.topLeft(), square.bottomLeft());
    fill.setColorAt(0, QColor(0x9a, 0xa3, 0xad));
    fill.setColorAt(1, QColor(0x6b, 0x74, 0x7e));
    painter.fillPath(path, fill);
    QFont font = painter.font();
    font.setPixelSize(std::max(6, static_cast<int>(size * 0.55)));
    font.setBold(true);
    painter.setFont(font);
    painter.setPen(Qt::white);
    painter.drawText(square, Qt::AlignCenter, QStringLiteral("?"));
}

} // namespace

QIcon TileRasterQt::icon(const DockIconSource& source)
{
    QIcon icon = iconFromString(QString::fromStdString(source.name));
    if (icon.isNull() && !source.generic)
        icon = QIcon::fromTheme(QString::fromUtf8(DockStore::genericIconName.data(),
            static_cast<qsizetype>(DockStore::genericIconName.size())));
    return icon;
}

DockIconBitmap TileRasterQt::render(const DockIconSource& source, double tileSize, double scale)
{
    int pixels = std::max(1, static_cast<int>(std::ceil(tileSize * scale)));
    QImage canvas(pixels, pixels, QImage::Format_ARGB32_Premultiplied);
    canvas.fill(Qt::transparent);
    {
        QPainter painter(&canvas);
        QIcon drawn = icon(source);
        if (drawn.isNull()) {
            drawStandIn(painter, pixels);
        } else {
            // Asked at the exact pixel size, a theme picks its nearest bitmap or draws its SVG
            // there; a smaller bitmap is scaled up smoothly rather than left small.
            QPixmap pixmap = drawn.pixmap(QSize(pixels, pixels), 1.0);
            painter.setRenderHint(QPainter::SmoothPixmapTransform);
            QSizeF fitted = QSizeF(pixmap.size()).scaled(QSizeF(pixels, pixels), Qt::KeepAspectRatio);
            QRectF target((pixels - fitted.width()) / 2, (pixels - fitted.height()) / 2, fitted.width(), fitted.height());
            painter.drawPixmap(target, pixmap, QRectF(pixmap.rect()));
        }
    }
    DockIconBitmap bitmap;
    bitmap.width = pixels;
    bitmap.height = pixels;
    bitmap.scale = scale;
    bitmap.pixels.resize(static_cast<size_t>(pixels) * static_cast<size_t>(pixels));
    for (int row = 0; row < pixels; ++row)
        std::memcpy(bitmap.pixels.data() + static_cast<size_t>(row) * static_cast<size_t>(pixels), canvas.constScanLine(row),
            static_cast<size_t>(pixels) * sizeof(uint32_t));
    return bitmap;
}

QImage TileRasterQt::image(const DockIconBitmap& bitmap)
{
    if (bitmap.pixels.empty())
        return {};
    QImage image(reinterpret_cast<const uchar*>(bitmap.pixels.data()), bitmap.width, bitmap.height,
        bitmap.width * static_cast<qsizetype>(sizeof(uint32_t)), QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(bitmap.scale);
    return image;
}

} // namespace kestrune
