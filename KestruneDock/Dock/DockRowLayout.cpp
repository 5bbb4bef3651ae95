#include "KestruneDock/Dock/DockRowLayout.h"

#include <algorithm>
#include <cmath>

namespace kestrune {

namespace {

// A hand-edited preference must not make a dock wider than any screen or too small to hit.
constexpr double smallestIcon = 16;
constexpr double largestIcon = 128;
constexpr double largestMagnified = 256;

double clampedSize(double size, double most)
{
    return std::isfinite(size) ? std::clamp(size, smallestIcon, most) : smallestIcon;
}

} // namespace

DockRowMetrics DockRowMetrics::forIconSize(double iconSize)
{
    DockRowMetrics metrics;
    metrics.iconSize = clampedSize(iconSize, largestIcon);
    metrics.gap = std::round(std::max(2.0, metrics.iconSize * 0.12));
    metrics.padding = std::round(std::max(3.0, metrics.iconSize * 0.14));
    metrics.dividerLength = std::round(std::max(6.0, metrics.iconSize * 0.28));
    // The name label: 8 points off the tile, about 25 high, and a little air above it.
    metrics.labelRoom = std::round(std::max(38.0, metrics.iconSize * 0.5));
    return metrics;
}

void DockRowLayout::setPreferences(const DockPreferences& preferences)
{
    DockPreferences clamped = preferences;
    clamped.iconSize = clampedSize(preferences.iconSize, largestIcon);
    clamped.magnifiedSize = clampedSize(preferences.magnifiedSize, largestMagnified);
    metrics_ = DockRowMetrics::forIconSize(clamped.iconSize);
    magnification_.setPreferences(clamped);
    layOutAtRest();
}

void DockRowLayout::setSlots(std::vector<DockRowSlot> slots)
{
    slots_ = std::move(slots);
    layOutAtRest();
}

void DockRowLayout::setPointer(std::optional<double> axis)
{
    magnification_.setPointer(axis);
    magnify();
}

void DockRowLayout::setHeldStill(bool held)
{
    magnification_.setHeldStill(held);
    magnify();
}

double DockRowLayout::baseLength(const DockRowSlot& slot) const
{
    if (slot.kind == DockSlotKind::divider)
        return metrics_.dividerLength;
    if (slot.magnifies() || !(slot.length > 0) || !std::isfinite(slot.length))
        return metrics_.iconSize;
    return slot.length;
}

void DockRowLayout::layOutAtRest()
{
    frames_.assign(slots_.size(), {});
    geometry_.resize(0);
    geometry_.resize(slots_.size());
    double position = metrics_.padding;
    for (size_t index = 0; index < slots_.size(); ++index) {
        double length = baseLength(slots_[index]);
        frames_[index].restingCenter = position + length / 2;
        // Only tiles that grow take part in the bell; the others keep no centre and so stay at 1.
        if (slots_[index].magnifies())
            geometry_.setCenter(index, frames_[index].restingCenter);
        position += length + metrics_.gap;
    }
    if (!slots_.empty())
        position -= metrics_.gap;
    restingLength_ = std::max(position + metrics_.padding, metrics_.thickness());

    // The most the row can grow on one side of the pointer: the bell summed over tiles at least
    // one pitch apart, the nearest of which may stand half a tile behind the pointer.
    double w = metrics_.iconSize;
    double most = w * (magnification_.peak() - 1);
    double sigma = 1.3 * w;
    double pitch = w + metrics_.gap;
    spread_ = 0;
    for (size_t k = 0; most > 0 && k < slots_.size(); ++k) {
        double distance = std::max(0.0, static_cast<double>(k) * pitch - w / 2);
        double growth = most * std::exp(-(distance * distance) / (2 * sigma * sigma));
        if (growth < 0.05)
            break;
        spread_ += growth;
    }
    spread_ = std::ceil(spread_);
    magnification_.setExcluded(widgetInterval());
    magnify();
}

void DockRowLayout::magnify()
{
    scales_.assign(slots_.size(), 1.0);
    magnification_.scales(metrics_.iconSize, geometry_, scales_);

    // The growth that lies before the pointer moves the row's start outward; a tile the pointer
    // is on splits its growth where the pointer stands on it.
    double before = 0;
    if (auto pointer = magnification_.pointer()) {
        for (size_t index = 0; index < slots_.size(); ++index) {
            double length = baseLength(slots_[index]);
            double start = frames_[index].restingCenter - length / 2;
            double fraction = std::clamp((*pointer - start) / length, 0.0, 1.0);
            before += length * (scales_[index] - 1) * fraction;
        }
    }

    double position = metrics_.padding - before;
    const double w = metrics_.iconSize;
    for (size_t index = 0; index < slots_.size(); ++index) {
        const DockRowSlot& slot = slots_[index];
        DockSlotFrame& frame = frames_[index];
        double length = baseLength(slot) * scales_[index];
        frame.scale = scales_[index];
        frame.tile.axis = position;
        frame.tile.axisLength = length;
        if (slot.kind == DockSlotKind::divider) {
            frame.tile.depth = metrics_.padding + w * 0.15;
            frame.tile.depthLength = w * 0.7;
        } else {
            frame.tile.depth = metrics_.padding;
            frame.tile.depthLength = slot.magnifies() ? w * frame.scale : w;
        }
        position += length + metrics_.gap;
    }
}

DockRowRect DockRowLayout::bar() const
{
    DockRowRect rect { 0, 0, restingLength_, metrics_.thickness() };
    if (frames_.empty())
        return rect;
    double start = frames_.front().tile.axis - metrics_.padding;
    double end = frames_.back().tile.axisEnd() + metrics_.padding;
    rect.axis = std::min(start, 0.0);
    rect.axisLength = std::max(end, restingLength_) - rect.axis;
    return rect;
}

double DockRowLayout::raisedDepth() const
{
    return metrics_.padding + metrics_.iconSize * magnification_.peak() + metrics_.labelRoom;
}

std::optional<DockExcludedInterval> DockRowLayout::widgetInterval() const
{
    std::optional<DockExcludedInterval> interval;
    for (size_t index = 0; index < slots_.size(); ++index) {
        DockSlotKind kind = slots_[index].kind;
        if (kind != DockSlotKind::widget && kind != DockSlotKind::widgetPages)
            continue;
        double half = baseLength(slots_[index]) / 2;
        double lower = frames_[index].restingCenter - half;
        double upper = frames_[index].restingCenter + half;
        if (!interval)
            interval = DockExcludedInterval { lower, upper, true };
        interval->lower = std::min(interval->lower, lower);
        interval->upper = std::max(interval->upper, upper);
    }
    return interval;
}

std::optional<size_t> DockRowLayout::hit(double axis, double depth) const
{
    if (frames_.empty() || depth < 0)
        return std::nullopt;
    // The slots are in axis order: the last one starting at or before the point is the candidate.
    auto after = std::upper_bound(frames_.begin(), frames_.end(), axis + metrics_.gap / 2,
        [](double value, const DockSlotFrame& frame) { return value < frame.tile.axis; });
    size_t index = after == frames_.begin() ? 0 : static_cast<size_t>(after - frames_.begin()) - 1;
    const DockRowRect& tile = frames_[index].tile;
    // The bar's padding belongs to the tiles at its ends.
    double start = tile.axis - (index == 0 ? metrics_.padding : metrics_.gap / 2);
    double end = tile.axisEnd() + (index + 1 == frames_.size() ? metrics_.padding : metrics_.gap / 2);
    if (axis < start)
        return std::nullopt;
    if (axis > end)
        return std::nullopt;
    if (depth > std::max(metrics_.thickness(), tile.depthEnd()))
        return std::nullopt;
    return index;
}

size_t DockRowLayout::insertionIndex(double axis) const
{
    auto found = std::find_if(frames_.begin(), frames_.end(),
        [axis](const DockSlotFrame& frame) { return frame.restingCenter > axis; });
    return static_cast<size_t>(found - frames_.begin());
}

} // namespace kestrune
