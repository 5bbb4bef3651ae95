#pragma once
// The row's painters for widget slots: a widget's tile (the tile draws itself), and the tile that
// follows the shown widgets when they do not all fit: the pages tile (a dot per page, the shown
// one lit) or the stack tile (how many wait behind it).
//
// Main thread only.

#include "KestruneDock/Panel/DockRowPainters.h"

namespace kestrune {

class WidgetRow;

class WidgetSlotPainter final : public DockSlotPainter {
public:
    explicit WidgetSlotPainter(WidgetRow& row) : row_(row) {}
    void paint(QPainter& painter, const DockRowItem& item, const DockSlotFrame& frame, const QRectF& tile,
        const DockPaintContext& context) override;

private:
    WidgetRow& row_;
};

class WidgetPagesPainter final : public DockSlotPainter {
public:
    explicit WidgetPagesPainter(WidgetRow& row) : row_(row) {}
    void paint(QPainter& painter, const DockRowItem& item, const DockSlotFrame& frame, const QRectF& tile,
        const DockPaintContext& context) override;

private:
    WidgetRow& row_;
};

} // namespace kestrune
