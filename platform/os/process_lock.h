// SPDX-License-Identifier: Apache-2.0
// A file lock that belongs to a process: held until it ends, seen by others without being touched.
#ifndef TAVO_OS_PROCESS_LOCK_H
#define TAVO_OS_PROCESS_LOCK_H

#include <sys/types.h>

#include <string>

#include "os/fd.h"

namespace TAVO::Transport {

// Deliberate: a record lock of the process and not flock. A child that a service forks would share its parent's flock
// and keep a dead service's place taken; and to ask whether a flock is held one has to take it, which could make a
// service that registers at that moment fail. The price: the process must open the file of a lock that it holds
// nowhere else, since any close of that file would drop the lock.
class ProcessLock {
public:
    ProcessLock() = default;

    // Takes the lock on the file `name` in `dirFd`, making the file if need be. False with errno set: EAGAIN when
    // another process holds it.
    bool Take(int dirFd, const std::string& name);
    bool IsHeld() const noexcept { return file_.IsOpen(); }

    static constexpr pid_t NOBODY = 0;
    static constexpr pid_t UNKNOWN_HOLDER = -1;  // a process that has no pid here
    static constexpr pid_t CANNOT_TELL = -2;     // the file cannot be looked at, perhaps because no descriptor is left
    // Who holds the lock, not counting this process. Never call it for a lock of one's own: that would drop it.
    static pid_t Holder(int dirFd, const std::string& name);
    // Whether it is certain that no process holds the lock: false also when the file cannot be looked at. As Holder,
    // never for a lock of one's own.
    static bool IsFree(int dirFd, const std::string& name);

private:
    UniqueFd file_;  // open while the lock is held
};

}  // namespace TAVO::Transport

#endif
