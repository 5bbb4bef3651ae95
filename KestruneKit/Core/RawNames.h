#pragma once

// The raw strings of an enumeration whose values are stored or shown, in one table beside it:
//
//   constexpr RawNames<Outcome, 2> outcomeNames { { { { Outcome::succeeded, "succeeded" },
//                                                    { Outcome::failed, "failed" } } } };
//   outcomeNames.name(Outcome::failed);   // "failed"
//   outcomeNames.value("crashed");        // std::nullopt

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>

namespace kestrune {

template<typename Enum, size_t Count>
struct RawNames {
    std::array<std::pair<Enum, std::string_view>, Count> entries;

    [[nodiscard]] constexpr std::string_view name(Enum value) const
    {
        for (const auto& [candidate, raw] : entries)
            if (candidate == value)
                return raw;
        return {};
    }

    [[nodiscard]] constexpr std::optional<Enum> value(std::string_view raw) const
    {
        for (const auto& [candidate, name] : entries)
            if (name == raw)
                return candidate;
        return std::nullopt;
    }
};

} // namespace kestrune
