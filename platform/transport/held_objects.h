// SPDX-License-Identifier: Apache-2.0
// The objects of this process that the peer of a session holds, and those in messages that it has not acknowledged.
#ifndef TAVO_TRANSPORT_HELD_OBJECTS_H
#define TAVO_TRANSPORT_HELD_OBJECTS_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <unordered_map>
#include <utility>
#include <vector>

#include "tavo/ipc_object_stub.h"
#include "tavo/mutex.h"
#include "transport/control_channel.h"
#include "transport/lane_key.h"
#include "transport/peer_lane.h"
#include "transport/session_context.h"

namespace TAVO::Transport {

// Counts are raised before a message leaves, and lowered by exactly what the peer returns. Any thread, except for the
// records of the peer, which the control thread hands over in their order.
class HeldObjects {
public:
    static constexpr size_t MAX_OBJECTS = 65536;  // that a peer holds
    static constexpr size_t MAX_PASSED = 4096;    // messages with references, each way, not yet acknowledged
    // Releases that wait for messages: more than the messages that all lanes of a peer can carry.
    static constexpr size_t MAX_DEFERRED = 65536;

    HeldObjects(const SessionContext& context, ControlChannel& control) : context_(context), control_(control) {}

    // ---- Lanes: a message that its lane no longer carries passes no references.
    // False when the session is dead.
    bool OpenOwnLane(uint64_t number);
    void CloseOwnLane(uint64_t number);
    // The lane stays valid until ClosePeerLane. False for a number that is in use, and when the session is dead.
    bool OpenPeerLane(const PeerLane& lane);
    void ClosePeerLane(const PeerLane& lane);

    // ---- What the peer holds
    // Null for an object that the peer does not hold.
    sptr<IPCObjectStub> Find(uint64_t serial);
    // The same for one-way message `number` of the peer's `lane`; the message counts as accepted from then on. Counts
    // that the peer has returned with an AFTER for this message are lowered now.
    sptr<IPCObjectStub> FindOneWayTarget(PeerLane& lane, uint64_t number, uint64_t serial);

    // ---- Messages
    // A message's references, until the peer acknowledges them.
    struct Passed {
        std::vector<uint64_t> raised;               // serials of this process, one count each
        std::vector<sptr<IRemoteObject>> borrowed;  // objects of others, kept alive
    };
    // Raises the counts of `own` (with their serials) for message `number` of `lane`. An IpcStatus; IPC_BROKEN when the
    // lane is closed.
    int Pass(LaneKey lane, uint64_t number, Passed&& passed,
             const std::vector<std::pair<uint64_t, sptr<IPCObjectStub>>>& own);
    // Releases the references of a message of which nothing was sent.
    void Withdraw(LaneKey lane, uint64_t number);

    // ---- Records of the peer; false when one breaks the protocol
    bool OnRelease(uint64_t serial, uint64_t count);
    // The next RELEASE takes effect when that message of one of the peer's lanes is accepted.
    bool OnAfter(LaneKey lane, uint64_t number);
    void OnAcquire(uint64_t serial);
    void OnTaken(LaneKey lane, uint64_t number);
    void OnLaneClosed(LaneKey lane, uint64_t lastTaken);

    // The session is dead: releases everything. What accepted one-way requests may still call is released after them,
    // with the last lane that carried them. Allocates nothing.
    void Close() noexcept;

private:
    struct Held {
        sptr<IPCObjectStub> object;
        uint64_t count = 0;
        uint64_t deferred = 0;  // of them, returned by the peer behind messages that are not accepted yet
    };
    struct OpenLane {
        const PeerLane* lane = nullptr;
        bool isClosedByPeer = false;
    };
    struct Deferred {  // a RELEASE that waits for a one-way message
        uint64_t number;
        uint64_t serial;
        uint64_t count;
    };
    using HeldBySerial = std::unordered_map<uint64_t, Held>;
    // References to be released after the lock. The first allocates nothing.
    struct Leftovers {
        sptr<IRemoteObject> first;
        std::vector<sptr<IRemoteObject>> others;
        HeldBySerial all;

        void Add(sptr<IRemoteObject> object);
    };

    bool IsLaneOpen(LaneKey lane) const TAVO_REQUIRES(mutex_);
    bool HasOneWayLane() const TAVO_REQUIRES(mutex_);
    bool IsAccepted(uint64_t lane, uint64_t number) const TAVO_REQUIRES(mutex_);
    void TakeBack(Passed& passed, Leftovers& leftovers) TAVO_REQUIRES(mutex_);
    void Lower(uint64_t serial, uint64_t count, Leftovers& leftovers) TAVO_REQUIRES(mutex_);
    void ApplyDeferred(uint64_t lane, uint64_t lastTaken, Leftovers& leftovers) TAVO_REQUIRES(mutex_);

    const SessionContext& context_;
    ControlChannel& control_;

    Mutex mutex_;  // nothing is called, sent or released under it
    HeldBySerial held_ TAVO_GUARDED_BY(mutex_);
    std::map<std::pair<LaneKey, uint64_t>, Passed> passed_ TAVO_GUARDED_BY(mutex_);  // by lane and message
    std::unordered_map<uint64_t, bool> ownLanes_ TAVO_GUARDED_BY(mutex_);            // closed by the peer?
    std::unordered_map<uint64_t, OpenLane> peerLanes_ TAVO_GUARDED_BY(mutex_);
    std::unordered_map<uint64_t, std::vector<Deferred>> deferred_ TAVO_GUARDED_BY(mutex_);  // by the peer's lane
    size_t deferredCount_ TAVO_GUARDED_BY(mutex_) = 0;
    uint64_t lastEndedLane_ TAVO_GUARDED_BY(mutex_) = 0;  // the highest number of the peer's one-way lanes

    uint64_t releaseAfterLane_ = 0;    // control thread: from AFTER, for the next RELEASE
    uint64_t releaseAfterNumber_ = 0;  // 0: none
};

}  // namespace TAVO::Transport

#endif
