#include "KestruneKit/AIUsage/AIUsageDatabase.h"

#include <sqlite3.h>

#include <fmt/format.h>

namespace kestrune {

namespace {

// A path as the file part of an SQLite URI: the characters that URIs give a meaning escaped.
std::string uriPath(const std::string& path)
{
    std::string escaped;
    for (char c : path) {
        if (c == '%' || c == '?' || c == '#' || static_cast<unsigned char>(c) < 0x20)
            escaped += fmt::format("%{:02X}", static_cast<unsigned char>(c));
        else
            escaped += c;
    }
    return escaped;
}

struct Statement {
    sqlite3_stmt* statement = nullptr;
    ~Statement() { sqlite3_finalize(statement); }
};

bool concernsDatabase(std::string_view path, std::string_view name)
{
    auto slash = path.rfind('/');
    auto file = slash == std::string_view::npos ? path : path.substr(slash + 1);
    return file == name || (file.size() == name.size() + 4 && file.substr(0, name.size()) == name && file.substr(name.size()) == "-wal");
}

} // namespace

std::unique_ptr<AIUsageDatabase> AIUsageDatabase::open(const std::string& path)
{
    if (!fileStamp(path).exists)
        return nullptr;
    sqlite3* db = nullptr;
    std::string uri = "file:" + uriPath(path) + "?mode=ro";
    if (sqlite3_open_v2(uri.c_str(), &db, SQLITE_OPEN_READONLY | SQLITE_OPEN_URI | SQLITE_OPEN_NOMUTEX, nullptr) != SQLITE_OK) {
        sqlite3_close(db);
        return nullptr;
    }
    // The owner may hold a write lock for a moment; wait a little rather than count nothing.
    sqlite3_busy_timeout(db, 2000);
    return std::unique_ptr<AIUsageDatabase>(new AIUsageDatabase(db));
}

AIUsageDatabase::~AIUsageDatabase() { sqlite3_close(db_); }

std::optional<std::vector<AIUsageDatabase::Row>> AIUsageDatabase::query(const std::string& sql, const std::vector<int64_t>& parameters,
                                                                         const std::vector<std::string>& texts) const
{
    Statement statement;
    if (sqlite3_prepare_v2(db_, sql.c_str(), static_cast<int>(sql.size()), &statement.statement, nullptr) != SQLITE_OK)
        return std::nullopt;
    int index = 1;
    for (const auto& text : texts)
        sqlite3_bind_text(statement.statement, index++, text.c_str(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
    for (int64_t parameter : parameters)
        sqlite3_bind_int64(statement.statement, index++, parameter);
    std::vector<Row> rows;
    for (;;) {
        int step = sqlite3_step(statement.statement);
        if (step == SQLITE_DONE)
            return rows;
        if (step != SQLITE_ROW)
            return std::nullopt;
        Row row;
        for (int column = 0; column < sqlite3_column_count(statement.statement); ++column)
            row.push_back(sqlite3_column_int64(statement.statement, column));
        rows.push_back(std::move(row));
    }
}

bool AIUsageDatabase::hasTable(const std::string& name) const
{
    auto rows = query("SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = ?1", {}, { name });
    return rows && !rows->empty();
}

AIUsageOpenCodeCounter::AIUsageOpenCodeCounter(const std::string& home)
    : AIUsageTokenCounter(AIUsageTool::opencode, home + "/.local/share/opencode", Seconds(2.0))
{
}

bool AIUsageOpenCodeCounter::concerns(std::string_view path) const { return concernsDatabase(path, "opencode.db"); }

std::string AIUsageOpenCodeCounter::query(bool narrowBySession)
{
    std::string tokens = "COALESCE(json_extract(data, '$.tokens.input'), 0) + COALESCE(json_extract(data, '$.tokens.output'), 0)\n"
                         "+ COALESCE(json_extract(data, '$.tokens.reasoning'), 0) + COALESCE(json_extract(data, '$.tokens.cache.read'), 0)\n"
                         "+ COALESCE(json_extract(data, '$.tokens.cache.write'), 0)";
    return "SELECT id, time_created, " + tokens
        + (narrowBySession ? " FROM message\nWHERE session_id IN (SELECT id FROM session WHERE time_updated >= ?2) AND time_created >= ?1 AND "
                           : " FROM message WHERE time_created >= ?1 AND ")
        + "json_extract(data, '$.role') = 'assistant'";
}

AIUsageTokenUse AIUsageOpenCodeCounter::count(const AIUsageWindows& windows)
{
    std::string path = root() + "/opencode.db";
    std::pair stamps { fileStamp(path), fileStamp(path + "-wal") };
    if (!lastAsked_ || stamps != askedStamps_) {
        messages_.clear();
        if (auto db = AIUsageDatabase::open(path)) {
            // Message ids are text and are not needed: the whole window is asked each time.
            bool narrow = db->hasTable("session");
            auto rows = db->query(query(narrow), narrow ? std::vector<int64_t> { windows.earliest, windows.earliest } : std::vector<int64_t> { windows.earliest });
            for (const auto& row : rows.value_or(std::vector<AIUsageDatabase::Row> {}))
                messages_.emplace_back(row[1], row[2]);
        }
        lastAsked_ = windows.now;
        askedStamps_ = stamps;
    }
    AIUsageTally tally(windows);
    for (auto [time, tokens] : messages_)
        tally.add(time, tokens);
    return tally.finish();
}

void AIUsageOpenCodeCounter::reset()
{
    lastAsked_.reset();
    messages_.clear();
}

AIUsageCopilotCounter::AIUsageCopilotCounter(const std::string& home) : AIUsageTokenCounter(AIUsageTool::copilot, home + "/.copilot", Seconds(2.0)) {}

bool AIUsageCopilotCounter::concerns(std::string_view path) const { return concernsDatabase(path, "session-store.db"); }

std::string AIUsageCopilotCounter::query()
{
    return "SELECT id, CAST(strftime('%s', created_at) AS INTEGER), COALESCE(input_tokens, 0) + COALESCE(output_tokens, 0)\n"
           "FROM assistant_usage_events WHERE id > ?1 AND CAST(strftime('%s', created_at) AS INTEGER) >= ?2";
}

AIUsageTokenUse AIUsageCopilotCounter::count(const AIUsageWindows& windows)
{
    if (auto db = AIUsageDatabase::open(root() + "/session-store.db"); db && db->hasTable("assistant_usage_events")) {
        if (auto rows = db->query(query(), { lastId_, windows.earliest / 1000 })) {
            for (const auto& row : *rows) {
                events_[row[0]] = { row[1] * 1000, row[2] };
                lastId_ = std::max(lastId_, row[0]);
            }
        }
    }
    std::erase_if(events_, [&](const auto& event) { return event.second.first < windows.earliest; });
    AIUsageTally tally(windows);
    for (const auto& [id, event] : events_)
        tally.add(event.first, event.second);
    return tally.finish();
}

void AIUsageCopilotCounter::reset()
{
    lastId_ = 0;
    events_.clear();
}

} // namespace kestrune
