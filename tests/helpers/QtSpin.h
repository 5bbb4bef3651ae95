#pragma once
// Runs the Qt event loop until a condition holds, for the application's tests.

#include <functional>

#include <QCoreApplication>
#include <QElapsedTimer>

namespace kestrune::test {

// True once `done` holds; false after `milliseconds` of real time without it.
inline bool spinUntil(const std::function<bool()>& done, int milliseconds = 10000)
{
    QElapsedTimer clock;
    clock.start();
    while (!done() && clock.elapsed() < milliseconds)
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 20);
    return done();
}

} // namespace kestrune::test
