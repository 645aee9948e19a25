// SPDX-License-Identifier: Apache-2.0
// The lanes that this process opens to call another.
#ifndef TAVO_TRANSPORT_CALL_LANE_H
#define TAVO_TRANSPORT_CALL_LANE_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

#include "os/fd.h"
#include "tavo/mutex.h"
#include "transport/spin.h"
#include "wire/ring.h"

namespace TAVO::Transport {

using Clock = std::chrono::steady_clock;

// A blocking socket with its time-outs set once; used by one call at a time.
struct CallLane {
    ConnectionFd fd;  // closed with the last reference to the lane; until then any thread may shut it down
    uint64_t number = 0;
    uint64_t lastSent = 0;  // message numbers
    uint64_t lastReplyTaken = 0;
    std::chrono::milliseconds timeout{0};  // set on the socket, both ways
    Clock::time_point usedAt;
    Spin spin{Spin::CALLER_POLLS};
    std::thread::id usedBy;  // the thread that used it last, which gets it again if it is idle
};

// The one lane of a session for one-way requests (or for notices). Sending never waits.
struct OneWayLane {
    Mutex mutex;
    ConnectionFd fd TAVO_GUARDED_BY(mutex);
    uint64_t number TAVO_GUARDED_BY(mutex) = 0;
    uint64_t lastSent TAVO_GUARDED_BY(mutex) = 0;
    std::vector<uint8_t> rest TAVO_GUARDED_BY(mutex);         // of a message that the socket took in part
    std::unique_ptr<RingWriter> ring TAVO_GUARDED_BY(mutex);  // what the receiver offers in the socket's place
    bool isInRing TAVO_GUARDED_BY(mutex) = false;             // it is used
};

}  // namespace TAVO::Transport

#endif
