#include "KestruneKit/ScreenTime/ScreenTimeStore.h"

#include <sqlite3.h>

namespace kestrune {

namespace {

struct Statement {
    sqlite3_stmt* statement = nullptr;
    Statement(sqlite3* database, const char* sql) { sqlite3_prepare_v2(database, sql, -1, &statement, nullptr); }
    ~Statement() { sqlite3_finalize(statement); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;
    void text(int index, const std::string& value) const { sqlite3_bind_text(statement, index, value.c_str(), static_cast<int>(value.size()), SQLITE_TRANSIENT); }
};

std::string columnText(sqlite3_stmt* statement, int column)
{
    const unsigned char* text = sqlite3_column_text(statement, column);
    return text ? reinterpret_cast<const char*>(text) : "";
}

} // namespace

ScreenTimeStore::ScreenTimeStore(const std::string& path)
{
    if (sqlite3_open_v2(path.c_str(), &database_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr) != SQLITE_OK) {
        failure_ = database_ ? sqlite3_errmsg(database_) : "out of memory";
        sqlite3_close(database_);
        database_ = nullptr;
        return;
    }
    // Another of our processes may be writing: wait for it a little rather than fail.
    sqlite3_busy_timeout(database_, 2000);
    char* error = nullptr;
    if (sqlite3_exec(database_,
                     "PRAGMA journal_mode=WAL;"
                     "CREATE TABLE IF NOT EXISTS usage (day TEXT NOT NULL, app TEXT NOT NULL, seconds REAL NOT NULL,"
                     " PRIMARY KEY (day, app)) WITHOUT ROWID;",
                     nullptr, nullptr, &error)
        != SQLITE_OK) {
        failure_ = error ? error : "the file is not a Screen Time database";
        sqlite3_free(error);
        sqlite3_close(database_);
        database_ = nullptr;
    }
}

ScreenTimeStore::~ScreenTimeStore()
{
    sqlite3_close(database_);
}

void ScreenTimeStore::add(const std::string& day, const std::string& app, double seconds)
{
    if (!database_ || !(seconds > 0))
        return;
    Statement upsert(database_, "INSERT INTO usage (day, app, seconds) VALUES (?1, ?2, ?3)"
                                " ON CONFLICT (day, app) DO UPDATE SET seconds = seconds + excluded.seconds");
    upsert.text(1, day);
    upsert.text(2, app);
    sqlite3_bind_double(upsert.statement, 3, seconds);
    sqlite3_step(upsert.statement);
}

std::vector<std::pair<std::string, double>> ScreenTimeStore::day(const std::string& day) const
{
    std::vector<std::pair<std::string, double>> apps;
    if (!database_)
        return apps;
    Statement select(database_, "SELECT app, seconds FROM usage WHERE day = ?1 ORDER BY seconds DESC, app");
    select.text(1, day);
    while (sqlite3_step(select.statement) == SQLITE_ROW)
        apps.emplace_back(columnText(select.statement, 0), sqlite3_column_double(select.statement, 1));
    return apps;
}

std::vector<std::pair<std::string, double>> ScreenTimeStore::totals(const std::vector<std::string>& days) const
{
    std::vector<std::pair<std::string, double>> totals;
    for (const std::string& each : days) {
        double sum = 0;
        if (database_) {
            Statement select(database_, "SELECT TOTAL(seconds) FROM usage WHERE day = ?1");
            select.text(1, each);
            if (sqlite3_step(select.statement) == SQLITE_ROW)
                sum = sqlite3_column_double(select.statement, 0);
        }
        totals.emplace_back(each, sum);
    }
    return totals;
}

void ScreenTimeStore::forgetBefore(const std::string& oldestKept)
{
    if (!database_)
        return;
    Statement remove(database_, "DELETE FROM usage WHERE day < ?1");
    remove.text(1, oldestKept);
    sqlite3_step(remove.statement);
}

} // namespace kestrune
