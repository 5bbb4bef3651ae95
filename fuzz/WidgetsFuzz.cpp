// The widget row as the dock writes it, and the day keys people and older releases wrote.
#include "KestruneDock/Widgets/WidgetStore.h"
#include "KestruneKit/Widgets/DockWidgetRecord.h"
#include "fuzz/FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace kestrune;
    auto input = fuzz::text(data, size);
    (void)decodeWidgetInstances(input);
    (void)DockWidgetRecord::decode(input);
    if (auto day = DayLenient::decode(input)) {
        // A day it accepts is a real one, and written canonically it reads back the same.
        auto again = DayLenient::decode(DayStamp::of(*day));
        if (!again || *again != *day)
            __builtin_trap();
    }
    return 0;
}
