#pragma once
// OVERVIEW
// The Activity widget: processor (by core kind where the machine has two), memory coloured by
// its pressure, and graphics, as bars or rings, every two seconds while shown. Its card adds each
// core's recent history, swap, the network, and the processes using the most processor and
// memory now (read from /proc only while the card is open).
//
// Main thread only.

#include "KestruneDock/SystemWidgets/SystemStatsTile.h"

namespace kestrune {

class ActivityWidget final : public SystemStatsTile {
public:
    ActivityWidget(WidgetInstance instance, WidgetMonitors& monitors);

    // What the tile shows, one gauge each: "CPU" (or "P" and "E"), "MEM", "GPU" where there is one.
    struct Gauge {
        QString label;
        double fraction = 0;
        QColor colour;
    };
    [[nodiscard]] static std::vector<Gauge> gauges(const SystemStatsReading& reading);

    double length(double iconSize) const override;
    void paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const override;
    std::string accessibleText() const override;
    QWidget* makeCard() override;

private:
    [[nodiscard]] bool rings() const { return instance_.style == "rings"; }
};

} // namespace kestrune
