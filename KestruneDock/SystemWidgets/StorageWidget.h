#pragma once
// OVERVIEW
// The Storage widget: the free space on the disk that holds the system, over a bar of what is
// used, read every minute while shown. Its card lists every real file system with its space,
// and an Eject button beside each removable drive, which asks UDisks2 (what the desktop's own
// file manager uses) to unmount it and eject or power off its drive.
//
// Main thread only.

#include <functional>

#include <QDBusConnection>

#include "KestruneDock/WidgetViews/WidgetMonitors.h"
#include "KestruneDock/WidgetViews/WidgetTile.h"

namespace kestrune {

struct StorageVolume;

class StorageWidget final : public LinesTile {
public:
    StorageWidget(WidgetInstance instance, WidgetMonitors& monitors);
    ~StorageWidget() override;

    WidgetLines lines() const override;
    void paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const override;
    QWidget* makeCard() override;

private:
    void shownChanged() override;
    [[nodiscard]] const StorageVolume* shownVolume() const;

    WidgetMonitors& monitors_;
    uint64_t watch_ = 0;
};

// Unmounts the file system on `device` ("/dev/sdb1") and ejects its drive (or powers it off, as
// a USB disk wants), all through UDisks2 without blocking; `done` gets an empty text on success,
// or what went wrong in a sentence.
void ejectDrive(const QDBusConnection& bus, const QString& device, std::function<void(const QString& failure)> done);

} // namespace kestrune
