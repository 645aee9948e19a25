// SPDX-License-Identifier: Apache-2.0
// A header is received into a scratch buffer of the thread, which takes what has arrived: often a header and its whole
// body, in one system call. What lies behind the frame moves into the stash of the lane, since the next thread to serve
// the lane has another scratch buffer. The rest of a large body is received where it stays, without a copy.
#include "transport/lane_input.h"

#include "transport/lane_scratch.h"

namespace TAVO::Transport {

FrameReader::State LaneInput::TakeStash()
{
    if (stash_.empty()) {
        return FrameReader::State::MORE;
    }
    const uint8_t* from = stash_.data() + stashUsed_;
    const uint8_t* const end = stash_.data() + stash_.size();
    const FrameReader::State state = reader_.Consume(from, end);
    stashUsed_ = static_cast<size_t>(from - stash_.data());
    if (from == end) {
        DropStash();
    }
    return state;
}

void LaneInput::DropStash() noexcept
{
    // clear() would keep the memory. A lane without a request in progress keeps no buffer: 1,000 idle clients would
    // cost one each.
    std::vector<uint8_t>().swap(stash_);
    stashUsed_ = 0;
}

FrameReader::Room LaneInput::Room()
{
    return reader_.HasHeader() ? reader_.RoomForBody()
                               : FrameReader::Room{FrameReader::State::MORE, LaneScratch(), LANE_SCRATCH_BYTES};
}

FrameReader::State LaneInput::Received(const FrameReader::Room& room, size_t bytes)
{
    if (reader_.HasHeader()) {
        return reader_.Received(bytes);
    }
    const uint8_t* from = room.place;
    const uint8_t* const end = room.place + bytes;
    const FrameReader::State state = reader_.Consume(from, end);
    if (from != end) {
        stash_.assign(from, end);
        stashUsed_ = 0;
    }
    return state;
}

}  // namespace TAVO::Transport
