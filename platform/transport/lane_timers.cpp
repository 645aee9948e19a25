// SPDX-License-Identifier: Apache-2.0
// Any thread passes its request to the loop as a job; the lists belong to the loop's thread and need no lock. The loop
// asks how long it may sleep and gets the shortest period that a list requires, so that an idle process is never woken
// up. Lanes that are watched and sessions that are flushed are held weakly: one that ended by itself drops out at the
// next tick. A request that found no memory is lost; FlushLater reports that to its caller, and idle lanes
// are announced again.
#include "transport/lane_timers.h"

#include <chrono>

namespace TAVO::Transport {
namespace {

constexpr std::chrono::seconds IDLE_LANE_LIFE{10};
constexpr std::chrono::seconds SWEEP_PERIOD{2};

}  // namespace

void LaneTimers::RetryLater(const std::shared_ptr<PeerLane>& lane)
{
    loop_.Post([this, lane] { stalled_.push_back(lane); });
}

void LaneTimers::WatchDeadline(const std::shared_ptr<PeerLane>& lane)
{
    loop_.Post([this, lane] { watched_.push_back(lane); });
}

bool LaneTimers::FlushLater(const std::shared_ptr<Session>& session, ConnectionKind kind)
{
    return loop_.Post([this, session, kind] { flushing_.emplace_back(session, kind); });
}

void LaneTimers::ScheduleSweep()
{
    // Called after each call of the process; nearly always it ends with the load and exchange of one atomic.
    if (!expectsIdleLanes_.exchange(true) && !loop_.Post([this] { nextSweep_ = Clock::now() + SWEEP_PERIOD; })) {
        expectsIdleLanes_.store(false);  // The next lane that becomes idle tries again.
    }
}

int LaneTimers::TickMilliseconds() const
{
    if (!flushing_.empty()) {
        // The rest of a one-way request: meanwhile every further request of the lane is refused, so the period is
        // short.
        return 5;
    }
    if (!stalled_.empty()) {
        return 20;
    }
    if (!watched_.empty()) {
        return 100;
    }
    return expectsIdleLanes_.load(std::memory_order_relaxed) ? 1000 : -1;
}

void LaneTimers::OnTick(Clock::time_point now)
{
    std::erase_if(flushing_, [](const auto& entry) {
        const std::shared_ptr<Session> session = entry.first.lock();
        return session == nullptr || session->FlushOneWay(entry.second);
    });
    // Each is added again if the budget is still used up.
    for (const auto& lane : std::exchange(stalled_, {})) {
        lane->Rearm();
    }
    std::erase_if(watched_, [now](const std::weak_ptr<PeerLane>& entry) {
        const std::shared_ptr<PeerLane> lane = entry.lock();
        return lane == nullptr || !lane->CheckDeadline(now);
    });
    if (expectsIdleLanes_.load(std::memory_order_relaxed) && nextSweep_ <= now) {
        Sweep(now);
    }
}

void LaneTimers::Sweep(Clock::time_point now)
{
    expectsIdleLanes_.store(false);  // First, so that a lane that becomes idle meanwhile is not missed.
    nextSweep_ = now + SWEEP_PERIOD;
    if (sessions_.CloseIdleLanes(now - IDLE_LANE_LIFE)) {
        expectsIdleLanes_.store(true);
    }
}

}  // namespace TAVO::Transport
