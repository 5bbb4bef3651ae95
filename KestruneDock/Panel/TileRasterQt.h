#pragma once
// Draws application icons for the dock store's cache with Qt: names from the desktop's icon
// theme, files by path (SVG drawn at the very size asked for, so icons are sharp at any scale),
// and a drawn stand-in when neither gives anything.
//
// Main thread only.

#include <QIcon>
#include <QImage>

#include "KestruneDock/Dock/DockStore.h"

namespace kestrune {

class TileRasterQt final : public TileRaster {
public:
    [[nodiscard]] DockIconBitmap render(const DockIconSource& source, double tileSize, double scale) override;

    // The icon a source names; null when the theme and the file system have nothing for it.
    [[nodiscard]] static QIcon icon(const DockIconSource& source);
    // A bitmap as an image that shares its pixels (valid while the bitmap lives).
    [[nodiscard]] static QImage image(const DockIconBitmap& bitmap);
};

} // namespace kestrune
