#include "KestruneDock/App/SignalWatch.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>

#include <QSocketNotifier>

namespace kestrune {

namespace {

std::atomic<int> writeEnd { -1 };

void onSignal(int signal)
{
    int saved = errno;
    int fd = writeEnd.load();
    if (fd >= 0) {
        unsigned char byte = static_cast<unsigned char>(signal);
        // A full pipe already holds a signal that will end the app; losing this one is harmless.
        [[maybe_unused]] ssize_t ignored = ::write(fd, &byte, 1);
    }
    errno = saved;
}

} // namespace

SignalWatch::SignalWatch(std::vector<int> signals, std::function<void(int)> received)
    : signals_(std::move(signals)), received_(std::move(received))
{
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    pipe_.read.reset(fds[0]);
    pipe_.write.reset(fds[1]);
    writeEnd = pipe_.write.get();
    notifier_ = std::make_unique<QSocketNotifier>(pipe_.read.get(), QSocketNotifier::Read);
    QObject::connect(notifier_.get(), &QSocketNotifier::activated, [this] { drain(); });
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int signal : signals_)
        ::sigaction(signal, &action, nullptr);
}

SignalWatch::~SignalWatch()
{
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    for (int signal : signals_)
        ::sigaction(signal, &action, nullptr);
    writeEnd = -1;
}

void SignalWatch::drain()
{
    unsigned char buffer[64];
    ssize_t count;
    while ((count = ::read(pipe_.read.get(), buffer, sizeof buffer)) > 0)
        for (ssize_t index = 0; index < count; ++index)
            received_(buffer[index]);
}

} // namespace kestrune
