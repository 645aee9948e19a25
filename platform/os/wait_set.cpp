// SPDX-License-Identifier: Apache-2.0
#include "os/wait_set.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <cstdint>
#include <utility>

namespace TAVO::Transport {

bool WaitSet::Open() noexcept
{
    if (epoll_.IsOpen()) {
        return true;
    }
    UniqueFd epoll(AboveStandardFds(::epoll_create1(EPOLL_CLOEXEC)));
    // As a semaphore each read takes one unit, so each signal wakes up one worker; otherwise one read takes all.
    UniqueFd ready(
        AboveStandardFds(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC | (jobs_ == Jobs::ONE ? EFD_SEMAPHORE : 0))));
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.ptr = nullptr;
    if (!epoll.IsOpen() || !ready.IsOpen() || ::epoll_ctl(epoll.Get(), EPOLL_CTL_ADD, ready.Get(), &event) != 0) {
        return false;
    }
    // Both or neither: a failure above leaves nothing open, and the next call tries again.
    epoll_ = std::move(epoll);
    ready_ = std::move(ready);
    return true;
}

void WaitSet::Signal() const noexcept
{
    const uint64_t one = 1;
    // Fails only when 2^64 - 2 signals are unread.
    [[maybe_unused]] const ssize_t written = ::write(ready_.Get(), &one, sizeof(one));
}

bool WaitSet::Take() const noexcept
{
    uint64_t units = 0;
    return ::read(ready_.Get(), &units, sizeof(units)) == sizeof(units);
}

}  // namespace TAVO::Transport
