#pragma once

// OVERVIEW
// Keeps one RepositoryState per chosen folder, read every 30 seconds while a Git widget or card
// wants them. Reads run one after another on the monitor's own queue; each result replaces its
// folder's state whole, on the main thread.
//
// TYPICAL USAGE
//   RepositoriesMonitor monitor(runtime);
//   monitor.setWanted({ "/home/me/src/dock" });
//   monitor.onChange = [&] { redraw(monitor.states()); };
//   monitor.poller().setWanted(tileId, true);
//
// Main thread only.

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KestruneKit/Core/SerialQueue.h"
#include "KestruneKit/DevTools/DevPoller.h"
#include "KestruneKit/Repositories/GitActions.h"
#include "KestruneKit/Repositories/RepositoryReader.h"

namespace kestrune {

class RepositoriesMonitor {
public:
    static constexpr Seconds interval { 30.0 };

    explicit RepositoriesMonitor(Runtime& runtime, KestruneActivity& activity = KestruneActivity::shared(),
                                 std::shared_ptr<const RepositoryReader> reader = nullptr,
                                 std::shared_ptr<const GitActions> actions = nullptr);
    ~RepositoriesMonitor();
    RepositoriesMonitor(const RepositoriesMonitor&) = delete;
    RepositoriesMonitor& operator=(const RepositoriesMonitor&) = delete;

    // The chosen folders. States of folders no longer chosen are dropped, and readings still
    // under way for them are ignored when they arrive.
    void setWanted(std::vector<std::string> folders);
    [[nodiscard]] const std::vector<std::string>& wanted() const { return wanted_; }
    [[nodiscard]] const std::map<std::string, RepositoryState>& states() const { return states_; }
    // Unknown until the first reading.
    [[nodiscard]] std::optional<bool> hasGit() const { return hasGit_; }

    // Created on first use; each firing reads every chosen folder.
    [[nodiscard]] DevPoller& poller();

    // Reads one chosen folder now.
    void read(const std::string& folder);
    void readAll();

    // Commits, pulls or pushes on the queue, after the reads already asked for, then reads the
    // folder again; `done` gets the result on the main thread, unless the monitor is gone.
    void perform(GitAction action, const std::string& folder, const std::string& message,
                 std::function<void(GitActionResult)> done);

    // Called on the main thread after a state changed.
    std::function<void(const std::string& folder)> onChange;

private:
    void apply(uint64_t generation, RepositoryState state);

    Runtime& runtime_;
    KestruneActivity& activity_;
    std::shared_ptr<const RepositoryReader> reader_;
    std::shared_ptr<const GitActions> actions_;
    std::vector<std::string> wanted_;
    std::map<std::string, RepositoryState> states_;
    std::optional<bool> hasGit_;
    uint64_t generation_ = 0;
    std::unique_ptr<DevPoller> poller_;
    // Posted results check it, so none lands after the monitor is gone.
    std::shared_ptr<RepositoriesMonitor*> self_;
    SerialQueue queue_;
};

} // namespace kestrune
