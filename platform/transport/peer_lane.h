// SPDX-License-Identifier: Apache-2.0
// A lane that the peer opened: the interface for the table that has it, the epolls that wake it up and the timers.
#ifndef TAVO_TRANSPORT_PEER_LANE_H
#define TAVO_TRANSPORT_PEER_LANE_H

#include <atomic>
#include <cstdint>
#include <memory>

#include "transport/lane_key.h"
#include "wire/wire.h"

namespace TAVO::Transport {

class PeerLane : public std::enable_shared_from_this<PeerLane> {
public:
    PeerLane(ConnectionKind kind, uint64_t number) : kind_(kind), number_(number) {}
    virtual ~PeerLane() = default;
    PeerLane(const PeerLane&) = delete;
    PeerLane& operator=(const PeerLane&) = delete;

    uint64_t Number() const noexcept { return number_; }
    ConnectionKind Kind() const noexcept { return kind_; }
    bool IsCallLane() const noexcept { return kind_ == ConnectionKind::CALL_LANE; }
    // The number of the last message that was accepted from it.
    uint64_t LastTaken() const noexcept { return lastTaken_.load(std::memory_order_acquire); }
    void SetLastTaken(uint64_t number) noexcept { lastTaken_.store(number, std::memory_order_release); }

    // Begins to wait for requests in `epoll`. The lane keeps itself alive until it is closed.
    virtual void Join(int epoll) = 0;
    // Handles what has arrived, after the epoll reported `events` for the lane.
    virtual void Serve(uint32_t events) = 0;
    // Any thread: wakes the lane up for its end.
    virtual void ShutDown() noexcept = 0;

    // Control thread: ends the lane if the peer has not finished a message in time. False when it needs no watching.
    virtual bool CheckDeadline(Clock::time_point now) = 0;
    // Control thread: has a lane that waited for the byte budget look at its socket again.
    virtual void Rearm() = 0;
    // Control thread: frees a ring that was not used since `before`. A ring that the sender had accepted ends its lane,
    // and the sender opens another. True while there is a ring.
    virtual bool EndIdleRing(Clock::time_point before) = 0;

private:
    const ConnectionKind kind_;
    const uint64_t number_;
    std::atomic<uint64_t> lastTaken_{0};  // for one-way lanes written under the lock of HeldObjects
};

}  // namespace TAVO::Transport

#endif
