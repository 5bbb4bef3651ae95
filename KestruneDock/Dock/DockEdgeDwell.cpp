#include "KestruneDock/Dock/DockEdgeDwell.h"

#include <cmath>

namespace kestrune {

bool DockEdgeDwell::sample(double axis, Date now)
{
    // Moving on along the edge starts the wait again from where it is now.
    if (!since_ || std::abs(axis - anchor_) > stretch_) {
        since_ = now;
        anchor_ = axis;
        return seconds_ <= 0;
    }
    return secondsBetween(*since_, now).count() >= seconds_;
}

std::optional<Date> DockEdgeDwell::due() const
{
    if (!since_)
        return std::nullopt;
    return *since_ + std::chrono::duration_cast<Date::duration>(std::chrono::duration<double>(seconds_));
}

} // namespace kestrune
