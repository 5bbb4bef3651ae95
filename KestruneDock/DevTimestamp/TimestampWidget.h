#pragma once
// OVERVIEW
// The Timestamp widget's tile: the Unix time now, in seconds, ticking on each second only while
// the tile is shown.
//
// TYPICAL USAGE
//   TimestampWidget tile(instance, runtime);
//   tile.setShown(true);      // ticks from the next whole second
//
// Main thread only.

#include "KestruneDock/WidgetViews/WidgetTile.h"
#include "KestruneKit/Core/Runtime.h"

namespace kestrune {

class TimestampWidget final : public WidgetTile {
public:
    TimestampWidget(WidgetInstance instance, Runtime& runtime) : WidgetTile(std::move(instance)), runtime_(runtime) {}

    double length(double iconSize) const override;
    void paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const override;
    std::string accessibleText() const override;
    // A field that takes a Unix time (seconds or milliseconds) or an ISO 8601 date, and shows it
    // the other ways, in local time and in UTC.
    QWidget* makeCard() override;

    // What the card shows for a text; empty for one it cannot read.
    [[nodiscard]] static QString convert(const QString& input);

    // Whole seconds since 1970 at this moment.
    [[nodiscard]] static long long unixSeconds(Date date);

private:
    void shownChanged() override;
    void tickAtNextSecond();

    Runtime& runtime_;
    TimerHandle tick_;
};

} // namespace kestrune
