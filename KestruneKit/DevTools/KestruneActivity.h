#pragma once

// The process-wide pause of every poller: while any reason is raised (the system sleeps, the
// displays sleep, the user's session is not the active one), pollers skip their firings.
// The platform's watchers raise and lower the reasons; the application installs them.
//
// Main thread only.

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string_view>

#include "KestruneKit/Core/ObserverList.h"

namespace kestrune {

class KestruneActivity {
public:
    enum class PauseReason { systemSleep, displaysSleep, sessionInactive };

    // The one shared by the whole process.
    [[nodiscard]] static KestruneActivity& shared();

    void raise(PauseReason reason);
    void lower(PauseReason reason);
    [[nodiscard]] bool isPaused() const { return !reasons_.empty(); }
    [[nodiscard]] bool isRaised(PauseReason reason) const { return reasons_.contains(reason); }

    // Runs `work` unless a pause is in force; returns whether it ran.
    bool perform(const std::function<void()>& work) const;

    // Told whenever a reason is raised or lowered that was not already.
    uint64_t addObserver(std::function<void()> observer) { return observers_.add(std::move(observer)); }
    void removeObserver(uint64_t id) { observers_.remove(id); }

private:
    std::set<PauseReason> reasons_;
    ObserverList<> observers_;
};

[[nodiscard]] std::string_view toString(KestruneActivity::PauseReason reason);
[[nodiscard]] std::optional<KestruneActivity::PauseReason> pauseReasonFromString(std::string_view raw);

} // namespace kestrune
