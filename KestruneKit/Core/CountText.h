#pragma once

#include <cstdint>
#include <locale>
#include <string>
#include <string_view>

namespace kestrune {

// The user's locale from the environment (LC_ALL, LC_NUMERIC, LANG), or the classic one when
// that names a locale this system lacks.
[[nodiscard]] const std::locale& userLocale();

// The number with the locale's digit grouping: "12,345" in English, "12.345" in German.
[[nodiscard]] std::string groupedNumber(int64_t number, const std::locale& locale = userLocale());

// "1 change", "2 changes", "1,024 changes".
[[nodiscard]] std::string countText(int64_t count, std::string_view singular, std::string_view plural,
                                    const std::locale& locale = userLocale());

} // namespace kestrune
