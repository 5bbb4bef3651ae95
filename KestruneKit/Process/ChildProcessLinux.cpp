#include "KestruneKit/Process/ChildProcessPlatform.h"

#include <sys/syscall.h>
#include <unistd.h>

namespace kestrune::platform {

int closeOtherDescriptors(posix_spawn_file_actions_t& actions, posix_spawnattr_t&, short&)
{
    return ::posix_spawn_file_actions_addclosefrom_np(&actions, 3);
}

int inheritDescriptor(posix_spawn_file_actions_t&, int)
{
    // 0, 1 and 2 stay open across the close-from action.
    return 0;
}

UniqueFd processExitDescriptor(pid_t pid)
{
#if defined(SYS_pidfd_open)
    // Older kernels answer ENOSYS; the caller then watches with a thread.
    long fd = ::syscall(SYS_pidfd_open, pid, 0);
    if (fd >= 0)
        return UniqueFd(static_cast<int>(fd));
#else
    (void)pid;
#endif
    return UniqueFd();
}

} // namespace kestrune::platform
