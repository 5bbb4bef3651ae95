#include "KestruneDock/Dock/DockBadge.h"

namespace kestrune {

std::optional<std::string> badgeText(int64_t count)
{
    if (count < 1)
        return std::nullopt;
    return count > 9999 ? std::string("9999+") : std::to_string(count);
}

std::optional<std::string> desktopIdFromAppUri(std::string_view uri)
{
    constexpr std::string_view scheme = "application://";
    constexpr std::string_view suffix = ".desktop";
    if (!uri.starts_with(scheme))
        return std::nullopt;
    uri.remove_prefix(scheme.size());
    if (uri.ends_with(suffix))
        uri.remove_suffix(suffix.size());
    if (uri.empty() || uri.find('/') != std::string_view::npos)
        return std::nullopt;
    return std::string(uri);
}

} // namespace kestrune
