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
    UniqueFd ready(AboveStandardFds(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)));
    epoll_event event{};
    // Edge-triggered: each write is an event of its own, so the eventfd need not be read, and one thread wakes up for
    // it, not all that wait.
    event.events = EPOLLIN | EPOLLET;
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
    // Fails only after 2^64 - 2 signals.
    [[maybe_unused]] const ssize_t written = ::write(ready_.Get(), &one, sizeof(one));
}

}  // namespace TAVO::Transport
