// SPDX-License-Identifier: Apache-2.0
// The lanes that a session knows, and what becomes of their messages when one ends.
#include <algorithm>
#include <utility>

#include "transport/core.h"
#include "transport/in_lane.h"
#include "transport/session.h"

namespace TAVO::Transport {

bool Session::HasRoomForCallLane()
{
    MutexLock lock(mutex_);
    awaitsRoom_ = inCallLanes_ >= MAX_LANES;
    return !awaitsRoom_;
}

bool Session::AddInLane(const std::shared_ptr<InLane>& lane)
{
    const bool isCallLane = lane->Kind() == ConnectionKind::CALL_LANE;
    {
        MutexLock lock(mutex_);
        const bool hasRoom = isCallLane ? inCallLanes_ < MAX_LANES : inLanes_.size() - inCallLanes_ < MAX_ONE_WAY_LANES;
        if (GetState() == State::UP && hasRoom && inLanes_.emplace(lane->Number(), PeerLane{lane, false}).second) {
            inCallLanes_ += isCallLane ? 1 : 0;
            return true;
        }
    }
    RefuseLane(lane->Number());
    return false;
}

void Session::RemoveInLane(const std::shared_ptr<InLane>& lane, uint64_t lastTaken)
{
    Leftovers leftovers;
    std::unordered_map<uint64_t, Held> held;  // both dropped after the lock
    bool makesRoom = false;
    {
        MutexLock lock(mutex_);
        const auto found = inLanes_.find(lane->Number());
        if (found == inLanes_.end() || found->second.lane != lane) {
            return;
        }
        inLanes_.erase(found);
        if (lane->Kind() == ConnectionKind::CALL_LANE) {
            --inCallLanes_;
            makesRoom = std::exchange(awaitsRoom_, false);
        } else {
            lastEndedLane_ = std::max(lastEndedLane_, lane->Number());
            ApplyDeferred(lane->Number(), UINT64_MAX, leftovers);
        }
        if (GetState() == State::DEAD && !HasOneWayInLane()) {
            held.swap(held_);
        }
    }
    Post({RecordType::LANE_CLOSED, 0, lane->Number(), lastTaken});
    if (makesRoom && !Core::Get().Control().RetryWaitingLanes()) {
        MutexLock lock(mutex_);
        awaitsRoom_ = true;  // The next lane that ends tries again.
    }
}

bool Session::HasOneWayInLane() const
{
    return std::any_of(inLanes_.begin(), inLanes_.end(),
                       [](const auto& entry) { return entry.second.lane->Kind() != ConnectionKind::CALL_LANE; });
}

bool Session::AddOwnLane(uint64_t number)
{
    MutexLock lock(mutex_);
    return GetState() != State::DEAD && ownLanes_.emplace(number, false).second;
}

void Session::CloseOwnLane(uint64_t number, uint64_t lastReplyTaken)
{
    {
        MutexLock lock(mutex_);
        ownLanes_.erase(number);
    }
    Post({RecordType::LANE_CLOSED, ControlRecord::OWN_LANE, number, lastReplyTaken});
}

bool Session::IsLaneOpen(LaneKey lane) const
{
    if (lane.own) {
        const auto own = ownLanes_.find(lane.number);
        return own != ownLanes_.end() && !own->second;
    }
    const auto theirs = inLanes_.find(lane.number);
    return theirs != inLanes_.end() && !theirs->second.peerClosed;
}

void Session::OnLaneClosed(LaneKey lane, uint64_t lastTaken)
{
    Leftovers leftovers;
    MutexLock lock(mutex_);
    if (lane.own) {
        if (const auto own = ownLanes_.find(lane.number); own != ownLanes_.end()) {
            own->second = true;
        }
    } else if (const auto theirs = inLanes_.find(lane.number); theirs != inLanes_.end()) {
        theirs->second.peerClosed = true;
    }
    // Messages up to lastTaken that are not yet acknowledged will be: their references are being acquired.
    auto next = passed_.upper_bound({lane, lastTaken});
    while (next != passed_.end() && next->first.first == lane) {
        TakeBack(next->second, leftovers);
        next = passed_.erase(next);
    }
    lock.Unlock();
    MutexLock oneWayLock(oneWay_.mutex);
    if (lane.own && oneWay_.fd.IsOpen() && oneWay_.number == lane.number) {
        CloseOneWay(oneWay_);  // Its ring is of use to nobody any more.
    }
}

}  // namespace TAVO::Transport
