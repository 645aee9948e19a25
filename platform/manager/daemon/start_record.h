// SPDX-License-Identifier: Apache-2.0
// A file with the process that was started last for an ability, so that a manager recognises those of its predecessor.
#ifndef TAVO_MANAGER_START_RECORD_H
#define TAVO_MANAGER_START_RECORD_H

#include <sys/types.h>

#include <cstdint>

#include "os/runtime_dir.h"

namespace TAVO::Manager {

// Replaces the record of the ability. False when it cannot be written; a manager that starts later then refuses the
// process.
bool WriteStartRecord(const Transport::RuntimeDir& dir, int32_t systemAbilityId, pid_t pid);

// The recorded process if it still lives, else 0. A later process with the same pid does not count.
pid_t RecordedProcess(const Transport::RuntimeDir& dir, int32_t systemAbilityId);

}  // namespace TAVO::Manager

#endif
