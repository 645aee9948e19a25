// SPDX-License-Identifier: Apache-2.0
// A listening socket of the control thread.
#ifndef TAVO_TRANSPORT_LISTENER_H
#define TAVO_TRANSPORT_LISTENER_H

#include <cstddef>
#include <cstdint>
#include <utility>

#include "os/fd.h"
#include "transport/event_loop.h"

namespace TAVO::Transport {

class Listener final : public Pollable {
public:
    enum class State { NEW, ACCEPTING, RESTING };  // NEW: not polled yet

    class Owner {
    public:
        virtual ~Owner() = default;
        virtual void OnAccepted(ConnectionFd fd) = 0;
        // No descriptor or memory is left for a waiting connection.
        virtual void OnShortage(Listener& listener) noexcept = 0;
    };

    Listener(EventLoop& loop, Owner& owner, UniqueFd fd) : loop_(loop), owner_(owner), fd_(std::move(fd)) {}

    void OnReady(uint32_t events) override;
    // Accepts waiting connections, at most `most`.
    void Accept(size_t most);
    // Starts or resumes accepting; false if out of memory.
    bool Resume() noexcept;
    // Stops accepting for a while. Allocates nothing.
    void Rest() noexcept;
    State GetState() const noexcept { return state_; }

private:
    EventLoop& loop_;
    Owner& owner_;
    const UniqueFd fd_;
    State state_ = State::NEW;
};

}  // namespace TAVO::Transport

#endif
