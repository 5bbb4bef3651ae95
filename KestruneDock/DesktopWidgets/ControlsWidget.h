#pragma once
// OVERVIEW
// Appearance (light or dark, a click switches), Desktop Icons (shown or hidden, a click
// switches), and Controls: dark mode, Keep Awake, mute, lock and sleep as five buttons on one
// tile, a click on one doing what it says. The desktop's own settings are where they change.
//
// Main thread only.

#include "KestruneDock/WidgetViews/WidgetMonitors.h"
#include "KestruneDock/WidgetViews/WidgetTile.h"

namespace kestrune {

class AppearanceWidget final : public LinesTile {
public:
    AppearanceWidget(WidgetInstance instance, WidgetMonitors& monitors);
    ~AppearanceWidget() override;
    WidgetLines lines() const override;
    bool pressed(QPointF within) override;

private:
    WidgetMonitors& monitors_;
    uint64_t watch_ = 0;
};

class DesktopIconsWidget final : public LinesTile {
public:
    DesktopIconsWidget(WidgetInstance instance, WidgetMonitors& monitors);
    ~DesktopIconsWidget() override;
    WidgetLines lines() const override;
    bool pressed(QPointF within) override;

private:
    WidgetMonitors& monitors_;
    uint64_t watch_ = 0;
};

class ControlsWidget final : public WidgetTile {
public:
    enum class Control { dark, keepAwake, mute, lock, sleep };
    static constexpr int controls = 5;

    ControlsWidget(WidgetInstance instance, WidgetMonitors& monitors);
    ~ControlsWidget() override;

    double length(double iconSize) const override;
    void paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const override;
    std::string accessibleText() const override;
    bool pressed(QPointF within) override;
    QWidget* makeCard() override;

    [[nodiscard]] bool isOn(Control control) const;
    void press(Control control);

private:
    void shownChanged() override;

    WidgetMonitors& monitors_;
    std::vector<uint64_t> watches_;
};

} // namespace kestrune
