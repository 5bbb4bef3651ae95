#pragma once
// OVERVIEW
// The Keep Awake widget: on or off, a click turns it over; its card says what it holds. And Lock &
// Sleep: a padlock and a moon side by side, a click on either locks the screen or suspends, both
// through logind.
//
// Main thread only.

#include <memory>

#include "KestruneDock/WidgetViews/WidgetMonitors.h"
#include "KestruneDock/WidgetViews/WidgetTile.h"

namespace kestrune {

class KeepAwakeWidget final : public LinesTile {
public:
    KeepAwakeWidget(WidgetInstance instance, WidgetMonitors& monitors);
    ~KeepAwakeWidget() override;

    WidgetLines lines() const override;
    bool pressed(QPointF within) override;
    QWidget* makeCard() override;

private:
    WidgetMonitors& monitors_;
    uint64_t watch_ = 0;
};

class LockSleepWidget final : public WidgetTile {
public:
    explicit LockSleepWidget(WidgetInstance instance) : WidgetTile(std::move(instance)) {}

    double length(double iconSize) const override { return iconSize * 1.8; }
    void paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const override;
    std::string accessibleText() const override;
    // The left half locks, the right half sleeps.
    bool pressed(QPointF within) override;
    QWidget* makeCard() override;

    // What went wrong last, in a sentence; empty when all went well.
    [[nodiscard]] const QString& failure() const { return failure_; }

private:
    QString failure_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

} // namespace kestrune
