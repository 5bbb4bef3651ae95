#include "KestruneKit/Process/ChildOutput.h"

#include <array>
#include <cerrno>

#include <poll.h>
#include <unistd.h>

#include "KestruneKit/Core/UniqueFd.h"
#include "KestruneKit/Process/ChildProcess.h"

namespace kestrune {

namespace {

constexpr size_t chunkSize = 64 * 1024;
// After the exit, a grandchild may still be writing into the same pipe; take what the child
// left (a pipe holds 64 KiB by default, up to 1 MiB when enlarged) and no more.
constexpr size_t drainLimit = 1024 * 1024;

enum class ReadResult { data, empty, closed };

ReadResult readOnce(const OutputSource& source, std::array<char, chunkSize>& buffer)
{
    for (;;) {
        ssize_t count = ::read(source.fd, buffer.data(), buffer.size());
        if (count > 0) {
            source.sink(std::string_view(buffer.data(), static_cast<size_t>(count)));
            return ReadResult::data;
        }
        if (count == 0)
            return ReadResult::closed;
        if (errno == EINTR)
            continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK)
            return ReadResult::empty;
        return ReadResult::closed;
    }
}

void drain(const OutputSource& source, std::array<char, chunkSize>& buffer)
{
    for (size_t taken = 0; taken < drainLimit; taken += chunkSize) {
        if (readOnce(source, buffer) != ReadResult::data)
            return;
    }
}

} // namespace

OutputEnd readOutput(ChildProcess& child, const std::vector<OutputSource>& sources,
                     std::optional<std::chrono::steady_clock::time_point> deadline)
{
    std::array<char, chunkSize> buffer;
    std::vector<const OutputSource*> open;
    for (const auto& source : sources) {
        if (source.fd >= 0 && setNonBlocking(source.fd))
            open.push_back(&source);
    }
    int exitFd = child.exitEventFd();

    auto drainAll = [&] {
        for (const auto* source : open)
            drain(*source, buffer);
    };

    std::vector<pollfd> fds;
    for (;;) {
        int timeout = -1;
        if (deadline) {
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(*deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0)
                return OutputEnd::deadlinePassed;
            // Round up, so a wake-up a little early does not spin.
            timeout = static_cast<int>(std::min<long long>(left.count() + 1, 60 * 60 * 1000));
        }
        // With no descriptor to watch the exit, fall back to looking every 50 ms.
        if (exitFd < 0)
            timeout = timeout < 0 ? 50 : std::min(timeout, 50);

        fds.clear();
        for (const auto* source : open)
            fds.push_back({ source->fd, POLLIN, 0 });
        if (exitFd >= 0)
            fds.push_back({ exitFd, POLLIN, 0 });

        int ready = ::poll(fds.data(), fds.size(), timeout);
        if (ready < 0 && errno != EINTR)
            return child.hasExited() ? OutputEnd::childExited : OutputEnd::deadlinePassed;

        bool exited = exitFd >= 0 ? (fds.back().revents != 0) : child.hasExited();
        if (exited) {
            drainAll();
            return OutputEnd::childExited;
        }
        if (ready <= 0)
            continue;
        for (size_t i = 0; i < open.size();) {
            if (fds[i].revents != 0 && readOnce(*open[i], buffer) == ReadResult::closed) {
                open.erase(open.begin() + static_cast<std::ptrdiff_t>(i));
                fds.erase(fds.begin() + static_cast<std::ptrdiff_t>(i));
                continue;
            }
            ++i;
        }
    }
}

} // namespace kestrune
