#pragma once
// OVERVIEW
// The Countdown widget: the days to a date the user sets ("title" and "date", as 2026-12-25, in
// its options), "Today" on the day and the days since after it; it wakes at midnight.
//
// Main thread only.

#include "KestruneDock/TimeWidgets/TimeTile.h"

namespace kestrune {

class CountdownWidget final : public TimeTile {
public:
    static constexpr std::string_view titleOption = "title";
    static constexpr std::string_view dateOption = "date";

    CountdownWidget(WidgetInstance instance, Runtime& runtime) : TimeTile(std::move(instance), runtime) {}

    [[nodiscard]] WidgetLines lines() const;

    double length(double iconSize) const override;
    void paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const override;
    std::string accessibleText() const override;
    // The title and the date, to change in place.
    QWidget* makeCard() override;

protected:
    Seconds untilChange(Date now) const override { return untilMidnight(now); }
    Seconds tolerance() const override { return Seconds(1); }
};

} // namespace kestrune
