#pragma once
// OVERVIEW
// The dock row's geometry: where each slot sits along the dock, at rest and under the pointer's
// magnification, how long the bar is, how far the row may spread and rise while the pointer is on
// it, and which slot a point hits. The panel only paints what this computes.
//
// Two coordinates, whatever the edge: `axis` runs along the dock (left to right on the bottom
// edge, top to bottom on a side edge) with 0 at the resting bar's start, and `depth` runs from the
// screen edge inward with 0 on the edge. The panel turns them into window pixels.
//
// TYPICAL USAGE
//   DockRowLayout layout;
//   layout.setPreferences(DockPreferences::read(preferences));
//   layout.setSlots({ { DockSlotKind::app }, { DockSlotKind::divider }, { DockSlotKind::trash } });
//   layout.setPointer(axisPosition);              // std::nullopt when the pointer leaves
//   for (const DockSlotFrame& frame : layout.frames()) paint(frame);
//
// Magnification works on the resting centres, so a tile's growth never feeds back into the
// distances it was computed from. Growth is anchored at the pointer: whatever grows before it
// pushes the row's start outward and whatever grows after it pushes the end outward, so the
// point under the pointer stays under it and the bar never leaves its edge.
//
// Main thread only.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "KestruneDock/Dock/DockMagnification.h"
#include "KestruneDock/Dock/DockPreferences.h"

namespace kestrune {

enum class DockSlotKind : uint8_t { app, stack, trash, divider, widget, widgetPages };

struct DockRowSlot {
    DockSlotKind kind = DockSlotKind::app;
    // Along the axis; 0 is one icon long. Widgets say how long their face is.
    double length = 0;

    // App, stack and trash tiles grow under the pointer; widgets hold their size so that their
    // text stays put, and dividers are only space.
    [[nodiscard]] bool magnifies() const
    {
        return kind == DockSlotKind::app || kind == DockSlotKind::stack || kind == DockSlotKind::trash;
    }
    bool operator==(const DockRowSlot&) const = default;
};

// The row's spacing, all derived from the tile size so that the dock reads the same at every size.
struct DockRowMetrics {
    double iconSize = 52;
    // Between two slots.
    double gap = 6;
    // Between the bar's ends and the first and last slot, and between the edge and the tiles.
    double padding = 7;
    // A divider's length along the axis.
    double dividerLength = 14;
    // Above the highest tile, for the hovered tile's name.
    double labelRoom = 30;

    [[nodiscard]] static DockRowMetrics forIconSize(double iconSize);
    // The resting bar's thickness: what the dock reserves on its edge.
    [[nodiscard]] double thickness() const { return iconSize + 2 * padding; }
    bool operator==(const DockRowMetrics&) const = default;
};

// A rectangle in row coordinates.
struct DockRowRect {
    double axis = 0;
    double depth = 0;
    double axisLength = 0;
    double depthLength = 0;

    [[nodiscard]] double axisEnd() const { return axis + axisLength; }
    [[nodiscard]] double depthEnd() const { return depth + depthLength; }
    [[nodiscard]] double axisCenter() const { return axis + axisLength / 2; }
    bool operator==(const DockRowRect&) const = default;
};

struct DockSlotFrame {
    // The tile as drawn: its length and depth grow with `scale`; its near side rests on the
    // bar's padding.
    DockRowRect tile;
    double scale = 1;
    // At rest, for the magnification's distances and for drop targets that must not move.
    double restingCenter = 0;
};

class DockRowLayout {
public:
    void setPreferences(const DockPreferences& preferences);
    void setSlots(std::vector<DockRowSlot> slots);
    // Along the axis, in row coordinates; none when the pointer is off the dock.
    void setPointer(std::optional<double> axis);
    void setHeldStill(bool held);

    [[nodiscard]] const DockRowMetrics& metrics() const { return metrics_; }
    [[nodiscard]] const std::vector<DockRowSlot>& slots() const { return slots_; }
    [[nodiscard]] const std::vector<DockSlotFrame>& frames() const { return frames_; }
    [[nodiscard]] const std::optional<double>& pointer() const { return magnification_.pointer(); }

    // The bar at rest: axis 0 to `restingLength`, depth 0 to the metrics' thickness.
    [[nodiscard]] double restingLength() const { return restingLength_; }
    // The bar as drawn now: it stretches with the magnified row and keeps its thickness.
    [[nodiscard]] DockRowRect bar() const;
    // How far the magnified row may reach past either end of the resting bar, whatever the
    // pointer does: the panel's hover window is this much longer at each end.
    [[nodiscard]] double spread() const { return spread_; }
    // How far from the edge a magnified tile and its label may reach.
    [[nodiscard]] double raisedDepth() const;
    // The stretch of the axis the widget slots take at rest, where nothing magnifies.
    [[nodiscard]] std::optional<DockExcludedInterval> widgetInterval() const;

    // The slot at a point: each slot owns half the gap on either side, so the row has no dead
    // spots between tiles; above a tile's drawn depth (or off the ends) is nothing.
    [[nodiscard]] std::optional<size_t> hit(double axis, double depth) const;
    // The slot a drop at this axis position lands before (`slots().size()` for the end), judged
    // on the resting centres so that the target does not move while tiles settle.
    [[nodiscard]] size_t insertionIndex(double axis) const;

private:
    void layOutAtRest();
    void magnify();
    [[nodiscard]] double baseLength(const DockRowSlot& slot) const;

    DockRowMetrics metrics_;
    DockMagnification magnification_;
    std::vector<DockRowSlot> slots_;
    std::vector<DockSlotFrame> frames_;
    DockSlotGeometry geometry_;
    std::vector<double> scales_;
    double restingLength_ = 0;
    double spread_ = 0;
};

} // namespace kestrune
