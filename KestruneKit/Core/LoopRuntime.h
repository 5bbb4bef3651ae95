#pragma once

#include <atomic>

#include "KestruneKit/Core/Runtime.h"
#include "KestruneKit/Core/TimerQueue.h"

namespace kestrune {

// A small run loop for the command line: the thread that calls run() is the main thread.
// Timers fire on time; the tolerance is kept but not used to coalesce wake-ups.
class LoopRuntime final : public Runtime {
public:
    [[nodiscard]] Date now() const override;
    void post(std::function<void()> fn) override;
    [[nodiscard]] TimerHandle schedule(Seconds delay, TimerRepeat repeat, Seconds tolerance,
                                       std::function<void()> fn) override;

    // Runs posted work and timers until quit() is called.
    void run();
    // Callable from any thread.
    void quit();

private:
    static double steadyNow();

    TimerQueue timers_;
    PostQueue posted_;
    std::atomic<bool> quitting_ { false };
};

} // namespace kestrune
