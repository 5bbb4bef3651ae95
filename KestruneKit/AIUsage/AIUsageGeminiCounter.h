#pragma once

#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "KestruneKit/AIUsage/AIUsageTokenCounter.h"

namespace kestrune {

// Gemini CLI's chats under ~/.gemini: a ".jsonl" chat writes a message again, whole, each time
// it changes ("$set" of "messages" replaces the list, "$rewindTo" drops a message and all later
// ones); an older ".json" chat holds the list whole. Each chat's list is kept, and counted as it
// stands.
class AIUsageGeminiCounter final : public AIUsageLogCounter {
public:
    explicit AIUsageGeminiCounter(const std::string& home);
    [[nodiscard]] bool concerns(std::string_view path) const override;
    void reset() override;

private:
    struct Message {
        std::string id;
        int64_t time = 0;
        int64_t tokens = 0;
    };
    struct Chat {
        std::vector<Message> messages;
        std::unordered_map<std::string, size_t> index;
        void put(Message message);
        void rewindTo(const std::string& id);
        void clear();
    };

    Reading reading(std::string_view path) const override;
    void consume(const std::string& path, std::string_view lines, size_t readable, const AIUsageWindows& windows) override;
    void forget(const std::string& path) override { chats_.erase(path); }
    AIUsageTokenUse totals(const AIUsageWindows& windows) override;

    std::map<std::string, Chat> chats_;
};

// Droid's sessions under ~/.factory/sessions: each session's ".settings.json" holds the whole
// session's total, placed at the session's provider-lock time (else the file's).
class AIUsageDroidCounter final : public AIUsageLogCounter {
public:
    explicit AIUsageDroidCounter(const std::string& home);
    [[nodiscard]] bool concerns(std::string_view path) const override;
    void reset() override;

private:
    Reading reading(std::string_view /*path*/) const override { return Reading::wholeFile; }
    void consume(const std::string& path, std::string_view lines, size_t readable, const AIUsageWindows& windows) override;
    void forget(const std::string& path) override { sessions_.erase(path); }
    AIUsageTokenUse totals(const AIUsageWindows& windows) override;

    std::map<std::string, std::pair<int64_t, int64_t>> sessions_;
};

} // namespace kestrune
