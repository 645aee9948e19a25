// SPDX-License-Identifier: Apache-2.0
// A count is raised when a message with a reference leaves (Pass) or the peer asks for one (OnAcquire). It is lowered
// by the peer's RELEASE, or taken back when the message was not sent or its lane ended before the peer accepted it. A
// RELEASE travels on another connection than one-way requests: if AFTER names such a request, the counts are lowered
// once it is accepted, so that its target still exists. References are released after the lock, since the destructor of
// an object may call the transport.
#include "transport/held_objects.h"

#include <algorithm>
#include <utility>

#include "transport/session_host.h"

namespace TAVO::Transport {

void HeldObjects::Leftovers::Add(sptr<IRemoteObject> object)
{
    if (first == nullptr) {
        first = std::move(object);
    } else {
        others.push_back(std::move(object));
    }
}

bool HeldObjects::OpenOwnLane(uint64_t number)
{
    MutexLock lock(mutex_);
    // Close() takes the same lock after the state became DEAD: no lane is added behind it.
    return context_.State() != SessionState::DEAD && ownLanes_.emplace(number, false).second;
}

void HeldObjects::CloseOwnLane(uint64_t number)
{
    MutexLock lock(mutex_);
    // References that were passed on the lane stay in passed_: the peer acknowledges them, or reports the last message
    // that it accepted, and both arrive on the control connection.
    ownLanes_.erase(number);
}

bool HeldObjects::OpenPeerLane(const PeerLane& lane)
{
    MutexLock lock(mutex_);
    return context_.State() != SessionState::DEAD && peerLanes_.emplace(lane.Number(), OpenLane{&lane, false}).second;
}

void HeldObjects::ClosePeerLane(const PeerLane& lane)
{
    Leftovers leftovers;
    MutexLock lock(mutex_);
    peerLanes_.erase(lane.Number());
    if (!lane.IsCallLane()) {
        lastEndedLane_ = std::max(lastEndedLane_, lane.Number());
        // No message of this lane will be accepted any more, so a RELEASE that waits for one need not wait longer.
        ApplyDeferred(lane.Number(), UINT64_MAX, leftovers);
    }
    // Close() has left these objects to the last one-way lane: requests that a dead peer had sent still run, and their
    // targets must exist until then.
    if (context_.State() == SessionState::DEAD && !HasOneWayLane()) {
        leftovers.all.swap(held_);
    }
    lock.Unlock();
}

bool HeldObjects::IsLaneOpen(LaneKey lane) const
{
    if (lane.own) {
        const auto own = ownLanes_.find(lane.number);
        return own != ownLanes_.end() && !own->second;
    }
    const auto theirs = peerLanes_.find(lane.number);
    return theirs != peerLanes_.end() && !theirs->second.isClosedByPeer;
}

bool HeldObjects::HasOneWayLane() const
{
    return std::any_of(peerLanes_.begin(), peerLanes_.end(),
                       [](const auto& entry) { return !entry.second.lane->IsCallLane(); });
}

sptr<IPCObjectStub> HeldObjects::Find(uint64_t serial)
{
    MutexLock lock(mutex_);
    const auto found = held_.find(serial);
    return found != held_.end() ? found->second.object : nullptr;
}

sptr<IPCObjectStub> HeldObjects::FindOneWayTarget(PeerLane& lane, uint64_t number, uint64_t serial)
{
    Leftovers leftovers;
    sptr<IPCObjectStub> target;
    MutexLock lock(mutex_);
    if (const auto found = held_.find(serial); found != held_.end()) {
        target = found->second.object;
    }
    // From here on the message counts as accepted. Lookup and acceptance are one step for OnRelease, which takes the
    // same lock.
    lane.SetLastTaken(number);
    if (!deferred_.empty()) {
        ApplyDeferred(lane.Number(), number, leftovers);
    }
    lock.Unlock();
    return target;
}

int HeldObjects::Pass(LaneKey lane, uint64_t number, Passed&& passed,
                      const std::vector<std::pair<uint64_t, sptr<IPCObjectStub>>>& own)
{
    MutexLock lock(mutex_);
    if (context_.State() == SessionState::DEAD) {
        return IPC_DEAD_OBJECT;
    }
    if (!IsLaneOpen(lane)) {
        return IPC_BROKEN;
    }
    // An upper bound: objects that the peer holds already are counted twice. A message has at most 1024 references.
    if (held_.size() + own.size() > MAX_OBJECTS) {
        return IPC_NO_RESOURCES;
    }
    if (passed_.size() >= MAX_PASSED) {  // For instance because the owner of a passed object does not answer the peer.
        return IPC_QUEUE_FULL;
    }
    for (const auto& [serial, stub] : own) {
        // Before the message is sent: the peer may release the object as soon as it has the message, while this thread
        // is still in send().
        Held& held = held_[serial];
        held.object = stub;
        ++held.count;
    }
    // If a node cannot be allocated, bad_alloc leaves the counts raised: the peer then holds an object more until the
    // session ends, which is safe.
    passed_.emplace(std::make_pair(lane, number), std::move(passed));
    return IPC_OK;
}

void HeldObjects::Withdraw(LaneKey lane, uint64_t number)
{
    Leftovers leftovers;
    MutexLock lock(mutex_);
    const auto found = passed_.find({lane, number});
    if (found != passed_.end()) {
        TakeBack(found->second, leftovers);
        passed_.erase(found);
    }
    lock.Unlock();
}

void HeldObjects::TakeBack(Passed& passed, Leftovers& leftovers)
{
    for (const uint64_t serial : passed.raised) {
        Lower(serial, 1, leftovers);
    }
    for (auto& borrowed : passed.borrowed) {
        leftovers.Add(std::move(borrowed));
    }
}

void HeldObjects::Lower(uint64_t serial, uint64_t count, Leftovers& leftovers)
{
    const auto found = held_.find(serial);
    // Possible only after a Close in between, since each caller lowers what was raised before.
    if (found == held_.end() || found->second.count < count) {
        return;
    }
    found->second.count -= count;
    if (found->second.count == 0) {
        leftovers.Add(std::move(found->second.object));
        held_.erase(found);
    }
}

bool HeldObjects::OnAfter(LaneKey lane, uint64_t number)
{
    releaseAfterLane_ = lane.number;
    releaseAfterNumber_ = number;
    // The peer names a lane of its own, which is a lane opened by the peer here.
    return !lane.own && number != 0;
}

bool HeldObjects::OnRelease(uint64_t serial, uint64_t count)
{
    Leftovers leftovers;
    const uint64_t after = std::exchange(releaseAfterNumber_, uint64_t{0});
    MutexLock lock(mutex_);
    const auto found = held_.find(serial);
    // Counts that wait for a message are returned already: the peer may not return them twice. The comparison comes
    // before the subtraction, which could wrap around.
    const bool isHeld = found != held_.end() && found->second.deferred <= found->second.count &&
                        count <= found->second.count - found->second.deferred;
    if (count == 0 || !isHeld) {
        return false;
    }
    if (after == 0 || IsAccepted(releaseAfterLane_, after)) {
        Lower(serial, count, leftovers);
    } else if (deferredCount_ >= MAX_DEFERRED) {
        return false;
    } else {
        found->second.deferred += count;
        deferred_[releaseAfterLane_].push_back({after, serial, count});
        ++deferredCount_;
    }
    lock.Unlock();
    return true;
}

bool HeldObjects::IsAccepted(uint64_t lane, uint64_t number) const
{
    const auto open = peerLanes_.find(lane);
    // A lane that is not open has ended, or its hello was not read yet. Lane numbers of a peer ascend, so the highest
    // ended one decides; a lane that was never opened makes the RELEASE wait, and the end of the session applies it.
    return open != peerLanes_.end() ? open->second.lane->LastTaken() >= number : lane <= lastEndedLane_;
}

void HeldObjects::ApplyDeferred(uint64_t lane, uint64_t lastTaken, Leftovers& leftovers)
{
    const auto found = deferred_.find(lane);
    if (found == deferred_.end()) {
        return;
    }
    deferredCount_ -= std::erase_if(found->second, [&](const Deferred& release) TAVO_REQUIRES(mutex_) {
        if (release.number > lastTaken) {
            return false;
        }
        if (const auto held = held_.find(release.serial); held != held_.end()) {
            held->second.deferred -= std::min(held->second.deferred, release.count);
            Lower(release.serial, release.count, leftovers);
        }
        return true;
    });
    if (found->second.empty()) {
        deferred_.erase(found);
    }
}

void HeldObjects::OnAcquire(uint64_t serial)
{
    // Outside the lock: the table of exported objects has a lock of its own.
    const sptr<IPCObjectStub> object = context_.host.FindExported(serial);
    bool isRaised = false;
    if (object != nullptr) {
        MutexLock lock(mutex_);
        if (context_.State() == SessionState::ESTABLISHED && held_.size() < MAX_OBJECTS) {
            Held& held = held_[serial];
            // Any process of the session may acquire any exported object whose (instance, serial) it knows. It is of
            // the same user, which is the boundary of trust.
            held.object = object;
            ++held.count;
            isRaised = true;
        }
    }
    control_.Send({RecordType::ACQUIRED, 0, serial, isRaised ? 0U : 1U});
}

void HeldObjects::OnTaken(LaneKey lane, uint64_t number)
{
    // An unknown message is ignored: its lane may have ended, and its references were taken back then.
    Passed taken;  // released after the lock
    MutexLock lock(mutex_);
    const auto found = passed_.find({lane, number});
    if (found != passed_.end()) {
        taken = std::move(found->second);
        passed_.erase(found);
    }
    lock.Unlock();
}

void HeldObjects::OnLaneClosed(LaneKey lane, uint64_t lastTaken)
{
    Leftovers leftovers;
    MutexLock lock(mutex_);
    if (lane.own) {
        if (const auto own = ownLanes_.find(lane.number); own != ownLanes_.end()) {
            own->second = true;
        }
    } else if (const auto theirs = peerLanes_.find(lane.number); theirs != peerLanes_.end()) {
        theirs->second.isClosedByPeer = true;
    }
    // Messages up to lastTaken that are not yet acknowledged will be: their references are being acquired.
    auto next = passed_.upper_bound({lane, lastTaken});
    while (next != passed_.end() && next->first.first == lane) {
        TakeBack(next->second, leftovers);
        next = passed_.erase(next);
    }
    lock.Unlock();
}

void HeldObjects::Close() noexcept
{
    HeldBySerial held;
    std::map<std::pair<LaneKey, uint64_t>, Passed> passed;  // both released after the lock
    MutexLock lock(mutex_);
    ownLanes_.clear();
    passed.swap(passed_);
    if (!HasOneWayLane()) {
        // Swapping allocates nothing. The destructors of these objects run at the end of the function, after the lock.
        held.swap(held_);
    }
    lock.Unlock();
}

}  // namespace TAVO::Transport
