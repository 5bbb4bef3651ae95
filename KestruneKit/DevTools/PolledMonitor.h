#pragma once

// OVERVIEW
// A developer monitor whose whole state is one blocking reading, taken again every `interval`
// while a tile or card wants it: the reading runs on the monitor's own queue, one at a time, and
// replaces the last on the main thread when it differs. Actions run on the same queue, so they
// never overlap a reading, and a reading follows each.
//
// TYPICAL USAGE
//   class DevServersMonitor : public PolledMonitor<std::vector<DevServer>> { ... };
//   monitor.onChange = [&] { redraw(*monitor.reading()); };
//   monitor.poller().setWanted(tileId, true);
//
// Main thread only; `read` and the actions' work run on the queue.

#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "KestruneKit/Core/Runtime.h"
#include "KestruneKit/Core/SerialQueue.h"
#include "KestruneKit/DevTools/DevPoller.h"
#include "KestruneKit/DevTools/KestruneActivity.h"

namespace kestrune {

template <typename Reading>
class PolledMonitor {
public:
    PolledMonitor(Runtime& runtime, KestruneActivity& activity, Seconds interval, std::function<Reading()> read)
        : runtime_(runtime), activity_(activity), interval_(interval), read_(std::move(read)), self_(std::make_shared<PolledMonitor*>(this))
    {
    }
    ~PolledMonitor() { *self_ = nullptr; }
    PolledMonitor(const PolledMonitor&) = delete;
    PolledMonitor& operator=(const PolledMonitor&) = delete;

    // None until the first reading.
    [[nodiscard]] const std::optional<Reading>& reading() const { return reading_; }

    // Created on first use.
    [[nodiscard]] DevPoller& poller()
    {
        if (!poller_)
            poller_ = std::make_unique<DevPoller>(runtime_, activity_, interval_, [this] { refresh(); });
        return *poller_;
    }

    void refresh()
    {
        // One reading at a time: a slow one is not stacked up behind itself.
        if (std::exchange(underWay_, true))
            return;
        std::weak_ptr<PolledMonitor*> weak = self_;
        queue_.async([weak, &runtime = runtime_, read = read_] {
            Reading reading = read();
            runtime.post([weak, reading = std::move(reading)]() mutable {
                if (auto self = weak.lock(); self && *self)
                    (*self)->apply(std::move(reading));
            });
        });
    }

    // Runs `work` on the queue, hands its result to `done` on the main thread (unless the monitor
    // is gone by then) and reads again.
    template <typename Result>
    void perform(std::function<Result()> work, std::function<void(Result)> done)
    {
        std::weak_ptr<PolledMonitor*> weak = self_;
        queue_.async([weak, &runtime = runtime_, work = std::move(work), done = std::move(done)] {
            Result result = work();
            runtime.post([weak, done, result = std::move(result)]() mutable {
                auto self = weak.lock();
                if (!self || !*self)
                    return;
                (*self)->refresh();
                if (done)
                    done(std::move(result));
            });
        });
    }

    // Called on the main thread when the reading changed.
    std::function<void()> onChange;

private:
    void apply(Reading reading)
    {
        underWay_ = false;
        if (reading_ == reading)
            return;
        reading_ = std::move(reading);
        if (onChange)
            onChange();
    }

    Runtime& runtime_;
    KestruneActivity& activity_;
    Seconds interval_;
    std::function<Reading()> read_;
    std::optional<Reading> reading_;
    bool underWay_ = false;
    std::unique_ptr<DevPoller> poller_;
    // Posted results check it, so none lands after the monitor is gone.
    std::shared_ptr<PolledMonitor*> self_;
    // Last, so it is stopped (its running task finished) before anything it uses goes.
    SerialQueue queue_;
};

} // namespace kestrune
