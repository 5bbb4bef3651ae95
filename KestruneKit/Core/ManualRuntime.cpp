#include "KestruneKit/Core/ManualRuntime.h"

namespace kestrune {

namespace {
// 2026-01-05 09:00:00 UTC, a Monday morning.
constexpr std::chrono::sys_seconds defaultStart { std::chrono::seconds(1767603600) };
}

ManualRuntime::ManualRuntime() : ManualRuntime(Date(defaultStart)) {}

ManualRuntime::ManualRuntime(Date start) : start_(start), now_(start) {}

double ManualRuntime::axis() const { return secondsBetween(start_, now_).count(); }

void ManualRuntime::post(std::function<void()> fn) { posted_.post(std::move(fn)); }

TimerHandle ManualRuntime::schedule(Seconds delay, TimerRepeat repeat, Seconds tolerance, std::function<void()> fn)
{
    return timers_.add(axis(), delay, repeat, tolerance, std::move(fn));
}

void ManualRuntime::advance(Seconds seconds)
{
    double target = axis() + std::max(0.0, seconds.count());
    runPosted();
    auto setNow = [this](double at) {
        if (at > axis())
            now_ = dateAfter(start_, Seconds(at));
    };
    while (timers_.fireNext(target, setNow, TimerQueue::MissedFirings::fireEach))
        runPosted();
    now_ = dateAfter(start_, Seconds(target));
    runPosted();
}

size_t ManualRuntime::runPosted() { return posted_.runAll(); }

bool ManualRuntime::runUntil(const std::function<bool()>& done, Seconds realLimit)
{
    auto deadline = std::chrono::steady_clock::now() + std::chrono::duration_cast<std::chrono::steady_clock::duration>(realLimit);
    for (;;) {
        runPosted();
        if (done())
            return true;
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        // Wake at least every 50 ms: `done` may watch the world outside the posted work.
        posted_.waitUntil(std::min(deadline, std::chrono::steady_clock::now() + std::chrono::milliseconds(50)));
    }
}

std::vector<ManualRuntime::Timer> ManualRuntime::timers()
{
    std::vector<Timer> result;
    for (const auto& info : timers_.live())
        result.push_back({ dateAfter(start_, Seconds(info.due)), info.interval, info.repeat, info.tolerance });
    return result;
}

} // namespace kestrune
