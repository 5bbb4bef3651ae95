#pragma once

// OVERVIEW
// The repeating timer of every developer monitor. It runs the monitor's work only while some
// tile or card wants the data, every `interval` seconds, never twice within 80 % of the interval
// when a new holder arrives, and not while KestruneActivity holds a pause.
//
// TYPICAL USAGE
//   DevPoller poller(runtime, KestruneActivity::shared(), Seconds(30), [this] { refresh(); });
//   poller.setWanted(tileId, true);    // the tile became visible
//   poller.setWanted(tileId, false);   // and hidden again: with no holder left, the timer stops
//
// Main thread only.

#include <functional>
#include <optional>
#include <set>
#include <string>

#include "KestruneKit/Core/Holders.h"
#include "KestruneKit/Core/Runtime.h"
#include "KestruneKit/DevTools/KestruneActivity.h"

namespace kestrune {

class DevPoller {
public:
    // A refresh asked for sooner than this share of the interval after the last one is skipped.
    static constexpr double dueShare = 0.8;

    DevPoller(Runtime& runtime, KestruneActivity& activity, Seconds interval, std::function<void()> work);
    DevPoller(const DevPoller&) = delete;
    DevPoller& operator=(const DevPoller&) = delete;

    void setWanted(const std::string& holder, bool wanted);

    [[nodiscard]] Seconds interval() const { return interval_; }
    // A different interval re-arms the timer at once.
    void setInterval(Seconds interval);

    [[nodiscard]] bool isActive() const { return holders_.any(); }
    [[nodiscard]] bool isDue() const;
    [[nodiscard]] std::optional<Date> lastRun() const { return lastRun_; }
    [[nodiscard]] const std::set<std::string>& holders() const { return holders_.all(); }

    // Runs the work now, wanted or not, paused or not.
    void refreshNow();

private:
    void rearm();
    void fire();
    void dueCheck();

    Runtime& runtime_;
    KestruneActivity& activity_;
    Holders holders_;
    Seconds interval_;
    TimerHandle timer_;
    std::optional<Date> lastRun_;
    std::function<void()> work_;
};

} // namespace kestrune
