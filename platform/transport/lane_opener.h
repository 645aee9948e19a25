// SPDX-License-Identifier: Apache-2.0
// Opens and closes the lanes of this process to the peer of a session.
#ifndef TAVO_TRANSPORT_LANE_OPENER_H
#define TAVO_TRANSPORT_LANE_OPENER_H

#include <atomic>
#include <cstdint>

#include "os/fd.h"
#include "tavo/ipc_status.h"
#include "transport/control_channel.h"
#include "transport/held_objects.h"
#include "transport/session_context.h"

namespace TAVO::Transport {

// Any thread. Has no state but the last number, so no lock.
class LaneOpener {
public:
    struct Opened {
        ConnectionFd fd;
        uint64_t number = 0;
        int status = IPC_OK;  // why the descriptor is not open
    };

    LaneOpener(const SessionContext& context, ControlChannel& control, HeldObjects& held)
        : context_(context), control_(control), held_(held)
    {
    }

    // Connects to the peer and sends the lane's hello. With a `timeout` of zero it never waits: IPC_QUEUE_FULL.
    Opened Open(ConnectionKind kind, Clock::duration timeout);
    // The descriptor is closed or shut down. Notifies the peer up to which reply messages were accepted.
    void Close(uint64_t number, uint64_t lastReplyTaken);

private:
    const SessionContext& context_;
    ControlChannel& control_;
    HeldObjects& held_;
    std::atomic<uint64_t> lastNumber_{0};
};

}  // namespace TAVO::Transport

#endif
