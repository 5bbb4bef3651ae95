#include "KestruneKit/Core/CountText.h"

#include <stdexcept>

#include <fmt/format.h>

namespace kestrune {

const std::locale& userLocale()
{
    static const std::locale locale = [] {
        try {
            return std::locale("");
        } catch (const std::runtime_error&) {
            return std::locale::classic();
        }
    }();
    return locale;
}

std::string groupedNumber(int64_t number, const std::locale& locale)
{
    return fmt::format(locale, "{:L}", number);
}

std::string countText(int64_t count, std::string_view singular, std::string_view plural, const std::locale& locale)
{
    return fmt::format("{} {}", groupedNumber(count, locale), count == 1 ? singular : plural);
}

} // namespace kestrune
