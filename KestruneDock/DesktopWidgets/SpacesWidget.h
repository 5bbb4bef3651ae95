#pragma once
// OVERVIEW
// The Spaces widget: the window manager's desktops in a row, the current one marked; a click on
// one switches to it, and the card lists each desktop's windows.
//
// Main thread only.

#include "KestruneDock/WidgetViews/WidgetMonitors.h"
#include "KestruneDock/WidgetViews/WidgetTile.h"

namespace kestrune {

class SpacesWidget final : public WidgetTile {
public:
    SpacesWidget(WidgetInstance instance, WidgetMonitors& monitors);
    ~SpacesWidget() override;

    double length(double iconSize) const override;
    void paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const override;
    std::string accessibleText() const override;
    // The desktop under the press becomes the current one.
    bool pressed(QPointF within) override;
    QWidget* makeCard() override;

private:
    void shownChanged() override;

    WidgetMonitors& monitors_;
    uint64_t watch_ = 0;
};

} // namespace kestrune
