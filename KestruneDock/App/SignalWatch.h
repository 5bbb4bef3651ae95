#pragma once
// SIGTERM, SIGINT and SIGHUP brought into the event loop: the handler only writes the signal's
// number into a pipe (all it may safely do), and the loop reads it and ends the app the ordinary
// way, through the termination sequence.
//
//   SignalWatch watch({ SIGTERM, SIGINT, SIGHUP }, [](int signal) { app.quit(); });
//
// One per process; main thread only.

#include <functional>
#include <memory>
#include <vector>

#include "KestruneKit/Core/UniqueFd.h"

class QSocketNotifier;

namespace kestrune {

class SignalWatch {
public:
    SignalWatch(std::vector<int> signals, std::function<void(int signal)> received);
    ~SignalWatch();
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

private:
    void drain();

    std::vector<int> signals_;
    std::function<void(int)> received_;
    PipeEnds pipe_;
    std::unique_ptr<QSocketNotifier> notifier_;
};

} // namespace kestrune
