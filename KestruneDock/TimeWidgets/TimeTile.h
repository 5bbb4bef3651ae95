#pragma once
// OVERVIEW
// The base of the tiles that show the time or the calendar: shown, a tile draws now and wakes
// again only when what it shows will differ (the next minute, second, midnight or percent);
// hidden, it holds no timer at all.
//
// TYPICAL USAGE
//   class MoonWidget final : public TimeTile {
//       Seconds untilChange(Date now) const override { return untilNextHour(now); }
//   };
//
// Main thread only.

#include <QDateTime>

#include "KestruneDock/WidgetViews/WidgetTile.h"
#include "KestruneKit/Calendar/CivilTime.h"
#include "KestruneKit/Core/Runtime.h"

namespace kestrune {

class TimeTile : public WidgetTile {
public:
    TimeTile(WidgetInstance instance, Runtime& runtime) : WidgetTile(std::move(instance)), runtime_(runtime) {}

    void setInstance(WidgetInstance instance) override;

    // The option's value, or `fallback` when it is not set.
    [[nodiscard]] std::string option(std::string_view key, std::string_view fallback = {}) const;

protected:
    // How long from `now` until the tile looks different.
    [[nodiscard]] virtual Seconds untilChange(Date now) const = 0;
    // How late a wake may come: none for a clock, more for a figure that moves slowly.
    [[nodiscard]] virtual Seconds tolerance() const { return Seconds(0); }

    [[nodiscard]] QDateTime localNow() const;

    Runtime& runtime_;

private:
    void shownChanged() override;
    void armNext();

    TimerHandle tick_;
};

// The option's value in `instance`, or `fallback` when it is not set.
[[nodiscard]] std::string widgetOption(const WidgetInstance& instance, std::string_view key, std::string_view fallback = {});
// The time in the local zone for the calendar sums.
[[nodiscard]] CivilTime civilTime(const QDateTime& time);
[[nodiscard]] QDateTime localDateTime(Date moment);
// Until the next whole second or minute of `moment`.
[[nodiscard]] Seconds untilNextSecond(Date moment);
[[nodiscard]] Seconds untilNextMinute(Date moment);
// Until the next local midnight (the clocks' changes included).
[[nodiscard]] Seconds untilMidnight(Date moment);

} // namespace kestrune
