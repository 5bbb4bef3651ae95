#include "KestruneKit/AIUsage/AIUsageTally.h"

#include <langinfo.h>
#include <locale.h>

namespace kestrune {

int localeFirstWeekday()
{
    // glibc gives the first weekday counted from the day its week-1stday date fell on
    // (19971130 a Sunday, 19971201 a Monday), 1 being that day itself.
    locale_t locale = ::newlocale(LC_TIME_MASK, "", static_cast<locale_t>(nullptr));
    if (!locale)
        return 0;
    int first = static_cast<unsigned char>(::nl_langinfo_l(_NL_TIME_FIRST_WEEKDAY, locale)[0]);
    union {
        const char* text;
        uintptr_t word;
    } base { ::nl_langinfo_l(_NL_TIME_WEEK_1STDAY, locale) };
    ::freelocale(locale);
    int baseDay = static_cast<uint32_t>(base.word) == 19971201 ? 1 : 0;
    return first >= 1 && first <= 7 ? (baseDay + first - 1) % 7 : 0;
}

} // namespace kestrune
