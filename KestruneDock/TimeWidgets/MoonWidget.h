#pragma once
// OVERVIEW
// The Moon widget: tonight's phase drawn as the moon looks from the northern hemisphere, its name
// and how much of it is lit, computed (no network); it wakes on the hour.
//
// Main thread only.

#include "KestruneDock/TimeWidgets/TimeTile.h"

namespace kestrune {

class MoonWidget final : public TimeTile {
public:
    MoonWidget(WidgetInstance instance, Runtime& runtime) : TimeTile(std::move(instance), runtime) {}

    double length(double iconSize) const override;
    void paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const override;
    std::string accessibleText() const override;
    // The phase, its age, and the next new and full moons.
    QWidget* makeCard() override;

protected:
    Seconds untilChange(Date now) const override;
    Seconds tolerance() const override { return Seconds(1); }
};

// The moon `cycle` of the way through its lunation (0 new, 0.5 full), lit on the right while it
// waxes, into the circle `disc`.
void paintMoon(QPainter& painter, const QRectF& disc, double cycle);

} // namespace kestrune
