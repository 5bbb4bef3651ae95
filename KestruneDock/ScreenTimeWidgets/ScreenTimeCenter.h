#pragma once
// OVERVIEW
// Screen Time's counting: how long each app is the active one, by the window manager's active
// window (followed through its property changes, nothing polled), not counting while the session
// is paused (locked, asleep, displays off) nor time the user has been away from the keyboard and
// mouse. Seconds are written to the day's record when the active app changes, when the user goes
// idle, every five minutes while counting, and when counting stops. It counts while a Screen Time
// widget is in the row, shown or not, since the day's figure must be whole when it is looked at.
//
// TYPICAL USAGE
//   ScreenTimeCenter center(runtime, applicationSupport + "/screen-time.sqlite");
//   center.onChange = [&] { redraw(center.summary()); };
//   center.setCounting(tileId, true);
//
// Main thread only; the record is written and read on the center's own queue.

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "KestruneKit/Core/Holders.h"
#include "KestruneDock/Desktop/WindowMatcher.h"
#include "KestruneKit/Core/Runtime.h"
#include "KestruneKit/Core/SerialQueue.h"

namespace kestrune {

class KestruneActivity;
class ScreenTimeStore;
class X11WindowList;

class ScreenTimeCenter {
public:
    static constexpr Seconds flushInterval { 300 };
    // Away from the keyboard and mouse this long, the stretch since the last input is not counted.
    static constexpr Seconds idleAfter { 300 };

    struct Summary {
        std::vector<std::pair<std::string, double>> today;  // longest first
        std::vector<std::pair<std::string, double>> week;   // the last seven days, oldest first
        double todayTotal = 0;
        std::string failure;
        bool operator==(const Summary&) const = default;
    };

    ScreenTimeCenter(Runtime& runtime, std::string databasePath, KestruneActivity& activity);
    ~ScreenTimeCenter();
    ScreenTimeCenter(const ScreenTimeCenter&) = delete;
    ScreenTimeCenter& operator=(const ScreenTimeCenter&) = delete;

    void setCounting(const std::string& holder, bool counting);
    [[nodiscard]] bool isCounting() const { return holders_.any(); }
    // Read from the record, with the stretch not yet written added.
    [[nodiscard]] const Summary& summary() const { return summary_; }
    std::function<void()> onChange;

    // The active app changed (none: no window is active). Called by the window watch; tests call
    // it directly.
    void setActive(std::optional<std::string> app);
    // How long since the user last touched keyboard or mouse; asked when a stretch is written.
    std::function<Seconds()> idleTime;
    // The name of a window's app as the desktop shows it, empty when unknown; the window's class
    // (else its instance, else its program) names it then.
    std::function<std::string(const WindowFacts&)> nameApplication;
    [[nodiscard]] std::string nameOf(const WindowFacts& window) const;
    // Writes the running stretch now.
    void flush();

    [[nodiscard]] static std::string dayKey(Date moment);

private:
    void paused();
    void write(const std::string& app, Date from, Date to);
    void reread();
    void armFlush();

    Runtime& runtime_;
    KestruneActivity& activity_;
    uint64_t activityWatch_ = 0;
    Holders holders_;
    std::unique_ptr<X11WindowList> windows_;
    std::optional<std::string> active_;
    std::optional<Date> since_;
    TimerHandle flushTimer_;
    Summary summary_;
    // The record, used only on the queue.
    struct Record;
    std::shared_ptr<Record> record_;
    std::shared_ptr<ScreenTimeCenter*> self_;
    // Last, so that writes under way finish before anything they use goes.
    SerialQueue queue_;
};

} // namespace kestrune
