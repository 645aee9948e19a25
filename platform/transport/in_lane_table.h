// SPDX-License-Identifier: Apache-2.0
// The lanes of a session that the peer opened.
#ifndef TAVO_TRANSPORT_IN_LANE_TABLE_H
#define TAVO_TRANSPORT_IN_LANE_TABLE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "tavo/mutex.h"
#include "transport/control_channel.h"
#include "transport/held_objects.h"
#include "transport/peer_lane.h"
#include "transport/session_context.h"

namespace TAVO::Transport {

// Any thread.
class InLaneTable {
public:
    static constexpr size_t MAX_CALL_LANES = 64;
    static constexpr size_t MAX_ONE_WAY_LANES = 4;  // one for requests, one for notices, each perhaps twice

    InLaneTable(const SessionContext& context, ControlChannel& control, HeldObjects& held)
        : context_(context), control_(control), held_(held)
    {
    }

    // Whether the peer may open one more call lane. If not, the host is notified once it may.
    bool HasRoomForCallLane();
    // False if there are too many, or the session is not established; the peer is notified.
    bool Add(const std::shared_ptr<PeerLane>& lane);
    // The lane accepts no message after its last one. Notifies the peer.
    void Remove(const PeerLane& lane);
    // Notifies the peer that no message was accepted from its lane.
    void Refuse(uint64_t number);
    // Ends rings that were not used since before `before`; true while others remain.
    bool EndIdleRings(Clock::time_point before);
    // The session is dead: the workers notice, and remove the lanes. Allocates nothing.
    void ShutDown() noexcept;

private:
    const SessionContext& context_;
    ControlChannel& control_;
    HeldObjects& held_;

    Mutex mutex_;
    std::vector<std::shared_ptr<PeerLane>> lanes_ TAVO_GUARDED_BY(mutex_);
    size_t callLanes_ TAVO_GUARDED_BY(mutex_) = 0;     // of them
    bool awaitsRoom_ TAVO_GUARDED_BY(mutex_) = false;  // a call lane of the peer waits until there are fewer
};

}  // namespace TAVO::Transport

#endif
