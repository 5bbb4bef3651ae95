#pragma once
// OVERVIEW
// Screen Time's record: for each day, how many seconds each app was the active one, kept in a
// SQLite file in the application support folder ("screen-time.sqlite"), so that a restart, or a
// crash, loses at most the minutes not yet written. Days older than 35 are dropped.
//
// TYPICAL USAGE
//   ScreenTimeStore store(folder + "/screen-time.sqlite");
//   store.add("2026-11-24", "Firefox", 95.0);
//   for (const auto& [app, seconds] : store.day("2026-11-24")) ...
//
// Not thread-safe: one owner (the Screen Time center's queue) uses it.

#include <memory>
#include <string>
#include <utility>
#include <vector>

struct sqlite3;

namespace kestrune {

class ScreenTimeStore {
public:
    static constexpr int keptDays = 35;

    // Opens (and makes) the file; a store that cannot open it keeps nothing and says why.
    explicit ScreenTimeStore(const std::string& path);
    ~ScreenTimeStore();
    ScreenTimeStore(const ScreenTimeStore&) = delete;
    ScreenTimeStore& operator=(const ScreenTimeStore&) = delete;

    [[nodiscard]] bool isOpen() const { return database_ != nullptr; }
    [[nodiscard]] const std::string& failure() const { return failure_; }

    void add(const std::string& day, const std::string& app, double seconds);
    // The day's apps, longest first.
    [[nodiscard]] std::vector<std::pair<std::string, double>> day(const std::string& day) const;
    // Each day given ("2026-11-24") with its total, in the order given.
    [[nodiscard]] std::vector<std::pair<std::string, double>> totals(const std::vector<std::string>& days) const;
    // Drops the days before `oldestKept`.
    void forgetBefore(const std::string& oldestKept);

private:
    sqlite3* database_ = nullptr;
    std::string failure_;
};

} // namespace kestrune
