// SPDX-License-Identifier: Apache-2.0
#include "transport/listener.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <cerrno>
#include <new>

namespace TAVO::Transport {
namespace {

constexpr size_t ACCEPTS_PER_TURN = 64;

}  // namespace

void Listener::OnReady(uint32_t)
{
    Accept(ACCEPTS_PER_TURN);
}

void Listener::Accept(size_t most)
{
    for (size_t turn = 0; turn < most; ++turn) {
        ConnectionFd fd(AboveStandardFds(::accept4(fd_.Get(), nullptr, nullptr, SOCK_CLOEXEC)));
        if (fd.IsOpen()) {
            owner_.OnAccepted(std::move(fd));
            continue;
        }
        if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS) {
            owner_.OnShortage(*this);
            return;
        }
        if (errno != EINTR && errno != ECONNABORTED) {
            return;
        }
    }
}

bool Listener::Resume() noexcept
try {
    const bool isPolled =
        state_ == State::NEW ? loop_.AddPoll(fd_.Get(), EPOLLIN, this) : loop_.ModifyPoll(fd_.Get(), EPOLLIN, this);
    if (isPolled) {
        state_ = State::ACCEPTING;
    }
    return isPolled;
} catch (const std::bad_alloc&) {
    return false;
}

void Listener::Rest() noexcept
{
    if (state_ == State::ACCEPTING) {
        loop_.ModifyPoll(fd_.Get(), 0, this);
        state_ = State::RESTING;
    }
}

}  // namespace TAVO::Transport
