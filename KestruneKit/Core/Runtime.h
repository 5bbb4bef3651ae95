#pragma once

// OVERVIEW
// The Kit owns no event loop. Every store, monitor and engine lives on one thread, the main
// thread, and is handed a Runtime that gives it the time, a way back onto the main thread from
// any other, and timers. The application implements it with its event loop, the command line
// with LoopRuntime, the tests with ManualRuntime (a clock that moves only when told).
//
// TYPICAL USAGE
//   TimerHandle timer = runtime.schedule(Seconds(30), TimerRepeat::repeating,
//                                        Runtime::defaultTolerance(Seconds(30)), [this] { poll(); });
//   // ... from a worker thread:
//   runtime.post([weak = weakFromThis(), value] { if (auto self = weak.lock()) self->apply(value); });
//
// Dropping or resetting the handle cancels the timer; a callback never runs after its handle is gone.

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <utility>

namespace kestrune {

using Date = std::chrono::system_clock::time_point;
using Seconds = std::chrono::duration<double>;

[[nodiscard]] inline Seconds secondsBetween(Date from, Date to)
{
    return std::chrono::duration_cast<Seconds>(to - from);
}

[[nodiscard]] inline Date dateAfter(Date date, Seconds seconds)
{
    return date + std::chrono::duration_cast<std::chrono::system_clock::duration>(seconds);
}

enum class TimerRepeat { once, repeating };

// Shared between a handle and the runtime that holds the timer.
struct TimerToken {
    std::atomic<bool> cancelled { false };
    std::atomic<bool> finished { false };
    // Set by a runtime whose timers live outside it (an event loop's), so that a cancelled timer
    // stops waking the process at once instead of firing once more to find out. Main thread only.
    std::function<void()> onCancel;
};

// Move-only; cancels its timer when destroyed or reset. Main thread only.
class TimerHandle {
public:
    TimerHandle() = default;
    explicit TimerHandle(std::shared_ptr<TimerToken> token) : token_(std::move(token)) {}
    TimerHandle(const TimerHandle&) = delete;
    TimerHandle& operator=(const TimerHandle&) = delete;
    TimerHandle(TimerHandle&&) noexcept = default;
    TimerHandle& operator=(TimerHandle&& other) noexcept
    {
        if (this != &other) {
            cancel();
            token_ = std::move(other.token_);
        }
        return *this;
    }
    ~TimerHandle() { cancel(); }

    void cancel()
    {
        if (token_ && !token_->cancelled.exchange(true) && token_->onCancel)
            std::exchange(token_->onCancel, nullptr)();
        token_.reset();
    }

    // True while the timer can still fire: not cancelled, and either repeating or not yet fired.
    [[nodiscard]] bool isArmed() const { return token_ && !token_->cancelled && !token_->finished; }

private:
    std::shared_ptr<TimerToken> token_;
};

class Runtime {
public:
    virtual ~Runtime() = default;

    // The wall clock.
    [[nodiscard]] virtual Date now() const = 0;

    // Runs fn on the main thread soon, after what was posted before it. Callable from any thread.
    virtual void post(std::function<void()> fn) = 0;

    // A one-shot or repeating timer on the main thread. The tolerance lets the backend fire up to
    // that much late to coalesce wake-ups; a backend that cannot use it fires on time.
    [[nodiscard]] virtual TimerHandle schedule(Seconds delay, TimerRepeat repeat, Seconds tolerance,
                                               std::function<void()> fn) = 0;

    // Main-run-loop timers of the dock allow a fifth of their interval.
    [[nodiscard]] static Seconds defaultTolerance(Seconds interval) { return interval * 0.2; }
};

} // namespace kestrune
