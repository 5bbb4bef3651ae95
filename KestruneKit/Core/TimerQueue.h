#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "KestruneKit/Core/Runtime.h"

namespace kestrune {

// The timer table behind both runtimes. Times are seconds on the runtime's own axis (the manual
// clock, or the steady clock). Main thread only.
class TimerQueue {
public:
    struct Info {
        double due;
        Seconds interval;
        TimerRepeat repeat;
        Seconds tolerance;
    };

    [[nodiscard]] TimerHandle add(double now, Seconds delay, TimerRepeat repeat, Seconds tolerance,
                                  std::function<void()> fn);

    // The earliest due time of a live timer.
    [[nodiscard]] std::optional<double> nextDue();

    // Fires the earliest live timer due at or before `upTo` (ties in the order they were added).
    // `setNow` is called with its due time first, so the callback sees the clock at that moment.
    enum class MissedFirings { fireEach, skip };
    bool fireNext(double upTo, const std::function<void(double)>& setNow, MissedFirings missed);

    [[nodiscard]] std::vector<Info> live();

private:
    struct Entry {
        double due;
        Seconds interval;
        TimerRepeat repeat;
        Seconds tolerance;
        unsigned long long order;
        std::function<void()> fn;
        std::shared_ptr<TimerToken> token;
    };
    void dropCancelled();

    std::vector<std::shared_ptr<Entry>> entries_;
    unsigned long long nextOrder_ = 0;
};

// The posted-work queue behind both runtimes: filled from any thread, emptied on the main thread.
class PostQueue {
public:
    void post(std::function<void()> fn);

    // Runs everything posted so far, and what that posts in turn. Returns how many ran.
    size_t runAll();

    // Waits until something is posted or `until` passes; returns whether something is waiting.
    template<typename TimePoint>
    bool waitUntil(TimePoint until)
    {
        std::unique_lock lock(mutex_);
        return ready_.wait_until(lock, until, [this] { return !queue_.empty() || woken_; });
    }
    void wait();
    // Wakes a waiter without posting work.
    void wake();
    void clearWake();

private:
    std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<std::function<void()>> queue_;
    bool woken_ = false;
};

} // namespace kestrune
