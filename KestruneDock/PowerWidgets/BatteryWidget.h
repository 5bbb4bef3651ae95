#pragma once
// OVERVIEW
// The Battery widget in its seven faces (Standard ring, Classic, Capsule, Numeral, Time Left,
// Power, Dots): the machine's battery and whether it charges, or on a desktop machine "No
// battery", or the accessory that is lowest; the card lists every battery, accessories' too.
//
// Main thread only.

#include "KestruneDock/PowerWidgets/BatteryMonitor.h"
#include "KestruneDock/WidgetViews/WidgetMonitors.h"
#include "KestruneDock/WidgetViews/WidgetTile.h"

namespace kestrune {

enum class BatteryFace { ring, classic, capsule, numeral, timeLeft, power, dots };
[[nodiscard]] std::optional<BatteryFace> batteryFaceFromString(std::string_view raw);

// What a battery face shows, taken from a reading.
struct BatteryShown {
    // None: nothing to show a level for (no battery and no accessory, or a problem).
    std::optional<BatteryDevice> device;
    QString caption;   // "Battery", "Mouse", "No battery" …
    QString status;    // "Charging", "2:41 left", "On power adapter" …
    bool onBattery = false;
};
[[nodiscard]] BatteryShown batteryShown(const BatteryReading& reading);
// "2:41" for a number of seconds; empty for none.
[[nodiscard]] QString hoursAndMinutesLeft(int64_t seconds);

[[nodiscard]] double batteryFaceLength(BatteryFace face, double iconSize, const BatteryReading& reading);
void paintBatteryFace(BatteryFace face, QPainter& painter, const QRectF& tile, const BatteryReading& reading);

class BatteryWidget final : public WidgetTile {
public:
    BatteryWidget(WidgetInstance instance, WidgetMonitors& monitors);
    ~BatteryWidget() override;

    double length(double iconSize) const override;
    void paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const override;
    std::string accessibleText() const override;
    QWidget* makeCard() override;

private:
    void shownChanged() override;
    [[nodiscard]] BatteryFace face() const;

    WidgetMonitors& monitors_;
    uint64_t watch_ = 0;
};

} // namespace kestrune
