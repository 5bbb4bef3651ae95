#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KestruneKit/AIUsage/AIUsageTokenCounter.h"

struct sqlite3;
struct sqlite3_stmt;

namespace kestrune {

// A read-only connection to another tool's SQLite file, opened by URI with "?mode=ro", so that
// nothing we do can change it; a database in write-ahead-log mode stays readable while its owner
// writes. Blocking; on the owning counter's queue.
class AIUsageDatabase {
public:
    // None when the file is missing or is not a database we can open.
    [[nodiscard]] static std::unique_ptr<AIUsageDatabase> open(const std::string& path);
    ~AIUsageDatabase();
    AIUsageDatabase(const AIUsageDatabase&) = delete;
    AIUsageDatabase& operator=(const AIUsageDatabase&) = delete;

    using Row = std::vector<int64_t>;
    // Runs a statement whose parameters are integers and whose columns are read as integers.
    // None when the statement fails.
    [[nodiscard]] std::optional<std::vector<Row>> query(const std::string& sql, const std::vector<int64_t>& parameters,
                                                         const std::vector<std::string>& texts = {}) const;
    [[nodiscard]] bool hasTable(const std::string& name) const;

private:
    explicit AIUsageDatabase(sqlite3* db) : db_(db) {}
    sqlite3* db_;
};

// OpenCode's messages, asked again in full (since the earliest window start) whenever the
// database has changed since it was last asked.
class AIUsageOpenCodeCounter final : public AIUsageTokenCounter {
public:
    explicit AIUsageOpenCodeCounter(const std::string& home);
    [[nodiscard]] bool concerns(std::string_view path) const override;
    AIUsageTokenUse count(const AIUsageWindows& windows) override;
    void reset() override;
    [[nodiscard]] static std::string query(bool narrowBySession);

private:
    std::optional<int64_t> lastAsked_;
    std::pair<AIUsageFileStamp, AIUsageFileStamp> askedStamps_;
    std::vector<std::pair<int64_t, int64_t>> messages_;
};

// Copilot CLI's usage events, read incrementally past the last id already counted.
class AIUsageCopilotCounter final : public AIUsageTokenCounter {
public:
    explicit AIUsageCopilotCounter(const std::string& home);
    [[nodiscard]] bool concerns(std::string_view path) const override;
    AIUsageTokenUse count(const AIUsageWindows& windows) override;
    void reset() override;
    [[nodiscard]] static std::string query();

private:
    int64_t lastId_ = 0;
    std::map<int64_t, std::pair<int64_t, int64_t>> events_;
};

} // namespace kestrune
