// SPDX-License-Identifier: Apache-2.0
// Accepts connections until the queue is empty, at most 64 for each event, so that established sessions are served
// between two batches of a peer that opens many. Without a free descriptor, accept fails and the queue stays readable:
// a level-triggered epoll would report it without end (more than 200,000 wake-ups in half a second were measured). So
// the listener rests: it is polled for nothing until the owner resumes it. The waiting connections are not lost.
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
        // CLOEXEC from the start: a fork and exec on another thread must not inherit the connection. It stays blocking;
        // the functions that must not wait pass MSG_DONTWAIT.
        ConnectionFd fd(AboveStandardFds(::accept4(fd_.Get(), nullptr, nullptr, SOCK_CLOEXEC)));
        if (fd.IsOpen()) {
            owner_.OnAccepted(std::move(fd));
            continue;
        }
        if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS) {
            owner_.OnShortage(*this);
            return;
        }
        // EAGAIN: the queue is empty.
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
        // Stays registered, so that Resume needs no memory.
        loop_.ModifyPoll(fd_.Get(), 0, this);
        state_ = State::RESTING;
    }
}

}  // namespace TAVO::Transport
