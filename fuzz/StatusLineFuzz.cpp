// What Claude Code's status-line script saves, its own ~/.claude.json, and ISO dates.
#include "KestruneKit/AIUsage/AIUsageStatusLine.h"
#include "KestruneKit/AIUsage/AIUsageTally.h"
#include "fuzz/FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace kestrune;
    auto input = fuzz::text(data, size);
    (void)decodeStatusLineLimits(input);
    (void)AIUsageClaudeConfig::decode(input);
    (void)parseISODate(input);
    return 0;
}
