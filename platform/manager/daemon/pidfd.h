// SPDX-License-Identifier: Apache-2.0
// Descriptors of processes. Unlike a pid, such a descriptor never refers to another process.
#ifndef TAVO_MANAGER_PIDFD_H
#define TAVO_MANAGER_PIDFD_H

#include <sys/syscall.h>
#include <unistd.h>

#include "os/fd.h"

namespace TAVO::Manager {

// A system call of our own: the C library's header cannot be linked from C++ in Debian 12.
inline bool SignalPidFd(const Transport::UniqueFd& process, int signal)
{
    return ::syscall(SYS_pidfd_send_signal, process.Get(), signal, nullptr, 0) == 0;
}

}  // namespace TAVO::Manager

#endif
