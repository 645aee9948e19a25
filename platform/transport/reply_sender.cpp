// SPDX-License-Identifier: Apache-2.0
// A reply first gets its reference table behind the data and its header in front of it, so that one system call sends
// all. A reply whose objects the peer rejects is replaced by an empty one with IPC_BAD_MESSAGE; what no frame can carry
// ends the lane. No worker waits for a caller that reads slowly: the parcel is kept with what was sent of it, and the
// thread that gets the lane once the socket has room goes on from there.
#include "transport/reply_sender.h"

#include <cstring>

#include "base/parcel_access.h"
#include "tavo/ipc_status.h"
#include "transport/peer_deadline.h"

namespace TAVO::Transport {

IoStatus ReplySender::Send(CallPage* page, uint64_t number, int status, MessageParcel& reply)
{
    FrameHeader header;
    header.kind = FrameKind::REPLY;
    header.number = number;
    header.codeOrStatus = static_cast<uint32_t>(status);
    header.dataBytes = static_cast<uint32_t>(reply.GetDataSize());
    if (!ParcelAccess::References(reply).empty()) {
        // May wait for an object of the caller that is still being acquired, so with a deadline.
        const int passed = references_.Pass(lane_, number, reply, header, Clock::now() + PeerDeadline::TIMEOUT);
        if (passed == IPC_BAD_MESSAGE) {
            MessageParcel nothing;
            return Send(page, number, IPC_BAD_MESSAGE, nothing);
        }
        if (passed != IPC_OK) {
            return IoStatus::CLOSED;
        }
    }
    // More than a message may carry: the caller sees a broken call.
    return header.IsPossible(false) ? SendFrame(page, header, reply) : IoStatus::CLOSED;
}

IoStatus ReplySender::SendFrame(CallPage* page, const FrameHeader& header, MessageParcel& reply)
{
    // Parcels keep room in front of their data, so header and body are one buffer and one system call.
    uint8_t* const frame = ParcelAccess::Headroom(reply, sizeof(header));
    if (frame == nullptr) {
        return IoStatus::CLOSED;
    }
    std::memcpy(frame, &header, sizeof(header));
    const size_t size = sizeof(header) + header.BodyBytes();
    if (page != nullptr && page->Replies().Put(frame, size)) {
        return IoStatus::OK;
    }
    const IoResult sent = SendNow(fd_.Get(), frame, size);
    if (sent.status == IoStatus::WOULD_BLOCK) {
        ParcelAccess::Swap(rest_, reply);
        frameBytes_ = size;
        sentBytes_ = sent.bytes;
    }
    return sent.status;
}

IoStatus ReplySender::SendRest()
{
    const uint8_t* const frame = rest_.GetData() - sizeof(FrameHeader);
    const IoResult sent = SendNow(fd_.Get(), frame + sentBytes_, frameBytes_ - sentBytes_);
    sentBytes_ += sent.bytes;
    if (sent.status != IoStatus::WOULD_BLOCK) {
        ParcelAccess::Clear(rest_);
        frameBytes_ = 0;
    }
    return sent.status;
}

}  // namespace TAVO::Transport
