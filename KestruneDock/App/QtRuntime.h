#pragma once
// The Kit's Runtime on Qt's event loop: posted work is a queued call on the main thread, timers are
// QTimers. A timer's tolerance chooses how coarse it may be, so that idle timers of many monitors
// fall together into few wake-ups: none asks for a precise timer, up to a second for a coarse one
// (Qt lets it slip 5 %), a second or more for a very coarse one (whole seconds).
//
//   QtRuntime runtime;                          // after the QApplication, on its thread
//   DockStore store(preferences, workspace, runtime);
//
// Construct and use on the main thread; `post` is callable from any thread.

#include <QObject>
#include <QPointer>
#include <Qt>

#include "KestruneKit/Core/Runtime.h"

namespace kestrune {

class QtRuntime final : public Runtime {
public:
    QtRuntime();
    ~QtRuntime() override;

    [[nodiscard]] Date now() const override;
    void post(std::function<void()> fn) override;
    [[nodiscard]] TimerHandle schedule(Seconds delay, TimerRepeat repeat, Seconds tolerance,
                                       std::function<void()> fn) override;

    [[nodiscard]] static Qt::TimerType timerType(Seconds tolerance);
    // Timers that can still fire; an idle dock has few.
    [[nodiscard]] int liveTimers() const;

private:
    // Owns the timers and receives the posted calls; lives on the main thread.
    QPointer<QObject> context_;
};

} // namespace kestrune
