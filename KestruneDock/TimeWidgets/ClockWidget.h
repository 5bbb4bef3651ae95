#pragma once
// OVERVIEW
// The Clock widget: the time in one of eleven faces (digital, analog, stacked, flip, date, world,
// words, ring, poster, daylight, week), with options for seconds, the 24-hour clock and the
// world face's zones (IANA names). It wakes on the second when it shows seconds, on the minute
// otherwise, at midnight for the faces that show only the day, and never while hidden.
//
// TYPICAL USAGE
//   ClockWidget tile(instance, runtime);
//   tile.setShown(true);
//   tile.paint(painter, rect, context);
//
// Main thread only.

#include <optional>
#include <string_view>
#include <vector>

#include <QTimeZone>

#include "KestruneDock/TimeWidgets/TimeTile.h"
#include "KestruneKit/Sky/SunTimes.h"

namespace kestrune {

enum class ClockFace { digital, analog, stacked, flip, date, world, words, ring, poster, daylight, week };

[[nodiscard]] std::string_view toString(ClockFace face);
[[nodiscard]] std::optional<ClockFace> clockFaceFromString(std::string_view raw);

struct ClockSettings {
    bool seconds = false;
    bool hours24 = true;
    // The world face's zones, in the order given.
    std::vector<QTimeZone> zones;
    // Where the daylight face's sun rises and sets; none when the local zone has no place.
    std::optional<GeoLocation> place;
    // 0 Monday … 6 Sunday.
    int firstWeekday = 0;
};

// Painting and measuring one face for a moment; the tile and the tests use them alike.
[[nodiscard]] double clockFaceLength(ClockFace face, double iconSize, const ClockSettings& settings);
void paintClockFace(ClockFace face, QPainter& painter, const QRectF& tile, const ClockSettings& settings, const QDateTime& now);
[[nodiscard]] QString clockFaceText(ClockFace face, const ClockSettings& settings, const QDateTime& now);

class ClockWidget final : public TimeTile {
public:
    static constexpr std::string_view secondsOption = "seconds";
    static constexpr std::string_view hours24Option = "hours24";
    static constexpr std::string_view zonesOption = "zones";

    ClockWidget(WidgetInstance instance, Runtime& runtime) : TimeTile(std::move(instance), runtime) {}

    [[nodiscard]] ClockFace face() const;
    [[nodiscard]] ClockSettings settings() const { return settingsOf(instance_); }
    [[nodiscard]] static ClockSettings settingsOf(const WidgetInstance& instance);

    double length(double iconSize) const override;
    void paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const override;
    std::string accessibleText() const override;
    // A large dial ticking on the second, the whole date, the week, sunrise and sunset, and the
    // world face's zones.
    QWidget* makeCard() override;

    // The zones a "zones" option names, the unknown ones left out.
    [[nodiscard]] static std::vector<QTimeZone> zonesNamed(std::string_view option);
    // The local zone's place in the zone table, looked up once.
    [[nodiscard]] static std::optional<GeoLocation> localPlace();

protected:
    Seconds untilChange(Date now) const override;
};

} // namespace kestrune
