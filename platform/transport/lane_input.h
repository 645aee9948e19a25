// SPDX-License-Identifier: Apache-2.0
// Requests from the bytes that a lane receives, in as few system calls as possible.
#ifndef TAVO_TRANSPORT_LANE_INPUT_H
#define TAVO_TRANSPORT_LANE_INPUT_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "wire/byte_budget.h"
#include "wire/frame_reader.h"

namespace TAVO::Transport {

// Used by the thread that has the lane. In turns: TakeStash; while the frame needs more, receive into Room and pass the
// number of bytes to Received; use the complete frame of Reader, and begin the next one with its Next.
class LaneInput {
public:
    LaneInput(bool isOneWay, ByteBudget* budget) : reader_(isOneWay, MessageKind::REQUEST, budget) {}
    LaneInput(const LaneInput&) = delete;
    LaneInput& operator=(const LaneInput&) = delete;

    FrameReader& Reader() noexcept { return reader_; }

    // Bytes that were received behind the last frame: they precede what is in the socket.
    bool HasStash() const noexcept { return !stash_.empty(); }
    // MORE if there are none.
    FrameReader::State TakeStash();
    void DropStash() noexcept;

    // Where to receive the next bytes, as FrameReader::RoomForBody. Valid until Received, in the same thread.
    FrameReader::Room Room();
    FrameReader::State Received(const FrameReader::Room& room, size_t bytes);

private:
    FrameReader reader_;
    std::vector<uint8_t> stash_;  // received behind the frame that is being handled
    size_t stashUsed_ = 0;
};

}  // namespace TAVO::Transport

#endif
