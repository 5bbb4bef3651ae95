#pragma once
// OVERVIEW
// The Progress widget: how much of the year, month, week or day is gone (its face says which),
// in whole percent over a bar, waking only when the percent moves on.
//
// Main thread only.

#include "KestruneDock/TimeWidgets/TimeTile.h"
#include "KestruneKit/Calendar/TimeProgress.h"

namespace kestrune {

class ProgressWidget final : public TimeTile {
public:
    ProgressWidget(WidgetInstance instance, Runtime& runtime) : TimeTile(std::move(instance), runtime) {}

    [[nodiscard]] ProgressSpan span() const;
    // "2026", "November", "Week 48", "Today" for the moment given.
    [[nodiscard]] static QString caption(ProgressSpan span, const QDateTime& now);

    double length(double iconSize) const override;
    void paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const override;
    std::string accessibleText() const override;
    // All four spans, each with its bar.
    QWidget* makeCard() override;

protected:
    Seconds untilChange(Date now) const override;
    Seconds tolerance() const override { return Seconds(1); }
};

// The whole percent of `span` gone at `now`, for weeks that start on the locale's first day.
[[nodiscard]] int percentGone(ProgressSpan span, const QDateTime& now);

} // namespace kestrune
