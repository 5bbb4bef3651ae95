// OpenCode's message records: each line of the input is one message's JSON, stored as OpenCode
// stores it, and the database counted.
#include <sqlite3.h>

#include "KestruneKit/AIUsage/AIUsageDatabase.h"
#include "KestruneKit/AIUsage/AIUsageTally.h"
#include "fuzz/FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace kestrune;
    static fuzz::Scratch home;
    home.clear();
    std::string path = home.write(".local/share/opencode/opencode.db", "");
    sqlite3* db = nullptr;
    if (sqlite3_open(path.c_str(), &db) != SQLITE_OK)
        return 0;
    sqlite3_exec(db, "CREATE TABLE session(id TEXT PRIMARY KEY, time_created INTEGER, time_updated INTEGER);"
                     "CREATE TABLE message(id TEXT PRIMARY KEY, session_id TEXT, time_created INTEGER, time_updated INTEGER, data TEXT);"
                     "INSERT INTO session VALUES('s1', 1787130000000, 1787130000000);",
                 nullptr, nullptr, nullptr);
    sqlite3_stmt* insert = nullptr;
    sqlite3_prepare_v2(db, "INSERT INTO message VALUES(?, 's1', 1787130000000, 0, ?)", -1, &insert, nullptr);
    auto input = fuzz::text(data, size);
    size_t start = 0;
    for (int row = 0; start <= input.size() && row < 64; ++row) {
        auto end = input.find('\n', start);
        if (end == std::string_view::npos)
            end = input.size();
        auto line = input.substr(start, end - start);
        sqlite3_bind_int(insert, 1, row);
        sqlite3_bind_text(insert, 2, line.data(), static_cast<int>(line.size()), SQLITE_TRANSIENT);
        sqlite3_step(insert);
        sqlite3_reset(insert);
        start = end + 1;
    }
    sqlite3_finalize(insert);
    sqlite3_close(db);

    AIUsageOpenCodeCounter counter(home.path());
    if (counter.count(aiUsageWindows(dateFromMillis(1787140000000), 1)).week < 0)
        __builtin_trap();
    return 0;
}
