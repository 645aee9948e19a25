// SPDX-License-Identifier: Apache-2.0
// Starts the program of an ability.
#ifndef TAVO_MANAGER_SPAWN_H
#define TAVO_MANAGER_SPAWN_H

#include <sys/types.h>

#include "manager/daemon/ability_file.h"
#include "os/fd.h"

namespace TAVO::Manager {

struct StartedProcess {
    pid_t pid = 0;
    Transport::UniqueFd pidFd;  // not open: it could not be started, and `error` is an errno value
    int error = 0;
};

// In a session of its own, with default signal handling, no stdin, and the manager's environment, output and working
// directory; no other descriptor is passed on. Blocks while the file system of the program does not answer.
StartedProcess Spawn(const AbilityFile& ability);

}  // namespace TAVO::Manager

#endif
