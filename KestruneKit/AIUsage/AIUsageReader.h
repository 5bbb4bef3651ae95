#pragma once
// OVERVIEW
// Where the limits come from, and how one tool's report is put together from its token figures
// and whatever said its limits last. Blocking reads; on the engine's queue, or in the CLI.

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KestruneKit/AIUsage/AIUsageCodexLog.h"
#include "KestruneKit/AIUsage/AIUsageStatusLine.h"
#include "KestruneKit/AIUsage/AIUsageTokenCounter.h"

namespace kestrune {

struct AIUsageSources {
    std::optional<AIUsageClaudeConfig::Result> claudeConfig;
    std::optional<AIUsageStatusLine::Limits> claudeStatusLine;
    std::optional<AIUsageCodexLimits> codexLog;
    std::optional<AIUsageCodexLimits> codexLive;
};

[[nodiscard]] AIUsageReport makeReport(AIUsageTool tool, const AIUsageTokenUse& tokens, const AIUsageSources& sources);

// The six counters, in display order, over one home folder.
[[nodiscard]] std::vector<std::unique_ptr<AIUsageTokenCounter>> makeCounters(const std::string& home);

class AIUsageReader {
public:
    AIUsageReader(std::string home, std::string appFolder) : home_(std::move(home)), statusLine_ { std::move(appFolder) } {}

    [[nodiscard]] std::string claudeConfigPath() const { return home_ + "/.claude.json"; }
    [[nodiscard]] std::string claudeSettingsPath() const { return home_ + "/.claude/settings.json"; }
    [[nodiscard]] const AIUsageStatusLine& statusLine() const { return statusLine_; }
    [[nodiscard]] const std::string& home() const { return home_; }

    struct Limits {
        AIUsageFileStamp configStamp;
        std::optional<AIUsageClaudeConfig::Result> config;
        AIUsageFileStamp bridgeStamp;
        std::optional<AIUsageStatusLine::Limits> bridge;
        AIUsageStatusLineState bridgeState;
    };
    // Claude Code's own file is large on a long-used machine: it, and the status line's limits
    // file, are parsed again only when their stamps differ from the ones given.
    [[nodiscard]] Limits readLimits(const Limits& previous) const;

    // Every tool present, counted once, with its limits: what `kestrune usage` prints.
    [[nodiscard]] std::vector<AIUsageReport> readOnce(Date now, const std::vector<AIUsageTool>& tools) const;

private:
    std::string home_;
    AIUsageStatusLine statusLine_;
};

} // namespace kestrune
