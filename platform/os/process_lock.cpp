// SPDX-License-Identifier: Apache-2.0
// Record locks over the whole file, taken without waiting and queried without taking.
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

// Tells the lock that stands in the way, F_UNLCK when none does. False with errno set when the file cannot be looked
// at.
bool Look(int dirFd, const std::string& name, struct flock& lock)
{
    const UniqueFd file(::openat(dirFd, name.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC));
    lock = WholeFile();
    return file.IsOpen() && ::fcntl(file.Get(), F_GETLK, &lock) == 0;
}

}  // namespace

bool ProcessLock::Take(int dirFd, const std::string& name)
{
    UniqueFd file(::openat(dirFd, name.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
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
    return lock.l_pid > 0 ? lock.l_pid : UNKNOWN_HOLDER;
}

bool ProcessLock::IsFree(int dirFd, const std::string& name)
{
    struct flock lock {};
    return Look(dirFd, name, lock) && lock.l_type == F_UNLCK;
}

}  // namespace TAVO::Transport
