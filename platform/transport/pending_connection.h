// SPDX-License-Identifier: Apache-2.0
// An accepted connection before its hello is complete, or a lane that waits for its session or for room in it.
#ifndef TAVO_TRANSPORT_PENDING_CONNECTION_H
#define TAVO_TRANSPORT_PENDING_CONNECTION_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "os/fd.h"
#include "transport/event_loop.h"
#include "wire/wire.h"

namespace TAVO::Transport {

// What is done with a connection whose hello is complete.
enum class HelloResult {
    SETTLED,
    AWAITS_SESSION,  // a lane whose session is being established
    AWAITS_ROOM,     // a call lane of a peer that has as many as it may have
};

// Control thread.
class PendingConnection final : public Pollable {
public:
    static constexpr std::chrono::seconds HELLO_TIMEOUT{2};

    class Owner {
    public:
        virtual ~Owner() = default;
        // SETTLED: takes the descriptor, or the connection is to be closed. Otherwise the connection is kept, and
        // offered again by Retry.
        virtual HelloResult OnHello(ConnectionFd& fd, const Hello& hello, const PeerIdentity& identity) = 0;
        // The connection became something else, or is to be closed.
        virtual void OnSettled(PendingConnection& connection) = 0;
    };

    PendingConnection(EventLoop& loop, Owner& owner, ConnectionFd fd, const PeerIdentity& identity)
        : loop_(loop), owner_(owner), fd_(std::move(fd)), identity_(identity), deadline_(Clock::now() + HELLO_TIMEOUT)
    {
    }

    void OnReady(uint32_t events) override;
    // Offers a complete hello again.
    void Retry();
    // Ends receiving: the peer can send nothing more. Whether the hello is complete.
    bool EndInput();
    int Fd() const { return fd_.Get(); }
    bool IsComplete() const { return received_ == sizeof(Hello); }
    // Once it is complete.
    const Hello& GetHello() const { return hello_; }
    const PeerIdentity& Identity() const { return identity_; }
    Clock::time_point GetDeadline() const { return deadline_; }

private:
    EventLoop& loop_;
    Owner& owner_;
    ConnectionFd fd_;
    const PeerIdentity identity_;
    Clock::time_point deadline_;
    Hello hello_;
    size_t received_ = 0;
};

}  // namespace TAVO::Transport

#endif
