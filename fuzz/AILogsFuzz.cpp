// One log file of each AI tool whose logs are read as text, counted and tallied as the engine
// does. The first byte picks the tool; the rest is the file.
#include <memory>

#include "KestruneKit/AIUsage/AIUsageClaudeCounter.h"
#include "KestruneKit/AIUsage/AIUsageCodexLog.h"
#include "KestruneKit/AIUsage/AIUsageGeminiCounter.h"
#include "KestruneKit/AIUsage/AIUsageTally.h"
#include "fuzz/FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace kestrune;
    static fuzz::Scratch home;
    if (size == 0)
        return 0;
    home.clear();
    auto contents = fuzz::text(data + 1, size - 1);
    std::unique_ptr<AIUsageTokenCounter> counter;
    switch (data[0] % 5) {
    case 0:
        home.write(".claude/projects/p/session.jsonl", contents);
        counter = std::make_unique<AIUsageClaudeCounter>(home.path());
        break;
    case 1:
        home.write(".codex/sessions/2026/08/19/rollout.jsonl", contents);
        counter = std::make_unique<AIUsageCodexLog>(home.path());
        break;
    case 2:
        home.write(".gemini/tmp/p/chats/session.jsonl", contents);
        counter = std::make_unique<AIUsageGeminiCounter>(home.path());
        break;
    case 3:
        home.write(".gemini/tmp/p/chats/session.json", contents);
        counter = std::make_unique<AIUsageGeminiCounter>(home.path());
        break;
    default:
        home.write(".factory/sessions/p/s.settings.json", contents);
        counter = std::make_unique<AIUsageDroidCounter>(home.path());
        break;
    }
    // A Wednesday in August 2026, as the tests use.
    AIUsageWindows windows = aiUsageWindows(dateFromMillis(1787140000000), 1);
    auto use = counter->count(windows);
    if (use.week < 0 || use.window < 0)
        __builtin_trap();
    // Counting again reads nothing new and must agree.
    if (counter->count(windows).week != use.week)
        __builtin_trap();
    return 0;
}
