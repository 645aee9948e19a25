// SPDX-License-Identifier: Apache-2.0
// A lane that this process opened for calls: one request and its reply at a time.
#ifndef TAVO_TRANSPORT_CALL_LANE_H
#define TAVO_TRANSPORT_CALL_LANE_H

#include <chrono>
#include <cstdint>
#include <thread>

#include "os/fd.h"
#include "tavo/message_parcel.h"
#include "transport/call_page.h"
#include "transport/lane_key.h"
#include "transport/message_references.h"
#include "transport/spin.h"
#include "wire/byte_budget.h"
#include "wire/wire.h"

namespace TAVO::Transport {

// A request, and where its reply goes.
struct CallRequest {
    FrameKind kind;  // REQUEST, or FIRST_REQUEST for an object that is not known to be acquired yet
    uint64_t serial;
    uint32_t code;
    MessageParcel& data;
    MessageParcel& reply;
    Deadline deadline;
};

struct CallResult {
    enum class Lane {
        REUSABLE,  // it may carry the next call; in all other cases it must be closed
        FINISHED,  // `status` is the result
        UNUSED,    // the peer had closed it, and nothing of the request was sent
        CUT_OFF,   // it broke while the request was sent
        NO_REPLY,  // it broke, or the deadline passed, before the reply was complete
    };
    Lane lane;
    int status;  // an IpcStatus, or the status that the handler returned
};

// Used by one thread at a time, which sends on a blocking socket, or through the page, and waits there for the reply.
struct CallLane {
    ConnectionFd fd;  // closed with the last reference to the lane; until then any thread may shut it down
    uint64_t number = 0;
    uint64_t lastSent = 0;  // message numbers
    uint64_t lastReplyTaken = 0;
    std::chrono::milliseconds timeout{0};  // set on the socket, both ways
    Clock::time_point usedAt;
    Spin spin{Spin::CALLER_POLLS};
    std::thread::id usedBy;  // the thread that used it last, which gets it again if it is idle
    CallPageSlot page;       // if the peer has offered one

    // Coarse, so that a lane's time-outs stay as they are from one call to the next.
    static std::chrono::milliseconds CoarseTimeout(Clock::duration duration);

    CallResult Call(const CallRequest& request, MessageReferences& references, ByteBudget& budget);
    // Any thread: wakes up the caller.
    void ShutDown() noexcept
    {
        fd.ShutDown();
        page.Close();
    }

private:
    // NO_REPLY: the request is sent.
    CallResult Send(const CallRequest& request, MessageReferences& references, CallPage* shared);
    CallResult Receive(const CallRequest& request, MessageReferences& references, ByteBudget& budget, CallPage* shared,
                       bool mayPoll);
};

}  // namespace TAVO::Transport

#endif
