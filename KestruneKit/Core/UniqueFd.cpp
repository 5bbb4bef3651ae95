#include "KestruneKit/Core/UniqueFd.h"

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace kestrune {

void UniqueFd::reset(int fd)
{
    int old = std::exchange(fd_, fd);
    // close() is not retried on EINTR: on Linux and macOS the descriptor is gone either way,
    // and a retry could close a descriptor another thread has just been given.
    if (old >= 0)
        ::close(old);
}

int makePipe(PipeEnds& ends)
{
    int fds[2];
#if defined(__linux__)
    if (::pipe2(fds, O_CLOEXEC) != 0)
        return errno;
#else
    if (::pipe(fds) != 0)
        return errno;
    ::fcntl(fds[0], F_SETFD, FD_CLOEXEC);
    ::fcntl(fds[1], F_SETFD, FD_CLOEXEC);
#endif
    ends.read.reset(fds[0]);
    ends.write.reset(fds[1]);
    return 0;
}

bool setNonBlocking(int fd)
{
    int flags = ::fcntl(fd, F_GETFL);
    return flags >= 0 && ::fcntl(fd, F_SETFL, flags | O_NONBLOCK) == 0;
}

} // namespace kestrune
