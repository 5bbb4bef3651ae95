#include "KestruneKit/Core/LoopRuntime.h"

namespace kestrune {

Date LoopRuntime::now() const { return std::chrono::system_clock::now(); }

double LoopRuntime::steadyNow()
{
    return std::chrono::duration_cast<Seconds>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void LoopRuntime::post(std::function<void()> fn) { posted_.post(std::move(fn)); }

TimerHandle LoopRuntime::schedule(Seconds delay, TimerRepeat repeat, Seconds tolerance, std::function<void()> fn)
{
    TimerHandle handle = timers_.add(steadyNow(), delay, repeat, tolerance, std::move(fn));
    // A timer added from outside run() must not wait behind a sleeping loop.
    posted_.wake();
    return handle;
}

void LoopRuntime::run()
{
    quitting_ = false;
    while (!quitting_) {
        posted_.clearWake();
        posted_.runAll();
        while (!quitting_ && timers_.fireNext(steadyNow(), [](double) {}, TimerQueue::MissedFirings::skip))
            posted_.runAll();
        if (quitting_)
            break;
        if (auto due = timers_.nextDue()) {
            auto until = std::chrono::steady_clock::time_point(
                std::chrono::duration_cast<std::chrono::steady_clock::duration>(Seconds(*due)));
            posted_.waitUntil(until);
        } else {
            posted_.wait();
        }
    }
}

void LoopRuntime::quit()
{
    quitting_ = true;
    posted_.wake();
}

} // namespace kestrune
