#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "KestruneKit/Core/RawNames.h"

namespace kestrune {

// The screen edge the dock sits on, stored by raw name under "edge".
enum class DockEdge : uint8_t { bottom, left, right };

inline constexpr RawNames<DockEdge, 3> dockEdgeNames { { {
    { DockEdge::bottom, "bottom" },
    { DockEdge::left, "left" },
    { DockEdge::right, "right" },
} } };

[[nodiscard]] constexpr std::string_view toString(DockEdge edge) { return dockEdgeNames.name(edge); }
[[nodiscard]] constexpr std::optional<DockEdge> dockEdgeFromString(std::string_view raw) { return dockEdgeNames.value(raw); }

} // namespace kestrune
