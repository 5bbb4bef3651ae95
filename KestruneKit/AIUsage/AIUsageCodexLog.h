#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "KestruneKit/AIUsage/AIUsageTokenCounter.h"

namespace kestrune {

// What Codex last said about its plan: in a session log's token_count event, or in the app
// server's answer.
struct AIUsageCodexLimits {
    std::vector<AIUsageLimit> limits;
    std::optional<std::string> plan;
    std::optional<AIUsageCredits> credits;
    Date asOf {};
    bool operator==(const AIUsageCodexLimits&) const = default;
};

// A "rate_limits" object in either spelling of its keys; `said` is when it was said, which the
// relative "resets_in_seconds" counts from. None when it holds no limit.
[[nodiscard]] std::optional<AIUsageCodexLimits> decodeCodexRateLimits(const nlohmann::json& rateLimits, Date said);

// The display name of a plan type; none for "unknown" and for nothing.
[[nodiscard]] std::optional<std::string> codexPlanName(std::string_view planType);

// Codex's session logs under ~/.codex/sessions: token figures from each token_count event (the
// latest turn's, so that a subagent's log replaying its parent's events adds nothing), and the
// newest rate limits.
class AIUsageCodexLog final : public AIUsageLogCounter {
public:
    explicit AIUsageCodexLog(const std::string& home);
    ~AIUsageCodexLog() override;
    [[nodiscard]] bool concerns(std::string_view path) const override;
    void reset() override;
    // The newest limits read so far. On the counter's queue, like count.
    [[nodiscard]] const std::optional<AIUsageCodexLimits>& latestLimits() const { return latest_; }

private:
    void consume(const std::string& path, std::string_view lines, size_t readable, const AIUsageWindows& windows) override;
    AIUsageTokenUse totals(const AIUsageWindows& windows) override { return replies_.tally(windows); }
    void readLine(const char* line, size_t length, size_t readable, const AIUsageWindows& windows);

    struct Parser;
    std::unique_ptr<Parser> parser_;
    AIUsageByteSearch tokenSearch_ { "\"token_count\"" };
    AIUsageByteSearch limitsSearch_ { "\"rate_limits\"" };
    std::optional<AIUsageCodexLimits> latest_;
    std::string identity_;
};

} // namespace kestrune
