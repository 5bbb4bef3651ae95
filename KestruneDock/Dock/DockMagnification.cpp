#include "KestruneDock/Dock/DockMagnification.h"

#include <algorithm>
#include <cmath>

namespace kestrune {

void DockSlotGeometry::setCenter(size_t slot, double center)
{
    if (slot >= centers_.size())
        centers_.resize(slot + 1);
    centers_[slot] = center;
}

void DockSlotGeometry::forget(size_t slot)
{
    if (slot < centers_.size())
        centers_[slot].reset();
}

void DockSlotGeometry::resize(size_t slots) { centers_.resize(slots); }

std::optional<double> DockSlotGeometry::center(size_t slot) const
{
    return slot < centers_.size() ? centers_[slot] : std::nullopt;
}

void DockMagnification::setPreferences(const DockPreferences& preferences)
{
    magnification_ = preferences.magnification;
    double peak = preferences.iconSize > 1.0 ? preferences.magnifiedSize / preferences.iconSize : preferences.magnifiedSize;
    peak_ = std::max(peak, 1.0);
}

bool DockMagnification::isOff() const
{
    return !magnification_ || heldStill_ || !pointer_ || (excluded_ && excluded_->contains(*pointer_));
}

double DockMagnification::reach(double tileSize) const
{
    // Beyond this distance the growth w · (peak − 1) · exp(−d² / 2σ²) is under 0.05 points. A
    // hair of margin keeps the exact rule deciding the tiles right at the edge.
    double most = tileSize * (peak_ - 1);
    if (!(most >= 0.05))
        return 0;
    double sigma = 1.3 * tileSize;
    return 2 * sigma * sigma * std::log(most / 0.05) * (1 + 1e-9);
}

double DockMagnification::bell(double tileSize, double center, double reach) const
{
    double d = *pointer_ - center;
    if (d * d > reach)
        return 1.0;
    double sigma = 1.3 * tileSize;
    double scale = 1 + (peak_ - 1) * std::exp(-(d * d) / (2 * sigma * sigma));
    // Growth under a twentieth of a point is none at all, so far tiles stop laying out again.
    return tileSize * (scale - 1) < 0.05 ? 1.0 : scale;
}

double DockMagnification::scale(double tileSize, size_t slot, const DockSlotGeometry& geometry) const
{
    if (isOff())
        return 1.0;
    auto center = geometry.center(slot);
    return center ? bell(tileSize, *center, reach(tileSize)) : 1.0;
}

void DockMagnification::scales(double tileSize, const DockSlotGeometry& geometry, std::span<double> scales) const
{
    bool off = isOff();
    double within = off ? 0 : reach(tileSize);
    for (size_t slot = 0; slot < scales.size(); ++slot) {
        auto center = geometry.center(slot);
        scales[slot] = off || !center ? 1.0 : bell(tileSize, *center, within);
    }
}

} // namespace kestrune
