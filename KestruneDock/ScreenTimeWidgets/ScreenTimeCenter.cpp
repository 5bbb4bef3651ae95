#include "KestruneDock/ScreenTimeWidgets/ScreenTimeCenter.h"

#include <algorithm>
#include <ctime>

#include <fmt/format.h>
#include <xcb/screensaver.h>

#include "KestruneDock/Desktop/X11Connection.h"
#include "KestruneDock/Desktop/X11WindowList.h"
#include "KestruneKit/Calendar/CivilTime.h"
#include "KestruneKit/DevTools/KestruneActivity.h"
#include "KestruneKit/ScreenTime/ScreenTimeStore.h"

namespace kestrune {

namespace {

// The X server's count of the time since the last input; none without X.
Seconds serverIdleTime()
{
    xcb_connection_t* connection = x11::connection();
    if (!connection)
        return Seconds(0);
    xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
    std::unique_ptr<xcb_screensaver_query_info_reply_t, decltype(&std::free)> info(
        xcb_screensaver_query_info_reply(connection, xcb_screensaver_query_info(connection, screen->root), nullptr), &std::free);
    return info ? Seconds(info->ms_since_user_input / 1000.0) : Seconds(0);
}


// The local midnight after `moment`, by the calendar (a day the clocks change is 23 or 25 hours).
Date nextLocalMidnight(Date moment)
{
    CivilTime time = localCivilTime(moment);
    std::tm midnight {};
    midnight.tm_year = time.year - 1900;
    midnight.tm_mon = time.month - 1;
    midnight.tm_mday = time.day + 1;
    midnight.tm_isdst = -1;
    return std::chrono::system_clock::from_time_t(std::mktime(&midnight));
}

} // namespace

struct ScreenTimeCenter::Record {
    std::unique_ptr<ScreenTimeStore> store;
};

std::string ScreenTimeCenter::nameOf(const WindowFacts& window) const
{
    if (nameApplication)
        if (std::string name = nameApplication(window); !name.empty())
            return name;
    if (!window.wmClass.empty())
        return window.wmClass;
    if (!window.wmClassInstance.empty())
        return window.wmClassInstance;
    return window.executable.substr(window.executable.find_last_of('/') + 1);
}

std::string ScreenTimeCenter::dayKey(Date moment)
{
    CivilTime time = localCivilTime(moment);
    return fmt::format("{:04d}-{:02d}-{:02d}", time.year, time.month, time.day);
}

ScreenTimeCenter::ScreenTimeCenter(Runtime& runtime, std::string databasePath, KestruneActivity& activity)
    : runtime_(runtime), activity_(activity), record_(std::make_shared<Record>()), self_(std::make_shared<ScreenTimeCenter*>(this))
{
    idleTime = serverIdleTime;
    // Opened on the queue, before anything else it does.
    queue_.async([record = record_, path = std::move(databasePath)] { record->store = std::make_unique<ScreenTimeStore>(path); });
    reread();
    activityWatch_ = activity_.addObserver([this] { paused(); });
}

ScreenTimeCenter::~ScreenTimeCenter()
{
    activity_.removeObserver(activityWatch_);
    flush();
    *self_ = nullptr;
}

void ScreenTimeCenter::setCounting(const std::string& holder, bool counting)
{
    if (!holders_.set(holder, counting))
        return;
    if (isCounting()) {
        windows_ = std::make_unique<X11WindowList>([this] {
            std::optional<std::string> app;
            if (auto window = windows_->activeWindow())
                for (const DesktopWindow& client : windows_->clients())
                    if (client.window == *window)
                        app = nameOf(client.facts);
            if (app != active_)
                setActive(app);
        });
        if (auto window = windows_->activeWindow())
            for (const DesktopWindow& client : windows_->clients())
                if (client.window == *window)
                    setActive(nameOf(client.facts));
    } else {
        flush();
        windows_.reset();
        active_.reset();
        since_.reset();
        flushTimer_.cancel();
    }
}

void ScreenTimeCenter::setActive(std::optional<std::string> app)
{
    flush();
    active_ = std::move(app);
    since_ = active_ && !activity_.isPaused() ? std::optional(runtime_.now()) : std::nullopt;
    armFlush();
}

void ScreenTimeCenter::paused()
{
    if (activity_.isPaused()) {
        flush();
        since_.reset();
        flushTimer_.cancel();
    } else if (active_ && !since_) {
        since_ = runtime_.now();
        armFlush();
    }
}

void ScreenTimeCenter::armFlush()
{
    if (!since_) {
        flushTimer_.cancel();
        return;
    }
    flushTimer_ = runtime_.schedule(flushInterval, TimerRepeat::repeating, Runtime::defaultTolerance(flushInterval), [this] { flush(); });
}

void ScreenTimeCenter::flush()
{
    if (!active_ || !since_)
        return;
    Date now = runtime_.now();
    Date from = *since_;
    // Away from the keyboard: only up to the last touch counts, and counting starts again at the next.
    Seconds idle = idleTime ? idleTime() : Seconds(0);
    Date to = idle >= idleAfter ? std::max(from, now - std::chrono::duration_cast<Date::duration>(idle)) : now;
    write(*active_, from, to);
    since_ = now;
}

void ScreenTimeCenter::write(const std::string& app, Date from, Date to)
{
    if (to <= from)
        return;
    // A stretch over midnight is split between the two days.
    std::vector<std::pair<std::string, double>> parts;
    while (dayKey(from) != dayKey(to)) {
        Date next = nextLocalMidnight(from);
        parts.emplace_back(dayKey(from), secondsBetween(from, next).count());
        from = next;
    }
    parts.emplace_back(dayKey(to), secondsBetween(from, to).count());
    queue_.async([record = record_, app, parts] {
        for (const auto& [day, seconds] : parts)
            record->store->add(day, app, seconds);
    });
    reread();
}

void ScreenTimeCenter::reread()
{
    std::vector<std::string> week;
    for (int back = 6; back >= 0; --back)
        week.push_back(dayKey(runtime_.now() - std::chrono::hours(24 * back)));
    std::string oldestKept = dayKey(runtime_.now() - std::chrono::hours(24 * ScreenTimeStore::keptDays));
    queue_.async([&runtime = runtime_, self = self_, record = record_, week, oldestKept] {
        ScreenTimeStore* store = record->store.get();
        Summary summary;
        summary.failure = store->isOpen() ? "" : "Screen Time can’t keep its record: " + store->failure();
        summary.today = store->day(week.back());
        summary.week = store->totals(week);
        store->forgetBefore(oldestKept);
        for (const auto& entry : summary.today)
            summary.todayTotal += entry.second;
        runtime.post([weak = std::weak_ptr<ScreenTimeCenter*>(self), summary = std::move(summary)]() mutable {
            auto self = weak.lock();
            if (!self || !*self || (*self)->summary_ == summary)
                return;
            (*self)->summary_ = std::move(summary);
            if ((*self)->onChange)
                (*self)->onChange();
        });
    });
}

} // namespace kestrune
