#include "KestruneDock/Dock/DockPanelPlacement.h"

#include <algorithm>
#include <cmath>

namespace kestrune {

namespace {

// The part of `rect` inside `bounds`.
DockScreenRect clipped(const DockScreenRect& rect, const DockScreenRect& bounds)
{
    double x = std::max(rect.x, bounds.x);
    double y = std::max(rect.y, bounds.y);
    double right = std::min(rect.right(), bounds.right());
    double bottom = std::min(rect.bottom(), bounds.bottom());
    return { x, y, std::max(0.0, right - x), std::max(0.0, bottom - y) };
}

uint32_t pixels(double value, double scale)
{
    return static_cast<uint32_t>(std::max(0.0, std::round(value * scale)));
}

} // namespace

DockScreenRect DockPanelPlacement::window(DockPanelRaise raise) const
{
    double along = raise == DockPanelRaise::raised ? length + 2 * spread : length;
    double depth = raise == DockPanelRaise::raised ? std::max(raisedDepth, thickness) : thickness;
    // Whole pixels, so that the bar's edges are sharp and the resting window is the same at rest
    // and at the raised window's base.
    along = std::round(along);
    depth = std::round(depth);
    DockScreenRect rect;
    switch (edge) {
    case DockEdge::bottom:
        rect = { std::round(screen.x + (screen.width - along) / 2), screen.bottom() - depth, along, depth };
        break;
    case DockEdge::left:
        rect = { screen.x, std::round(screen.y + (screen.height - along) / 2), depth, along };
        break;
    case DockEdge::right:
        rect = { screen.right() - depth, std::round(screen.y + (screen.height - along) / 2), depth, along };
        break;
    }
    return clipped(rect, screen);
}

DockScreenRect DockPanelPlacement::edgeStrip(double depth) const
{
    DockScreenRect resting = window(DockPanelRaise::resting);
    switch (edge) {
    case DockEdge::bottom:
        return { resting.x, resting.bottom() - depth, resting.width, depth };
    case DockEdge::left:
        return { resting.x, resting.y, depth, resting.height };
    case DockEdge::right:
        return { resting.right() - depth, resting.y, depth, resting.height };
    }
    return resting;
}

DockScreenRect DockPanelPlacement::screenEdge(const DockScreenRect& screen, DockEdge edge, double depth)
{
    switch (edge) {
    case DockEdge::bottom:
        return { screen.x, screen.bottom() - depth, screen.width, depth };
    case DockEdge::left:
        return { screen.x, screen.y, depth, screen.height };
    case DockEdge::right:
        return { screen.right() - depth, screen.y, depth, screen.height };
    }
    return screen;
}

std::pair<double, double> DockPanelPlacement::toWindow(const DockScreenRect& window, double axis, double depth) const
{
    // The resting bar's start in desktop coordinates anchors the axis for both window sizes.
    DockScreenRect resting = this->window(DockPanelRaise::resting);
    switch (edge) {
    case DockEdge::bottom:
        return { resting.x + axis - window.x, window.height - depth };
    case DockEdge::left:
        return { depth, resting.y + axis - window.y };
    case DockEdge::right:
        return { window.width - depth, resting.y + axis - window.y };
    }
    return { 0, 0 };
}

std::pair<double, double> DockPanelPlacement::toRow(const DockScreenRect& window, double x, double y) const
{
    DockScreenRect resting = this->window(DockPanelRaise::resting);
    switch (edge) {
    case DockEdge::bottom:
        return { window.x + x - resting.x, window.height - y };
    case DockEdge::left:
        return { window.y + y - resting.y, x };
    case DockEdge::right:
        return { window.y + y - resting.y, window.width - x };
    }
    return { 0, 0 };
}

DockScreenRect DockPanelPlacement::toWindow(const DockScreenRect& window, const DockRowRect& rect) const
{
    auto [x1, y1] = toWindow(window, rect.axis, rect.depth);
    auto [x2, y2] = toWindow(window, rect.axisEnd(), rect.depthEnd());
    return { std::min(x1, x2), std::min(y1, y2), std::abs(x2 - x1), std::abs(y2 - y1) };
}

std::array<uint32_t, 12> DockPanelPlacement::strut(double scale) const
{
    // Struts count from the edges of the whole X screen, which may hold several monitors; only the
    // resting bar's stretch of the edge is reserved.
    DockScreenRect bar = window(DockPanelRaise::resting);
    std::array<uint32_t, 12> values {};
    switch (edge) {
    case DockEdge::left:
        values[0] = pixels(bar.right() - desktop.x, scale);
        values[4] = pixels(bar.y, scale);
        values[5] = pixels(bar.bottom(), scale) - 1;
        break;
    case DockEdge::right:
        values[1] = pixels(desktop.right() - bar.x, scale);
        values[6] = pixels(bar.y, scale);
        values[7] = pixels(bar.bottom(), scale) - 1;
        break;
    case DockEdge::bottom:
        values[3] = pixels(desktop.bottom() - bar.y, scale);
        values[10] = pixels(bar.x, scale);
        values[11] = pixels(bar.right(), scale) - 1;
        break;
    }
    return values;
}

} // namespace kestrune
