#include "KestruneKit/DevTools/DevPoller.h"

namespace kestrune {

DevPoller::DevPoller(Runtime& runtime, KestruneActivity& activity, Seconds interval, std::function<void()> work)
    : runtime_(runtime)
    , activity_(activity)
    , interval_(interval)
    , work_(std::move(work))
{
}

void DevPoller::setWanted(const std::string& holder, bool wanted)
{
    if (!holders_.set(holder, wanted))
        return;
    if (isActive())
        dueCheck();
    rearm();
}

void DevPoller::setInterval(Seconds interval)
{
    if (interval == interval_)
        return;
    interval_ = interval;
    rearm();
}

bool DevPoller::isDue() const
{
    return !lastRun_ || secondsBetween(*lastRun_, runtime_.now()) >= interval_ * dueShare;
}

void DevPoller::refreshNow()
{
    lastRun_ = runtime_.now();
    work_();
}

void DevPoller::rearm()
{
    timer_.cancel();
    if (!holders_.any())
        return;
    timer_ = runtime_.schedule(interval_, TimerRepeat::repeating, Runtime::defaultTolerance(interval_), [this] { fire(); });
}

void DevPoller::fire()
{
    activity_.perform([this] {
        lastRun_ = runtime_.now();
        work_();
    });
}

void DevPoller::dueCheck()
{
    if (!holders_.any() || activity_.isPaused() || !isDue())
        return;
    lastRun_ = runtime_.now();
    work_();
}

} // namespace kestrune
