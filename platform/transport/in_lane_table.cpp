// SPDX-License-Identifier: Apache-2.0
// Lanes that the peer opened are added up to a limit for each kind and removed when they end. HeldObjects must know a
// lane as long as messages with references can come in it: both enter it under one lock, or neither does. The peer
// learns of each end by LANE_CLOSED with the last message that was accepted, and takes back what later ones passed. A
// call lane over the limit waits with the host; the next one that ends has it looked at again. After the lock records
// are sent and lanes released.
#include "transport/in_lane_table.h"

#include <algorithm>
#include <utility>

#include "transport/session_host.h"

namespace TAVO::Transport {

bool InLaneTable::HasRoomForCallLane()
{
    MutexLock lock(mutex_);
    awaitsRoom_ = callLanes_ >= MAX_CALL_LANES;  // Remove then has the host look again
    return !awaitsRoom_;
}

bool InLaneTable::Add(const std::shared_ptr<PeerLane>& lane)
{
    {
        MutexLock lock(mutex_);
        const bool hasRoom =
            lane->IsCallLane() ? callLanes_ < MAX_CALL_LANES : lanes_.size() - callLanes_ < MAX_ONE_WAY_LANES;
        lanes_.reserve(lanes_.size() + 1);  // may throw, so before the lane is known to held_
        // The state is read under the lock that ShutDown takes: a lane is either added before it, and shut down by it,
        // or refused here.
        if (context_.State() == SessionState::ESTABLISHED && hasRoom && held_.OpenPeerLane(*lane)) {
            lanes_.push_back(lane);
            callLanes_ += lane->IsCallLane() ? 1 : 0;
            return true;
        }
    }
    Refuse(lane->Number());
    return false;
}

void InLaneTable::Remove(const PeerLane& lane)
{
    std::shared_ptr<PeerLane> removed;  // released after the lock
    bool makesRoom = false;
    {
        MutexLock lock(mutex_);
        const auto found =
            std::find_if(lanes_.begin(), lanes_.end(), [&lane](const auto& entry) { return entry.get() == &lane; });
        if (found == lanes_.end()) {
            return;
        }
        removed = std::move(*found);
        lanes_.erase(found);
        if (lane.IsCallLane()) {
            --callLanes_;
            makesRoom = std::exchange(awaitsRoom_, false);
        }
    }
    // First: the record promises that no message after LastTaken() will be accepted.
    held_.ClosePeerLane(lane);
    control_.Send({RecordType::LANE_CLOSED, 0, lane.Number(), lane.LastTaken()});
    if (makesRoom && !context_.host.RetryWaitingLanes()) {
        MutexLock lock(mutex_);
        awaitsRoom_ = true;  // The next lane that ends tries again.
    }
}

void InLaneTable::Refuse(uint64_t number)
{
    control_.Send({RecordType::LANE_CLOSED, 0, number, 0});
}

bool InLaneTable::EndIdleRings(Clock::time_point before)
{
    std::vector<std::shared_ptr<PeerLane>> lanes;
    {
        MutexLock lock(mutex_);
        // A copy, since ending a ring sends a record and locks the lane; neither is done under the lock of the table.
        lanes = lanes_;
    }
    bool remain = false;
    for (const auto& lane : lanes) {
        remain = lane->EndIdleRing(before) || remain;
    }
    return remain;
}

void InLaneTable::ShutDown() noexcept
{
    MutexLock lock(mutex_);
    for (const auto& lane : lanes_) {
        lane->ShutDown();
    }
}

}  // namespace TAVO::Transport
