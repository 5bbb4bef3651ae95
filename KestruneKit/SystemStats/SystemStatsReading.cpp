#include "KestruneKit/SystemStats/SystemStatsReading.h"

#include <algorithm>

#include "KestruneKit/Core/RawNames.h"

namespace kestrune {

namespace {

constexpr RawNames<SystemStatsPressure, 4> pressureNames { { {
    { SystemStatsPressure::normal, "normal" },
    { SystemStatsPressure::warning, "warning" },
    { SystemStatsPressure::critical, "critical" },
    { SystemStatsPressure::unknown, "unknown" },
} } };

constexpr RawNames<SystemStatsCoreKind, 3> coreKindNames { { {
    { SystemStatsCoreKind::efficiency, "efficiency" },
    { SystemStatsCoreKind::performance, "performance" },
    { SystemStatsCoreKind::unknown, "unknown" },
} } };

} // namespace

std::string_view toString(SystemStatsPressure pressure) { return pressureNames.name(pressure); }
std::optional<SystemStatsPressure> systemStatsPressureFromString(std::string_view raw) { return pressureNames.value(raw); }
std::string_view toString(SystemStatsCoreKind kind) { return coreKindNames.name(kind); }

SystemStatsHistory::SystemStatsHistory(size_t capacity) : capacity_(std::max<size_t>(capacity, 2)) { ring_.resize(capacity_); }

void SystemStatsHistory::append(const SystemStatsReading& reading)
{
    ring_[next_] = reading;
    next_ = (next_ + 1) % capacity_;
    count_ = std::min(count_ + 1, capacity_);
}

const SystemStatsReading& SystemStatsHistory::operator[](size_t index) const
{
    size_t oldest = (next_ + capacity_ - count_) % capacity_;
    return ring_[(oldest + index) % capacity_];
}

} // namespace kestrune
