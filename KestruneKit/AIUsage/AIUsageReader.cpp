#include "KestruneKit/AIUsage/AIUsageReader.h"

#include <algorithm>

#include "KestruneKit/AIUsage/AIUsageClaudeCounter.h"
#include "KestruneKit/AIUsage/AIUsageDatabase.h"
#include "KestruneKit/AIUsage/AIUsageGeminiCounter.h"

namespace kestrune {

AIUsageReport makeReport(AIUsageTool tool, const AIUsageTokenUse& tokens, const AIUsageSources& sources)
{
    AIUsageReport report;
    report.tool = tool;
    report.tokens = tokens;
    report.lastActive = tokens.lastUsed;
    if (tool == AIUsageTool::claude) {
        const auto& config = sources.claudeConfig;
        if (config)
            report.plan = config->plan;
        const auto& line = sources.claudeStatusLine;
        bool lineIsNewer = line && (!config || !config->fetchedAt || config->limits.empty() || line->asOf >= *config->fetchedAt);
        if (lineIsNewer) {
            report.limits = line->limits;
            report.asOf = line->asOf;
            report.source = AIUsageLimitSource::statusLine;
        } else if (config && !config->limits.empty()) {
            report.limits = config->limits;
            report.asOf = config->fetchedAt;
            report.source = AIUsageLimitSource::cache;
        }
    } else if (tool == AIUsageTool::codex) {
        const auto& log = sources.codexLog;
        const auto& live = sources.codexLive;
        const AIUsageCodexLimits* newest = live && (!log || live->asOf >= log->asOf) ? &*live : log ? &*log : nullptr;
        if (newest) {
            report.limits = newest->limits;
            report.plan = newest->plan;
            report.credits = newest->credits;
            report.asOf = newest->asOf;
            report.source = newest == &*live ? AIUsageLimitSource::live : AIUsageLimitSource::log;
        }
    }
    return report;
}

std::vector<std::unique_ptr<AIUsageTokenCounter>> makeCounters(const std::string& home)
{
    std::vector<std::unique_ptr<AIUsageTokenCounter>> counters;
    counters.push_back(std::make_unique<AIUsageClaudeCounter>(home));
    counters.push_back(std::make_unique<AIUsageCodexLog>(home));
    counters.push_back(std::make_unique<AIUsageGeminiCounter>(home));
    counters.push_back(std::make_unique<AIUsageOpenCodeCounter>(home));
    counters.push_back(std::make_unique<AIUsageCopilotCounter>(home));
    counters.push_back(std::make_unique<AIUsageDroidCounter>(home));
    return counters;
}

AIUsageReader::Limits AIUsageReader::readLimits(const Limits& previous) const
{
    Limits limits;
    limits.configStamp = fileStamp(claudeConfigPath());
    limits.config = limits.configStamp == previous.configStamp && previous.configStamp.exists ? previous.config
                                                                                              : AIUsageClaudeConfig::read(claudeConfigPath());
    limits.bridgeStamp = fileStamp(statusLine_.limitsFile());
    limits.bridge = limits.bridgeStamp == previous.bridgeStamp && previous.bridgeStamp.exists ? previous.bridge : statusLine_.readLimits();
    limits.bridgeState = statusLine_.state(claudeSettingsPath());
    return limits;
}

std::vector<AIUsageReport> AIUsageReader::readOnce(Date now, const std::vector<AIUsageTool>& tools) const
{
    auto windows = aiUsageWindows(now, localeFirstWeekday());
    auto limits = readLimits({});
    AIUsageSources sources { limits.config, limits.bridge, std::nullopt, std::nullopt };
    std::vector<AIUsageReport> reports;
    for (auto& counter : makeCounters(home_)) {
        if (std::find(tools.begin(), tools.end(), counter->tool()) == tools.end() || !counter->isPresent())
            continue;
        auto use = counter->count(windows);
        if (auto* codex = dynamic_cast<AIUsageCodexLog*>(counter.get()))
            sources.codexLog = codex->latestLimits();
        reports.push_back(makeReport(counter->tool(), use, sources));
    }
    return reports;
}

} // namespace kestrune
