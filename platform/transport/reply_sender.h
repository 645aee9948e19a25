// SPDX-License-Identifier: Apache-2.0
// Replies on a call lane: header, data and reference table as one frame, sent as the caller's socket accepts it.
#ifndef TAVO_TRANSPORT_REPLY_SENDER_H
#define TAVO_TRANSPORT_REPLY_SENDER_H

#include <cstddef>
#include <cstdint>

#include "os/fd.h"
#include "tavo/message_parcel.h"
#include "transport/call_page.h"
#include "transport/message_references.h"
#include "wire/wire.h"

namespace TAVO::Transport {

// One reply at a time; used by the thread that has the lane. The results are those of the socket: OK when the whole
// reply is sent, WOULD_BLOCK when a rest is kept until the socket has room, CLOSED when the lane must end.
class ReplySender {
public:
    // Both must live as long as this. `lane` is the number that the caller gave the lane.
    ReplySender(const ConnectionFd& fd, MessageReferences& references, uint64_t lane)
        : fd_(fd), references_(references), lane_{false, lane}
    {
    }
    ReplySender(const ReplySender&) = delete;
    ReplySender& operator=(const ReplySender&) = delete;

    // Sends the reply to request `number`, through `page` if there is one and the reply fits. Takes the content of `reply` if a rest is kept. Waits at most
    // PeerDeadline::TIMEOUT for an object of the caller's that is not yet acquired from it, and for nothing else.
    IoStatus Send(CallPage* page, uint64_t number, int status, MessageParcel& reply);
    // While there is a rest, no other reply may be sent.
    bool HasRest() const noexcept { return frameBytes_ != 0; }
    IoStatus SendRest();

private:
    IoStatus SendFrame(CallPage* page, const FrameHeader& header, MessageParcel& reply);

    const ConnectionFd& fd_;
    MessageReferences& references_;
    const LaneKey lane_;
    MessageParcel rest_;     // a reply that the socket accepted in part
    size_t frameBytes_ = 0;  // of its frame, header included; 0: none
    size_t sentBytes_ = 0;
};

}  // namespace TAVO::Transport

#endif
