#include "KestruneKit/AIUsage/AIUsageModel.h"

#include <cmath>

#include <fmt/format.h>

#include "KestruneKit/Core/CountText.h"
#include "KestruneKit/Core/RawNames.h"

namespace kestrune {

namespace {

using Tool = AIUsageTool;

constexpr RawNames<Tool, 6> toolNames { { {
    { Tool::claude, "claude" },
    { Tool::codex, "codex" },
    { Tool::gemini, "gemini" },
    { Tool::opencode, "opencode" },
    { Tool::copilot, "copilot" },
    { Tool::droid, "droid" },
} } };

constexpr RawNames<Tool, 6> toolDisplayNames { { {
    { Tool::claude, "Claude Code" },
    { Tool::codex, "Codex" },
    { Tool::gemini, "Gemini CLI" },
    { Tool::opencode, "OpenCode" },
    { Tool::copilot, "Copilot CLI" },
    { Tool::droid, "Droid" },
} } };

constexpr RawNames<Tool, 6> toolShortNames { { {
    { Tool::claude, "Claude" },
    { Tool::codex, "Codex" },
    { Tool::gemini, "Gemini" },
    { Tool::opencode, "OpenCode" },
    { Tool::copilot, "Copilot" },
    { Tool::droid, "Droid" },
} } };

constexpr RawNames<Tool, 6> toolSymbols { { {
    { Tool::claude, "asterisk" },
    { Tool::codex, "curlybraces" },
    { Tool::gemini, "sparkle" },
    { Tool::opencode, "terminal" },
    { Tool::copilot, "airplane" },
    { Tool::droid, "terminal" },
} } };

constexpr RawNames<AIUsageLevel, 3> levelNames { { {
    { AIUsageLevel::plenty, "plenty" },
    { AIUsageLevel::low, "low" },
    { AIUsageLevel::nearlyGone, "nearlyGone" },
} } };

constexpr RawNames<AIUsageLimitSource, 5> sourceNames { { {
    { AIUsageLimitSource::live, "live" },
    { AIUsageLimitSource::statusLine, "statusLine" },
    { AIUsageLimitSource::cache, "cache" },
    { AIUsageLimitSource::log, "log" },
    { AIUsageLimitSource::none, "none" },
} } };

std::string percentText(double used)
{
    return fmt::format("{}%", static_cast<int64_t>(std::lround(std::clamp(used, 0.0, 100.0))));
}

std::string resetText(Date resetsAt, Date now)
{
    auto minutes = static_cast<int64_t>(std::ceil(secondsBetween(now, resetsAt).count() / 60));
    if (minutes >= 2 * 1440)
        return fmt::format("Resets in {} days", minutes / 1440);
    if (minutes >= 60)
        return minutes % 60 ? fmt::format("Resets in {} h {} min", minutes / 60, minutes % 60) : fmt::format("Resets in {} h", minutes / 60);
    return fmt::format("Resets in {} min", std::max<int64_t>(minutes, 1));
}

std::string tokensText(int64_t tokens) { return countText(tokens, "token", "tokens"); }

} // namespace

std::string_view toString(AIUsageTool tool) { return toolNames.name(tool); }
std::optional<AIUsageTool> aiUsageToolFromString(std::string_view raw) { return toolNames.value(raw); }
std::string_view displayName(AIUsageTool tool) { return toolDisplayNames.name(tool); }
std::string_view shortName(AIUsageTool tool) { return toolShortNames.name(tool); }
std::string_view symbolName(AIUsageTool tool) { return toolSymbols.name(tool); }
std::string_view toString(AIUsageLevel level) { return levelNames.name(level); }
std::string_view toString(AIUsageLimitSource source) { return sourceNames.name(source); }

AIUsageLevel aiUsageLevel(double usedPercent)
{
    if (usedPercent >= 90)
        return AIUsageLevel::nearlyGone;
    return usedPercent >= 70 ? AIUsageLevel::low : AIUsageLevel::plenty;
}

std::string AIUsageLimit::label() const
{
    if (name)
        return *name;
    if (!windowMinutes)
        return std::string(AIUsageWords::usage);
    int64_t minutes = *windowMinutes;
    switch (minutes) {
    case 300:
        return "5 hours";
    case 1440:
        return "24 hours";
    case 10080:
        return "This week";
    case 60:
        return "1 hour";
    default:
        break;
    }
    if (minutes > 0 && minutes % 1440 == 0)
        return fmt::format("{} days", minutes / 1440);
    if (minutes > 0 && minutes % 60 == 0)
        return fmt::format("{} hours", minutes / 60);
    return fmt::format("{} minutes", minutes);
}

std::string AIUsageCredits::text() const
{
    if (unlimited)
        return std::string(AIUsageWords::unlimited);
    return hasCredits && balance ? *balance : std::string {};
}

const AIUsageReport* AIUsageSnapshot::report(AIUsageTool tool) const
{
    for (const auto& report : reports)
        if (report.tool == tool)
            return &report;
    return nullptr;
}

std::optional<AIUsagePace> aiUsagePace(const AIUsageLimit& limit, Date now)
{
    if (!limit.windowMinutes || *limit.windowMinutes <= 0 || !limit.resetsAt || limit.hasExpired(now))
        return std::nullopt;
    double window = static_cast<double>(*limit.windowMinutes) * 60;
    double left = secondsBetween(now, *limit.resetsAt).count();
    double passed = std::clamp(100 * (window - left) / window, 0.0, 100.0);
    if (limit.used > passed + 5)
        return AIUsagePace::ahead;
    return limit.used < passed - 5 ? AIUsagePace::behind : AIUsagePace::onPace;
}

AIUsageToolSummary summarize(const AIUsageReport& report, Date now, bool counting)
{
    using Row = AIUsageToolSummary::Row;
    using Kind = AIUsageToolSummary::WindowKind;
    AIUsageToolSummary summary;
    summary.tool = report.tool;
    for (size_t index = 0; index < report.limits.size(); ++index) {
        const auto& limit = report.limits[index];
        Row row { { Kind::limit, index }, limit.label(), {}, {}, {}, {} };
        if (limit.hasExpired(now)) {
            row.value = std::string(AIUsageWords::startedOver);
        } else {
            row.value = percentText(limit.used);
            row.level = aiUsageLevel(limit.used);
            row.pace = aiUsagePace(limit, now);
            row.detail = limit.resetsAt ? resetText(*limit.resetsAt, now) : std::string(AIUsageWords::noResetTime);
        }
        summary.rows.push_back(std::move(row));
    }
    if (report.limits.empty() && report.tool == AIUsageTool::codex)
        summary.rows.push_back({ { Kind::limit, 0 }, std::string(AIUsageWords::usage), std::string(AIUsageWords::limitsComeNextTurn), {}, {}, {} });

    const auto& tokens = report.tokens;
    std::string_view countingText = report.tool == AIUsageTool::claude ? AIUsageWords::countingClaude : AIUsageWords::countingSessions;
    Row block { { Kind::block, 0 }, "Last 5 hours", {}, {}, {}, {} };
    Row week { { Kind::week, 0 }, "This week", {}, {}, {}, {} };
    if (counting) {
        block.value = week.value = std::string(countingText);
    } else {
        bool open = tokens.windowStart && dateAfter(*tokens.windowStart, Seconds(5 * 3600)) > now;
        block.value = open && tokens.window > 0 ? tokensText(tokens.window) : std::string(AIUsageWords::noTokensLastFiveHours);
        block.detail = open ? resetText(dateAfter(*tokens.windowStart, Seconds(5 * 3600)), now) : std::string(AIUsageWords::startsWithNextMessage);
        week.value = tokens.week > 0 ? tokensText(tokens.week) : std::string(tokens.lastUsed ? AIUsageWords::notUsedThisWeek : AIUsageWords::nothingUsedYet);
    }
    summary.rows.push_back(std::move(block));
    summary.rows.push_back(std::move(week));
    return summary;
}

} // namespace kestrune
