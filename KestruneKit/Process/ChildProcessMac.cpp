#include "KestruneKit/Process/ChildProcessPlatform.h"

#include <sys/event.h>
#include <unistd.h>

namespace kestrune::platform {

int closeOtherDescriptors(posix_spawn_file_actions_t&, posix_spawnattr_t&, short& flags)
{
    // Every descriptor the file actions do not name is closed in the child; the dup2 actions
    // onto 0, 1 and 2 keep those three.
    flags |= POSIX_SPAWN_CLOEXEC_DEFAULT;
    return 0;
}

int inheritDescriptor(posix_spawn_file_actions_t& actions, int fd)
{
    return ::posix_spawn_file_actions_addinherit_np(&actions, fd);
}

UniqueFd processExitDescriptor(pid_t pid)
{
    UniqueFd queue(::kqueue());
    if (!queue)
        return UniqueFd();
    struct kevent change;
    EV_SET(&change, pid, EVFILT_PROC, EV_ADD | EV_ONESHOT, NOTE_EXIT, 0, nullptr);
    if (::kevent(queue.get(), &change, 1, nullptr, 0, nullptr) != 0)
        return UniqueFd();
    // A kqueue descriptor polls readable while an event is pending.
    return queue;
}

} // namespace kestrune::platform
