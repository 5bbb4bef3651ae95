#pragma once

// A runtime whose clock moves only when the test says so. Timers fire inside advance(), in due
// order, each seeing now() at its own due time; work posted from other threads runs inside
// runPosted(), runUntil() and advance().
//
//   ManualRuntime runtime;
//   DevPoller poller(runtime, activity, Seconds(30), [&] { ++runs; });
//   poller.setWanted("card", true);
//   runtime.advance(Seconds(30));

#include <vector>

#include "KestruneKit/Core/Runtime.h"
#include "KestruneKit/Core/TimerQueue.h"

namespace kestrune {

class ManualRuntime final : public Runtime {
public:
    // Starts at a fixed date so that tests do not depend on the day they run.
    ManualRuntime();
    explicit ManualRuntime(Date start);

    [[nodiscard]] Date now() const override { return now_; }
    void post(std::function<void()> fn) override;
    [[nodiscard]] TimerHandle schedule(Seconds delay, TimerRepeat repeat, Seconds tolerance,
                                       std::function<void()> fn) override;

    // Moves the clock forward, firing every timer that falls due on the way, and running posted
    // work before and after each firing.
    void advance(Seconds seconds);

    // Runs the work posted so far, and what that posts in turn. Returns how many ran.
    size_t runPosted();

    // Runs posted work as it arrives from other threads until `done` holds or `realLimit` of real
    // time has passed. For waiting on real processes and threads; the clock does not move.
    bool runUntil(const std::function<bool()>& done, Seconds realLimit = Seconds(20));

    // The live timers, earliest first, with their due time as a date.
    struct Timer {
        Date due;
        Seconds interval;
        TimerRepeat repeat;
        Seconds tolerance;
    };
    [[nodiscard]] std::vector<Timer> timers();

private:
    double axis() const;

    Date start_;
    Date now_;
    TimerQueue timers_;
    PostQueue posted_;
};

} // namespace kestrune
