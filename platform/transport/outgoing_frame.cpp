// SPDX-License-Identifier: Apache-2.0
#include "transport/outgoing_frame.h"

#include <cstring>

#include "base/parcel_access.h"
#include "tavo/ipc_status.h"

namespace TAVO::Transport {

OutgoingFrame::~OutgoingFrame()
{
    ParcelAccess::Truncate(data_, dataBytes_);
}

int OutgoingFrame::Build(FrameHeader& header, bool isOneWay, Deadline deadline)
{
    number_ = header.number;
    header.dataBytes = static_cast<uint32_t>(dataBytes_);
    int status = IPC_OK;
    if (!ParcelAccess::References(data_).empty()) {
        status = references_.Pass(lane_, number_, data_, header, deadline);
    }
    uint8_t* const frame = ParcelAccess::Headroom(data_, sizeof(header));
    if (status == IPC_OK && (frame == nullptr || !header.IsPossible(isOneWay))) {
        status = frame == nullptr ? IPC_NO_RESOURCES : IPC_TOO_LARGE;
    }
    if (status != IPC_OK) {
        Withdraw();
        return status;
    }
    std::memcpy(frame, &header, sizeof(header));
    frame_ = frame;
    size_ = sizeof(header) + header.BodyBytes();
    return IPC_OK;
}

}  // namespace TAVO::Transport
