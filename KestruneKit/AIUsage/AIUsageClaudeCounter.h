#pragma once

#include <memory>

#include "KestruneKit/AIUsage/AIUsageTokenCounter.h"

namespace kestrune {

// Claude Code's transcripts under ~/.claude/projects: one JSON object a line, a reply written
// once per content block and again when a session is resumed, so each reply is counted once, by
// its message id and request id, at the largest figure seen for it.
class AIUsageClaudeCounter final : public AIUsageLogCounter {
public:
    explicit AIUsageClaudeCounter(const std::string& home);
    ~AIUsageClaudeCounter() override;
    [[nodiscard]] bool concerns(std::string_view path) const override;

private:
    void consume(const std::string& path, std::string_view lines, size_t readable, const AIUsageWindows& windows) override;
    AIUsageTokenUse totals(const AIUsageWindows& windows) override { return replies_.tally(windows); }
    void countLine(const char* line, size_t length, size_t readable, const AIUsageWindows& windows);

    struct Parser;
    std::unique_ptr<Parser> parser_;
    AIUsageByteSearch search_ { "\"type\":\"assistant\"" };
    std::string identity_;
};

} // namespace kestrune
