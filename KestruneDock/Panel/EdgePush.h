#pragma once
// OVERVIEW
// A push against a stretch of a screen's edge: an invisible strip there takes the pointer, and a
// DockEdgeDwell tells a hand pushing against the edge from a pointer passing by. What a hidden
// dock listens with, and what calls the dock to another screen.
//
// TYPICAL USAGE
//   EdgePush push(runtime, [this] { reveal(); });
//   push.place(strip, screen->devicePixelRatio(), DockEdge::bottom);
//   push.remove();                       // nothing listens until placed again
//
// Main thread only.

#include <functional>
#include <memory>

#include <QRectF>

#include "KestruneDock/Dock/DockEdge.h"
#include "KestruneDock/Dock/DockEdgeDwell.h"
#include "KestruneDock/Panel/DockWindow.h"
#include "KestruneKit/Core/Runtime.h"

namespace kestrune {

class EdgePush {
public:
    EdgePush(Runtime& runtime, std::function<void()> pushed) : runtime_(runtime), pushed_(std::move(pushed)) {}

    // `strip` in the desktop's logical pixels, `scale` its screen's device pixel ratio.
    void place(const QRectF& strip, double scale, DockEdge edge);
    void remove();

private:
    void moved(QPointF global);

    Runtime& runtime_;
    std::function<void()> pushed_;
    std::unique_ptr<dockwindow::EdgeTrigger> trigger_;
    DockEdgeDwell dwell_;
    TimerHandle dwellTimer_;
    QRectF strip_;
    DockEdge edge_ = DockEdge::bottom;
};

} // namespace kestrune
