#pragma once
// Where the dock's window stands on its screen, and how the row's coordinates (axis along the
// dock, depth from the edge) become the window's pixels and back, for each edge.
//
// The window has two sizes. At rest it is exactly the resting bar, so that it covers nothing but
// the bar: window managers frame a dock window and pass clicks on the frame's empty parts to
// nobody, so the zone above the bar must not be part of the window while the pointer is away.
// While the pointer is on the dock it is raised: as long as the row's spread allows at both ends
// and as deep as a magnified tile with its label, still inside the screen.
//
//   DockPanelPlacement placement { screen, root, DockEdge::bottom, layout.restingLength(),
//                                  layout.metrics().thickness(), layout.spread(), layout.raisedDepth() };
//   DockScreenRect window = placement.window(DockPanelRaise::raised);
//   auto [x, y] = placement.toWindow(window, frame.tile.axis, frame.tile.depth);

#include <array>
#include <cstdint>
#include <utility>

#include "KestruneDock/Dock/DockEdge.h"
#include "KestruneDock/Dock/DockRowLayout.h"

namespace kestrune {

// A rectangle in the desktop's coordinates (device-independent pixels), x to the right, y down.
struct DockScreenRect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    [[nodiscard]] double right() const { return x + width; }
    [[nodiscard]] double bottom() const { return y + height; }
    [[nodiscard]] bool overlaps(const DockScreenRect& other) const
    {
        return x < other.right() && other.x < right() && y < other.bottom() && other.y < bottom();
    }
    bool operator==(const DockScreenRect&) const = default;
};

enum class DockPanelRaise : uint8_t { resting, raised };

struct DockPanelPlacement {
    // The screen the dock is on, and the whole desktop (every screen) that struts are measured in.
    DockScreenRect screen;
    DockScreenRect desktop;
    DockEdge edge = DockEdge::bottom;
    double length = 0;
    double thickness = 0;
    double spread = 0;
    double raisedDepth = 0;

    // The window in desktop coordinates: centred along its edge; the raised one clipped to the screen.
    [[nodiscard]] DockScreenRect window(DockPanelRaise raise) const;

    // Where a hidden dock is called back: the edge's outermost `depth` pixels along the resting bar.
    [[nodiscard]] DockScreenRect edgeStrip(double depth = 1) const;
    // The whole length of a screen's edge, `depth` deep: where a push calls the dock to that screen.
    [[nodiscard]] static DockScreenRect screenEdge(const DockScreenRect& screen, DockEdge edge, double depth = 1);

    // A row point in a window placed at `window`, and back.
    [[nodiscard]] std::pair<double, double> toWindow(const DockScreenRect& window, double axis, double depth) const;
    [[nodiscard]] std::pair<double, double> toRow(const DockScreenRect& window, double x, double y) const;
    // A row rectangle in window coordinates: x, y, width, height.
    [[nodiscard]] DockScreenRect toWindow(const DockScreenRect& window, const DockRowRect& rect) const;

    // _NET_WM_STRUT_PARTIAL for the resting bar, in device pixels of the X screen (`scale` is the
    // device pixel ratio): left, right, top, bottom, then the start and end of each along its edge.
    [[nodiscard]] std::array<uint32_t, 12> strut(double scale) const;
};

} // namespace kestrune
