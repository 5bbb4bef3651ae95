#pragma once
// How much each tile grows under the pointer: a Gaussian bell along the dock's axis, centred on
// the pointer, with a standard deviation of 1.3 tile sizes and its peak at magnifiedSize /
// iconSize.
//
//   DockMagnification magnification;
//   magnification.setPreferences(DockPreferences::read(preferences));
//   magnification.setPointer(pointerAlongAxis);            // std::nullopt when it leaves
//   double scale = magnification.scale(tileSize, slot, geometry);
//
// Main thread only; a scale is a few floating-point operations, cheap enough for every slot on
// every pointer move.

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "KestruneDock/Dock/DockPreferences.h"

namespace kestrune {

// Each slot's centre along the dock's axis, as the slots last reported it; a slot that has not
// reported has none.
class DockSlotGeometry {
public:
    void setCenter(size_t slot, double center);
    void forget(size_t slot);
    void resize(size_t slots);
    [[nodiscard]] std::optional<double> center(size_t slot) const;
    [[nodiscard]] size_t size() const { return centers_.size(); }

private:
    std::vector<std::optional<double>> centers_;
};

// A stretch of the axis where the pointer magnifies nothing (both ends included): the widget
// row, whose tiles do not grow, so that the app tiles beside it stay calm while the pointer is
// on a widget.
struct DockExcludedInterval {
    double lower = 0;
    double upper = 0;
    bool enabled = true;

    [[nodiscard]] bool contains(double position) const { return enabled && position >= lower && position <= upper; }
};

class DockMagnification {
public:
    void setPreferences(const DockPreferences& preferences);
    void setPointer(std::optional<double> position) { pointer_ = position; }
    void setExcluded(std::optional<DockExcludedInterval> excluded) { excluded_ = excluded; }
    // Tiles hold still while one is dragged to a new place or settles into it (the drop targets
    // must not move under the pointer) and while a tile's menu is open.
    void setHeldStill(bool held) { heldStill_ = held; }

    [[nodiscard]] double peak() const { return peak_; }
    [[nodiscard]] const std::optional<double>& pointer() const { return pointer_; }

    // `tileSize` is the slot's base size in points.
    [[nodiscard]] double scale(double tileSize, size_t slot, const DockSlotGeometry& geometry) const;
    // The scale of every slot at once, into `scales` (one per slot of the geometry).
    void scales(double tileSize, const DockSlotGeometry& geometry, std::span<double> scales) const;

private:
    [[nodiscard]] bool isOff() const;
    // The squared distance from the pointer past which a tile cannot grow by 0.05 points.
    [[nodiscard]] double reach(double tileSize) const;
    [[nodiscard]] double bell(double tileSize, double center, double reach) const;

    bool magnification_ = true;
    double peak_ = 1;
    bool heldStill_ = false;
    std::optional<double> pointer_;
    std::optional<DockExcludedInterval> excluded_;
};

} // namespace kestrune
