#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kestrune {

// A random (version 4) UUID, written as the platform writes it: upper-case hex, 8-4-4-4-12.
class Uuid {
public:
    Uuid() = default;
    [[nodiscard]] static Uuid random();
    // Accepts either case; anything else than 8-4-4-4-12 hex digits is std::nullopt.
    [[nodiscard]] static std::optional<Uuid> fromString(std::string_view text);

    [[nodiscard]] std::string toString() const;
    [[nodiscard]] bool isNil() const;

    auto operator<=>(const Uuid&) const = default;

private:
    std::array<std::uint8_t, 16> bytes_ {};
};

} // namespace kestrune
