#pragma once

// The two places where starting and watching a child differs between systems. Internal to
// ChildProcess.cpp; each platform file defines these.

#include <spawn.h>
#include <sys/types.h>

#include "KestruneKit/Core/UniqueFd.h"

namespace kestrune::platform {

// Makes sure no descriptor but 0, 1 and 2 reaches the child. Returns an errno value or 0.
int closeOtherDescriptors(posix_spawn_file_actions_t& actions, posix_spawnattr_t& attributes, short& flags);

// Keeps one of 0, 1 and 2 open in the child when the stream is inherited.
int inheritDescriptor(posix_spawn_file_actions_t& actions, int fd);

// A descriptor that polls readable once the child has exited, or an invalid one where the
// system has none.
UniqueFd processExitDescriptor(pid_t pid);

} // namespace kestrune::platform
