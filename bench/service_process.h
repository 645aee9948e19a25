// SPDX-License-Identifier: Apache-2.0
// The process of the service: finding it, killing it, and what it uses.
#ifndef VELTRA_BENCH_SERVICE_PROCESS_H
#define VELTRA_BENCH_SERVICE_PROCESS_H

#include <sys/types.h>

#include "tavo/isystem_ability_manager.h"

namespace Bench {

// The service as the manager knows it.
TAVO::AbilityDescription DescribeService();

// The control ability. The service registers it a moment after its main ability, and then has the descriptor of one more
// lock.
TAVO::sptr<TAVO::IRemoteObject> AwaitControl();

// Kills the service; returns once its process has ended. Does nothing when it is not running.
void KillService();

// The same, and waits until both the manager and this process have noticed: the next call starts another.
void EndService();

// Anonymous memory of a process, in bytes.
double MemoryOf(pid_t process);

// Open descriptors of a process.
double DescriptorsOf(pid_t process);

}  // namespace Bench

#endif
