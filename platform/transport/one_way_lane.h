// SPDX-License-Identifier: Apache-2.0
// The one lane of a session for one-way requests, or for notices.
#ifndef TAVO_TRANSPORT_ONE_WAY_LANE_H
#define TAVO_TRANSPORT_ONE_WAY_LANE_H

#include <cstdint>
#include <memory>
#include <vector>

#include "os/fd.h"
#include "tavo/ipc_status.h"
#include "tavo/message_parcel.h"
#include "tavo/mutex.h"
#include "transport/lane_opener.h"
#include "transport/message_references.h"
#include "transport/outgoing_frame.h"
#include "transport/session_context.h"
#include "wire/ring.h"

namespace TAVO::Transport {

// Opened at its first use, and again when the peer has closed it. Any thread; sending never waits.
class OneWayLane {
public:
    OneWayLane(ConnectionKind kind, const SessionContext& context, LaneOpener& opener, MessageReferences& references)
        : kind_(kind), context_(context), opener_(opener), references_(references)
    {
    }

    // Sends in order, or refuses. `place` becomes the place of a request that was sent; it is written under the lock.
    int Send(uint64_t serial, uint32_t code, MessageParcel& data, MessagePlace& place);
    // Sends the rest of a request that the socket accepted in part; false while there is still no room.
    bool Flush();
    // The peer offers a ring for its end of lane `number`, or withdraws the offer.
    void OfferRing(uint64_t number, std::unique_ptr<RingWriter> ring);
    // The peer has closed its end.
    void OnClosedByPeer(uint64_t number);
    void Close() noexcept;

private:
    struct Attempt {
        int status = IPC_OK;
        bool mayRetry = false;  // the peer had closed the lane, and nothing of the request was sent
    };

    int Open() TAVO_REQUIRES(mutex_);
    void CloseLocked() TAVO_REQUIRES(mutex_);
    Attempt TrySend(uint64_t serial, uint32_t code, MessageParcel& data, MessagePlace& place) TAVO_REQUIRES(mutex_);
    // Through the ring if there is one, and then whole or not at all.
    IoResult Put(const uint8_t* frame, size_t size) TAVO_REQUIRES(mutex_);
    // Keeps the rest of a frame for the control thread. False if out of memory.
    bool KeepRest(const uint8_t* rest, size_t size) TAVO_REQUIRES(mutex_);
    bool GoIntoRing() TAVO_REQUIRES(mutex_);

    const ConnectionKind kind_;
    const SessionContext& context_;
    LaneOpener& opener_;
    MessageReferences& references_;

    Mutex mutex_;  // held during a send
    ConnectionFd fd_ TAVO_GUARDED_BY(mutex_);
    uint64_t number_ TAVO_GUARDED_BY(mutex_) = 0;
    uint64_t lastSent_ TAVO_GUARDED_BY(mutex_) = 0;
    std::vector<uint8_t> rest_ TAVO_GUARDED_BY(mutex_);         // of a request that the socket accepted in part
    std::unique_ptr<RingWriter> ring_ TAVO_GUARDED_BY(mutex_);  // offered by the receiver in the socket's place
    bool isInRing_ TAVO_GUARDED_BY(mutex_) = false;             // it is used
};

}  // namespace TAVO::Transport

#endif
