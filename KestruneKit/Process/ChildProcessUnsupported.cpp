#include "KestruneKit/Process/ChildProcessPlatform.h"

namespace kestrune::platform {

int closeOtherDescriptors(posix_spawn_file_actions_t&, posix_spawnattr_t&, short&)
{
    // No portable way to close what a library opened without close-on-exec; the Kit's own
    // descriptors are all close-on-exec.
    return 0;
}

int inheritDescriptor(posix_spawn_file_actions_t&, int) { return 0; }

UniqueFd processExitDescriptor(pid_t) { return UniqueFd(); }

} // namespace kestrune::platform
