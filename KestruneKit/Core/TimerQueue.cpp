#include "KestruneKit/Core/TimerQueue.h"

#include <algorithm>
#include <cmath>

namespace kestrune {

namespace {
// A repeating timer of zero interval would fire forever within one advance.
constexpr double minimumRepeatInterval = 0.001;
}

TimerHandle TimerQueue::add(double now, Seconds delay, TimerRepeat repeat, Seconds tolerance,
                            std::function<void()> fn)
{
    auto token = std::make_shared<TimerToken>();
    Seconds interval = delay;
    if (repeat == TimerRepeat::repeating && interval.count() < minimumRepeatInterval)
        interval = Seconds(minimumRepeatInterval);
    double firstDue = now + std::max(0.0, delay.count());
    entries_.push_back(std::make_shared<Entry>(
        Entry { firstDue, interval, repeat, tolerance, nextOrder_++, std::move(fn), token }));
    return TimerHandle(token);
}

void TimerQueue::dropCancelled()
{
    std::erase_if(entries_, [](const auto& entry) { return entry->token->cancelled || entry->token->finished; });
}

std::optional<double> TimerQueue::nextDue()
{
    dropCancelled();
    if (entries_.empty())
        return std::nullopt;
    double due = entries_.front()->due;
    for (const auto& entry : entries_)
        due = std::min(due, entry->due);
    return due;
}

bool TimerQueue::fireNext(double upTo, const std::function<void(double)>& setNow, MissedFirings missed)
{
    dropCancelled();
    std::shared_ptr<Entry> next;
    for (const auto& entry : entries_) {
        if (entry->due > upTo)
            continue;
        if (!next || entry->due < next->due || (entry->due == next->due && entry->order < next->order))
            next = entry;
    }
    if (!next)
        return false;

    setNow(next->due);
    if (next->repeat == TimerRepeat::once) {
        next->token->finished = true;
    } else {
        double step = next->interval.count();
        next->due += step;
        // A run loop that fell behind skips the firings it missed and keeps the timer's phase;
        // the manual clock stops at every due time, so nothing is ever skipped there.
        if (missed == MissedFirings::skip && next->due <= upTo)
            next->due += std::floor((upTo - next->due) / step + 1.0) * step;
        next->order = nextOrder_++;
    }
    // Copy the callback: it may cancel its own timer or add others, which may reshape the table.
    auto fn = next->fn;
    fn();
    return true;
}

std::vector<TimerQueue::Info> TimerQueue::live()
{
    dropCancelled();
    std::vector<Info> result;
    for (const auto& entry : entries_)
        result.push_back({ entry->due, entry->interval, entry->repeat, entry->tolerance });
    std::sort(result.begin(), result.end(), [](const Info& a, const Info& b) { return a.due < b.due; });
    return result;
}

void PostQueue::post(std::function<void()> fn)
{
    {
        std::lock_guard lock(mutex_);
        queue_.push_back(std::move(fn));
    }
    ready_.notify_all();
}

size_t PostQueue::runAll()
{
    size_t count = 0;
    for (;;) {
        std::function<void()> fn;
        {
            std::lock_guard lock(mutex_);
            if (queue_.empty())
                return count;
            fn = std::move(queue_.front());
            queue_.pop_front();
        }
        fn();
        ++count;
    }
}

void PostQueue::wait()
{
    std::unique_lock lock(mutex_);
    ready_.wait(lock, [this] { return !queue_.empty() || woken_; });
}

void PostQueue::wake()
{
    {
        std::lock_guard lock(mutex_);
        woken_ = true;
    }
    ready_.notify_all();
}

void PostQueue::clearWake()
{
    std::lock_guard lock(mutex_);
    woken_ = false;
}

} // namespace kestrune
