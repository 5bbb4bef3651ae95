#pragma once
// OVERVIEW
// The values of the AI usage family: the six tools, their plan limits and token figures, what the
// engine publishes, and the family's fixed texts. Plain values, copied freely between threads.

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KestruneKit/Core/Runtime.h"

namespace kestrune {

// In display order.
enum class AIUsageTool { claude, codex, gemini, opencode, copilot, droid };
inline constexpr std::array<AIUsageTool, 6> allAIUsageTools { AIUsageTool::claude, AIUsageTool::codex, AIUsageTool::gemini,
                                                              AIUsageTool::opencode, AIUsageTool::copilot, AIUsageTool::droid };
[[nodiscard]] std::string_view toString(AIUsageTool tool);
[[nodiscard]] std::optional<AIUsageTool> aiUsageToolFromString(std::string_view raw);
[[nodiscard]] std::string_view displayName(AIUsageTool tool);
// Where space is tight.
[[nodiscard]] std::string_view shortName(AIUsageTool tool);
[[nodiscard]] std::string_view symbolName(AIUsageTool tool);

// How much of a limit is left, for colour.
enum class AIUsageLevel { plenty, low, nearlyGone };
[[nodiscard]] std::string_view toString(AIUsageLevel level);
// Below 70 % used is plenty, below 90 % low, from 90 % on nearly gone.
[[nodiscard]] AIUsageLevel aiUsageLevel(double usedPercent);

struct AIUsageLimit {
    // The used percentage, 0-100, as the tool says it.
    double used = 0;
    std::optional<int64_t> windowMinutes;
    std::optional<Date> resetsAt;
    // The tool's own label; it wins over the one derived from the window.
    std::optional<std::string> name;

    [[nodiscard]] std::string label() const;
    [[nodiscard]] bool hasExpired(Date now) const { return resetsAt && *resetsAt <= now; }
    bool operator==(const AIUsageLimit&) const = default;
};

struct AIUsageTokenUse {
    // The start of the current 5-hour block; none while no block is open.
    std::optional<Date> windowStart;
    int64_t window = 0;
    Date weekStart {};
    int64_t week = 0;
    // Tokens of each day of this week, the week's first day first.
    std::vector<int64_t> days;
    std::optional<Date> lastUsed;
    bool operator==(const AIUsageTokenUse&) const = default;
};

enum class AIUsageLimitSource { live, statusLine, cache, log, none };
[[nodiscard]] std::string_view toString(AIUsageLimitSource source);

struct AIUsageCredits {
    bool hasCredits = false;
    bool unlimited = false;
    std::optional<std::string> balance;
    // "Unlimited", the balance, or empty when there is nothing to say.
    [[nodiscard]] std::string text() const;
    bool operator==(const AIUsageCredits&) const = default;
};

struct AIUsageReport {
    AIUsageTool tool = AIUsageTool::claude;
    std::optional<std::string> plan;
    std::vector<AIUsageLimit> limits;
    // When the limits were said.
    std::optional<Date> asOf;
    AIUsageLimitSource source = AIUsageLimitSource::none;
    std::optional<AIUsageCredits> credits;
    AIUsageTokenUse tokens;
    std::optional<Date> lastActive;
    bool operator==(const AIUsageReport&) const = default;
};

struct AIUsageStatusLineState {
    bool connected = false;
    bool scriptMissing = false;
    bool seen = false;
    bool looked = false;
    bool installed = false;
    bool operator==(const AIUsageStatusLineState&) const = default;
};

struct AIUsageSnapshot {
    std::vector<AIUsageReport> reports;
    bool counting = false;
    bool counted = false;
    bool codexChecked = false;
    AIUsageStatusLineState claudeStatusLine;
    [[nodiscard]] const AIUsageReport* report(AIUsageTool tool) const;
    bool operator==(const AIUsageSnapshot&) const = default;
};

// Whether use runs ahead of or behind the straight line from a window's start to its reset;
// within 5 points of the line it is on pace.
enum class AIUsagePace { ahead, onPace, behind };
[[nodiscard]] std::optional<AIUsagePace> aiUsagePace(const AIUsageLimit& limit, Date now);

// The card's rows for one tool.
struct AIUsageToolSummary {
    enum class WindowKind { block, week, session, limit };
    struct Window {
        WindowKind kind = WindowKind::block;
        // Which limit, for WindowKind::limit.
        size_t index = 0;
        bool operator==(const Window&) const = default;
    };
    struct Row {
        Window window;
        std::string title;
        std::string value;
        std::string detail;
        std::optional<AIUsageLevel> level;
        std::optional<AIUsagePace> pace;
    };
    AIUsageTool tool = AIUsageTool::claude;
    std::vector<Row> rows;
};
[[nodiscard]] AIUsageToolSummary summarize(const AIUsageReport& report, Date now, bool counting);

namespace AIUsageWords {
inline constexpr std::string_view usage = "Usage";
inline constexpr std::string_view startedOver = "Started over since it last said";
inline constexpr std::string_view notOnThisMac = "Its use shows here once it’s on this Mac";
inline constexpr std::string_view codexNeverSaid = "Codex hasn’t said its limits yet. They come with its next turn.";
inline constexpr std::string_view codexStartedOver =
    "Codex’s limits have started over since it last said them. The new ones come with its next turn.";
inline constexpr std::string_view noResetTime = "No reset time given";
inline constexpr std::string_view startsWithNextMessage = "Starts with your next message";
inline constexpr std::string_view limitsComeNextTurn = "Its limits come with its next turn";
inline constexpr std::string_view nothingUsedYet = "Nothing used yet";
inline constexpr std::string_view nothingUsedThisWeek = "Nothing used this week";
inline constexpr std::string_view noTokensLastFiveHours = "No tokens in the last 5 hours";
inline constexpr std::string_view notUsedThisWeek = "Not used this week";
inline constexpr std::string_view noRecentFigures = "No recent figures";
inline constexpr std::string_view noResetTimeYet = "No reset time yet";
inline constexpr std::string_view countingSessions = "Counting its sessions…";
inline constexpr std::string_view countingClaude = "Counting Claude Code’s tokens…";
inline constexpr std::string_view noToolsFound = "No AI tools found";
inline constexpr std::string_view noToolsDetail = "Claude Code’s and Codex’s limits, and Gemini CLI’s, OpenCode’s, Copilot CLI’s and "
                                                  "Droid’s tokens, show here once one is on this Mac";
inline constexpr std::string_view unlimited = "Unlimited";
inline constexpr std::string_view codexAskedPrivacy = "Codex is asked with its own sign-in.";
inline constexpr std::string_view claudePrivacy =
    "Counted from Claude Code’s sessions on this Mac, cache reads included, never what was said.";
inline constexpr std::string_view noLoginPrivacy = "Kestrune Dock never sees a login, and keeps no history.";
} // namespace AIUsageWords

} // namespace kestrune
