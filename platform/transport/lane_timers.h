// SPDX-License-Identifier: Apache-2.0
// Timers of lanes: looking at a socket again, ending a lane after a timeout, sending the rest of a request.
#ifndef TAVO_TRANSPORT_LANE_TIMERS_H
#define TAVO_TRANSPORT_LANE_TIMERS_H

#include <atomic>
#include <memory>
#include <utility>
#include <vector>

#include "transport/event_loop.h"
#include "transport/peer_lane.h"
#include "transport/session_table.h"

namespace TAVO::Transport {

class LaneTimers final : public LoopPart {
public:
    LaneTimers(EventLoop& loop, SessionTable& sessions) : loop_(loop), sessions_(sessions) {}

    // ---- Any thread
    // Has a lane look at its socket again in a moment, when the byte budget may allow more.
    void RetryLater(const std::shared_ptr<PeerLane>& lane);
    // Ends the lane if its peer does not finish a message in time.
    void WatchDeadline(const std::shared_ptr<PeerLane>& lane);
    // Sends the rest of a one-way request as soon as there is room. False if out of memory.
    bool FlushLater(const std::shared_ptr<Session>& session, ConnectionKind kind);
    // Some session has an idle lane, to be closed after a while.
    void ExpectIdleLanes()
    {
        if (!expectsIdleLanes_.load(std::memory_order_relaxed)) {
            ScheduleSweep();
        }
    }

    int TickMilliseconds() const override;
    void OnTick(Clock::time_point now) override;

private:
    void ScheduleSweep();
    void Sweep(Clock::time_point now);

    EventLoop& loop_;
    SessionTable& sessions_;
    std::atomic<bool> expectsIdleLanes_{false};

    // The loop's thread:
    std::vector<std::weak_ptr<PeerLane>> watched_;
    std::vector<std::shared_ptr<PeerLane>> stalled_;
    std::vector<std::pair<std::weak_ptr<Session>, ConnectionKind>> flushing_;
    Clock::time_point nextSweep_;
};

}  // namespace TAVO::Transport

#endif
