#pragma once
// Pictures of widget tiles and cards, saved under build/screens/widgets/ to be looked at.
//
//   test::saveTileImages(tile, "battery-ring");   // at 16 and 96 points, 1× and 2×
//   test::saveCardImages(*card, "card-clock");

#include <cmath>
#include <filesystem>
#include <string>

#include <QImage>
#include <QPainter>
#include <QWidget>

#include "KestruneDock/WidgetViews/WidgetTile.h"

namespace kestrune::test {

inline const QColor barColour(0x2b, 0x2b, 0x30);

inline void saveWidgetImage(const QImage& image, const std::string& name)
{
    std::filesystem::create_directories(std::string(KESTRUNE_SCREENS) + "/widgets");
    image.save(QString::fromStdString(std::string(KESTRUNE_SCREENS) + "/widgets/" + name + ".png"));
}

inline void saveTileImages(const WidgetTile& tile, const std::string& name)
{
    for (double size : { 16.0, 96.0 }) {
        for (int scale : { 1, 2 }) {
            double length = tile.length(size);
            QImage image(QSize(static_cast<int>(std::ceil(length)) * scale, static_cast<int>(size) * scale), QImage::Format_ARGB32_Premultiplied);
            image.setDevicePixelRatio(scale);
            image.fill(barColour);
            QPainter painter(&image);
            tile.paint(painter, QRectF(0, 0, length, size), WidgetPaintContext { double(scale), false });
            painter.end();
            saveWidgetImage(image, name + "-" + std::to_string(int(size)) + "-" + std::to_string(scale) + "x");
        }
    }
}

inline void saveCardImages(QWidget& card, const std::string& name, int width = 420)
{
    card.resize(width, card.sizeHint().height());
    for (int scale : { 1, 2 }) {
        QImage image(card.size() * scale, QImage::Format_ARGB32_Premultiplied);
        image.setDevicePixelRatio(scale);
        image.fill(Qt::white);
        card.render(&image);
        saveWidgetImage(image, name + "-" + std::to_string(scale) + "x");
    }
}

} // namespace kestrune::test
