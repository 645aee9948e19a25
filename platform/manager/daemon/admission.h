// SPDX-License-Identifier: Apache-2.0
// Which processes may connect to the manager while descriptors run out.
#ifndef TAVO_MANAGER_ADMISSION_H
#define TAVO_MANAGER_ADMISSION_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "manager/daemon/ability_file.h"
#include "os/runtime_dir.h"

namespace TAVO::Manager {

// Some descriptors are reserved for the manager and for services, so that services can register however many clients
// there are. Any thread, without a lock.
class Admission {
public:
    // `dir` must live as long as this. The services are those of `files`.
    Admission(const Transport::RuntimeDir& dir, const AbilityFiles& files);

    // Whether process `pid` may have the connection `fd`, with which there are `sessions` sessions (0: not known).
    // Logs a refusal.
    bool Admits(pid_t pid, int fd, size_t sessions) const;

private:
    bool IsService(pid_t pid) const;

    const Transport::RuntimeDir& dir_;
    std::vector<int32_t> ids_;  // of all abilities
};

}  // namespace TAVO::Manager

#endif
