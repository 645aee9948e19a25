// SPDX-License-Identifier: Apache-2.0
// Descriptors of processes, which never come to mean another process as a pid may.
#ifndef TAVO_MANAGER_PIDFD_H
#define TAVO_MANAGER_PIDFD_H

#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include "os/fd.h"

namespace TAVO::Manager {

// System calls of our own: the C library's header cannot be linked from C++ in Debian 12.

// Readable once the process has ended; not open, with errno set, when there is none.
inline Transport::UniqueFd OpenPidFd(pid_t pid)
{
    return Transport::UniqueFd(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
}

inline bool SignalPidFd(const Transport::UniqueFd& process, int signal)
{
    return ::syscall(SYS_pidfd_send_signal, process.Get(), signal, nullptr, 0) == 0;
}

}  // namespace TAVO::Manager

#endif
