#pragma once
// What an app shows on its tile beside its icon: a count, a progress, a call for attention. On
// Linux apps say it through the com.canonical.Unity.LauncherEntry signal, naming themselves by
// their desktop entry ("application://org.gnome.Nautilus.desktop").
//
//   badge.count = 3;  text = badgeText(*badge.count);   // "3"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kestrune {

struct DockBadge {
    std::optional<int64_t> count;
    // 0 to 1.
    std::optional<double> progress;
    bool urgent = false;

    [[nodiscard]] bool empty() const { return !count && !progress && !urgent; }
    bool operator==(const DockBadge&) const = default;
};

// The count as the badge writes it: up to four figures, then "9999+"; none below one.
[[nodiscard]] std::optional<std::string> badgeText(int64_t count);

// "application://org.gnome.Nautilus.desktop" → "org.gnome.Nautilus"; none for anything else.
[[nodiscard]] std::optional<std::string> desktopIdFromAppUri(std::string_view uri);

} // namespace kestrune
