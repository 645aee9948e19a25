// SPDX-License-Identifier: Apache-2.0
// A file lock that belongs to a process: held until the process ends, and visible to other processes.
#ifndef TAVO_OS_PROCESS_LOCK_H
#define TAVO_OS_PROCESS_LOCK_H

#include <sys/types.h>

#include <string>

#include "os/fd.h"

namespace TAVO::Transport {

// Deliberate: a record lock of the process and not flock. A child that a service forks would share its parent's flock
// and keep a dead service's lock held. And whether a flock is held can be found out only by taking it, which could make
// a service that registers at that moment fail. The price: the process must open the file of a lock that it holds
// nowhere else, since any close of that file would drop the lock.
class ProcessLock {
public:
    ProcessLock() = default;

    // Takes the lock on the file `name` in `dirFd`, and creates the file if it is missing. False with errno set: EAGAIN
    // when another process holds it.
    bool Take(int dirFd, const std::string& name);
    bool IsHeld() const noexcept { return file_.IsOpen(); }

    static constexpr pid_t NOBODY = 0;
    static constexpr pid_t UNKNOWN_HOLDER = -1;  // a process that has no pid here
    static constexpr pid_t CANNOT_TELL = -2;     // the file cannot be opened, perhaps because no descriptor is left
    // The process that holds the lock, this one not included. Never call it for a lock that this process holds: that
    // would release it.
    static pid_t Holder(int dirFd, const std::string& name);
    // Whether it is certain that no process holds the lock: false also if the file cannot be opened. As Holder, never
    // for a lock that this process holds.
    static bool IsFree(int dirFd, const std::string& name);

private:
    UniqueFd file_;  // open while the lock is held
};

}  // namespace TAVO::Transport

#endif
