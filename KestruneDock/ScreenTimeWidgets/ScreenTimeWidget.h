#pragma once
// OVERVIEW
// The Screen Time widget: today's time at the computer; its card lists today's apps with their
// times and the last seven days. Counting goes on while the widget is in the row.
//
// Main thread only.

#include "KestruneDock/WidgetViews/WidgetMonitors.h"
#include "KestruneDock/WidgetViews/WidgetTile.h"

namespace kestrune {

class ScreenTimeWidget final : public LinesTile {
public:
    ScreenTimeWidget(WidgetInstance instance, WidgetMonitors& monitors);
    ~ScreenTimeWidget() override;

    WidgetLines lines() const override;
    QWidget* makeCard() override;

    // "3 h 12 min", "12 min", "Under a minute".
    [[nodiscard]] static QString durationText(double seconds);

private:
    WidgetMonitors& monitors_;
    uint64_t watch_ = 0;
};

} // namespace kestrune
