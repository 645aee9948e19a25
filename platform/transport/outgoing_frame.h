// SPDX-License-Identifier: Apache-2.0
// A request as one frame in the memory of its parcel.
#ifndef TAVO_TRANSPORT_OUTGOING_FRAME_H
#define TAVO_TRANSPORT_OUTGOING_FRAME_H

#include <cstddef>
#include <cstdint>

#include "os/fd.h"
#include "tavo/message_parcel.h"
#include "transport/message_references.h"
#include "wire/wire.h"

namespace TAVO::Transport {

// Puts header and reference table around the data, so that one send carries all. Its destructor restores the parcel.
class OutgoingFrame {
public:
    OutgoingFrame(MessageParcel& data, MessageReferences& references, uint64_t ownLane)
        : data_(data), references_(references), lane_{true, ownLane}, dataBytes_(data.GetDataSize())
    {
    }
    ~OutgoingFrame();
    OutgoingFrame(const OutgoingFrame&) = delete;
    OutgoingFrame& operator=(const OutgoingFrame&) = delete;

    // Completes `header` and passes the references, as MessageReferences::Pass. On failure nothing is passed.
    int Build(FrameHeader& header, bool isOneWay, Deadline deadline);
    // Nothing of the frame was sent: releases its references.
    void Withdraw() { references_.Withdraw(lane_, number_); }

    const uint8_t* Data() const noexcept { return frame_; }
    size_t Size() const noexcept { return size_; }

private:
    MessageParcel& data_;
    MessageReferences& references_;
    const LaneKey lane_;
    const size_t dataBytes_;
    uint64_t number_ = 0;
    const uint8_t* frame_ = nullptr;
    size_t size_ = 0;
};

}  // namespace TAVO::Transport

#endif
