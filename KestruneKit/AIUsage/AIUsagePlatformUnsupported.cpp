#include "KestruneKit/AIUsage/AIUsageFolderWatch.h"
#include "KestruneKit/AIUsage/AIUsageTally.h"

namespace kestrune {

int localeFirstWeekday() { return 0; }

std::unique_ptr<AIUsageFolderWatch::Events> AIUsageFolderWatch::startEvents(const std::string&, Depth, Callback, std::string& failure)
{
    failure = "no change notification on this system";
    return nullptr;
}

} // namespace kestrune
