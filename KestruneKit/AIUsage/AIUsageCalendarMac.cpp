#include "KestruneKit/AIUsage/AIUsageTally.h"

#include <CoreFoundation/CoreFoundation.h>

namespace kestrune {

int localeFirstWeekday()
{
    CFCalendarRef calendar = CFCalendarCopyCurrent();
    // CFCalendar counts weekdays from 1 for Sunday.
    int first = static_cast<int>(CFCalendarGetFirstWeekday(calendar)) - 1;
    CFRelease(calendar);
    return first >= 0 && first <= 6 ? first : 0;
}

} // namespace kestrune
