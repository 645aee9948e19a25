// SPDX-License-Identifier: Apache-2.0
// The time by which the peer of a lane must finish a message: set and cleared by the thread that has the lane, checked
// by the control thread, without a lock.
#ifndef TAVO_TRANSPORT_PEER_DEADLINE_H
#define TAVO_TRANSPORT_PEER_DEADLINE_H

#include <atomic>
#include <chrono>
#include <cstdint>

#include "transport/lane_key.h"

namespace TAVO::Transport {

class PeerDeadline {
public:
    // A request that stays incomplete this long, or a reply that is not read, ends the lane.
    static constexpr std::chrono::seconds TIMEOUT{8};

    // The lane's thread: the peer has TIMEOUT from now on. A deadline that is set already stays: a peer that sends one
    // byte a second does not extend it. True when the lane is not watched yet; the caller must then have the timers
    // watch it, so they have one entry at a time, however often the lane waits.
    bool Set()
    {
        if (ends_.load(std::memory_order_relaxed) != 0) {
            return false;
        }
        // In one order with the look at isWatched_, as Check looks at the two the other way round.
        ends_.store((Clock::now() + TIMEOUT).time_since_epoch().count());
        return !isWatched_.exchange(true);
    }
    // The lane's thread: the message is complete.
    void Clear() { ends_.store(0, std::memory_order_relaxed); }

    enum class Outcome {
        WATCH,   // call Check again later
        LEAVE,   // no deadline is set; the next Set asks for a watch again
        EXPIRED  // the lane must end
    };
    // The control thread, while the lane is watched.
    Outcome Check(Clock::time_point now)
    {
        const int64_t ends = ends_.load(std::memory_order_relaxed);
        if (ends != 0 && now.time_since_epoch().count() < ends) {
            return Outcome::WATCH;
        }
        // Sequentially consistent, as are the load and the exchange below: with Set on another thread, which stores the
        // deadline before it looks at isWatched_, at least one of the two sees the other.
        isWatched_.store(false);
        if (ends != 0) {
            return Outcome::EXPIRED;
        }
        // Set may have run in between, seen that the lane is watched, and relied on that.
        return ends_.load() != 0 && !isWatched_.exchange(true) ? Outcome::WATCH : Outcome::LEAVE;
    }

private:
    std::atomic<int64_t> ends_{0};  // steady clock ticks; 0: not waiting for the peer to finish something
    std::atomic<bool> isWatched_{false};
};

}  // namespace TAVO::Transport

#endif
