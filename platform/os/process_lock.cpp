// SPDX-License-Identifier: Apache-2.0
// Record locks (fcntl) over the whole file, acquired without waiting and queried without acquiring. They belong to the
// process: a forked child does not have them, the kernel releases them when the process ends, and F_GETLK names their
// holder. But the kernel also releases them when the process closes any descriptor of the file. So a process never
// opens the file of a lock that it holds, except in ProcessLock::Take.
#include "os/process_lock.h"

#include <fcntl.h>

#include <cerrno>
#include <utility>

namespace TAVO::Transport {
namespace {

struct flock WholeFile()
{
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return lock;
}

// Returns in `lock` the lock of another process, or F_UNLCK if there is none. False with errno set if the file cannot
// be opened.
bool Look(int dirFd, const std::string& name, struct flock& lock)
{
    const UniqueFd file(::openat(dirFd, name.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC));
    lock = WholeFile();
    return file.IsOpen() && ::fcntl(file.Get(), F_GETLK, &lock) == 0;
}

}  // namespace

bool ProcessLock::Take(int dirFd, const std::string& name)
{
    // Before the lock is acquired: the original descriptor is closed there, which would release it.
    UniqueFd file(AboveStandardFds(::openat(dirFd, name.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600)));
    if (!file.IsOpen()) {
        return false;
    }
    struct flock lock = WholeFile();
    if (::fcntl(file.Get(), F_SETLK, &lock) != 0) {
        const int reason = errno == EACCES ? EAGAIN : errno;  // Both mean that it is held.
        file.Reset();
        errno = reason;
        return false;
    }
    file_ = std::move(file);
    return true;
}

pid_t ProcessLock::Holder(int dirFd, const std::string& name)
{
    struct flock lock {};
    if (!Look(dirFd, name, lock)) {
        return errno == ENOENT ? NOBODY : CANNOT_TELL;
    }
    if (lock.l_type == F_UNLCK) {
        return NOBODY;
    }
    // 0 or -1: the holder is in another pid namespace.
    return lock.l_pid > 0 ? lock.l_pid : UNKNOWN_HOLDER;
}

bool ProcessLock::IsFree(int dirFd, const std::string& name)
{
    struct flock lock {};
    return Look(dirFd, name, lock) && lock.l_type == F_UNLCK;
}

}  // namespace TAVO::Transport
