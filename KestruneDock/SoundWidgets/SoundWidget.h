#pragma once
// OVERVIEW
// The Sound widget: the output's volume with a speaker, a click mutes, the wheel turns it up and
// down; the card has the slider and the outputs to switch to. And Mic & Camera: a microphone and
// a camera that light while a program records or films; a click mutes the microphone. Both follow
// the sound server (and the cameras' device files) only while shown or their card is open.
//
// Main thread only.

#include "KestruneDock/WidgetViews/WidgetMonitors.h"
#include "KestruneDock/WidgetViews/WidgetTile.h"

namespace kestrune {

class SoundWidget final : public WidgetTile {
public:
    static constexpr double step = 0.05;

    SoundWidget(WidgetInstance instance, WidgetMonitors& monitors);
    ~SoundWidget() override;

    double length(double iconSize) const override;
    void paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const override;
    std::string accessibleText() const override;
    bool pressed(QPointF within) override;
    bool scrolled(double steps) override;
    QWidget* makeCard() override;

private:
    void shownChanged() override;

    WidgetMonitors& monitors_;
    uint64_t watch_ = 0;
};

class MicCameraWidget final : public WidgetTile {
public:
    MicCameraWidget(WidgetInstance instance, WidgetMonitors& monitors);
    ~MicCameraWidget() override;

    double length(double iconSize) const override { return iconSize * 1.7; }
    void paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const override;
    std::string accessibleText() const override;
    bool pressed(QPointF within) override;
    QWidget* makeCard() override;

private:
    void shownChanged() override;

    WidgetMonitors& monitors_;
    uint64_t soundWatch_ = 0;
    uint64_t cameraWatch_ = 0;
};

} // namespace kestrune
