#pragma once
// OVERVIEW
// The newest items of the stacks shown as a pile on their tiles (the stack option "display" =
// "stack"): read when a stack is first shown so and again whenever its folder changes. Only
// those folders are watched, through the system's file notifications; nothing is polled.
//
// TYPICAL USAGE
//   StackFans fans([this] { reload(); });
//   fans.show({ "/home/me/Downloads" });
//   for (const std::string& item : fans.newest("/home/me/Downloads")) ...
//
// Main thread only.

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <QDateTime>
#include <QFileInfo>
#include <QFileSystemWatcher>

namespace kestrune {

// When an item came into its folder, as near as the file system tells: its birth, else the last
// change of its metadata (a move into the folder changes it).
[[nodiscard]] QDateTime addedTime(const QFileInfo& info);

class StackFans {
public:
    // How many items a pile shows.
    static constexpr size_t fanned = 3;

    explicit StackFans(std::function<void()> changed);

    // The folders shown as piles now; others are forgotten and no longer watched.
    void show(const std::set<std::string>& folders);
    // Newest first; empty for an empty or missing folder.
    [[nodiscard]] const std::vector<std::string>& newest(const std::string& folder) const;

    // A folder's newest entries by the time they were added, newest first, at most `count`.
    [[nodiscard]] static std::vector<std::string> readNewest(const std::string& folder, size_t count);

private:
    void read(const std::string& folder);

    QFileSystemWatcher watcher_;
    std::map<std::string, std::vector<std::string>> newest_;
    std::function<void()> changed_;
};

} // namespace kestrune
