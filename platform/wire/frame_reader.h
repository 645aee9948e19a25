// SPDX-License-Identifier: Apache-2.0
// Assembles frames from bytes that arrive in any portions.
#ifndef TAVO_WIRE_FRAME_READER_H
#define TAVO_WIRE_FRAME_READER_H

#include <cstddef>
#include <cstdint>
#include <utility>

#include "tavo/message_parcel.h"
#include "wire/byte_budget.h"
#include "wire/wire.h"

namespace TAVO::Transport {

// One lane's reader, used by one thread at a time. The body's buffer grows with the bytes that are there, to at most
// twice as much, never by an announced length. Bodies above SMALL_BYTES are charged to the budget as they grow.
class FrameReader {
public:
    enum class State {
        MORE,      // bytes are missing
        COMPLETE,  // Header() and Body() are a whole frame; Next() begins the following one
        STALLED,   // the budget is used up: leave the rest in the socket for now
        BAD,       // no frame can look like this: the lane must end
        NO_MEMORY  // the lane must end as well
    };

    static constexpr size_t SMALL_BYTES = 16 * 1024;

    // Without a budget nothing is charged.
    FrameReader(bool oneWay, MessageKind kind, ByteBudget* budget) : oneWay_(oneWay), charge_(budget, kind) {}
    FrameReader(const FrameReader&) = delete;
    FrameReader& operator=(const FrameReader&) = delete;

    // Takes bytes from [`from`, `end`) up to the end of the frame and moves `from` behind them.
    State Consume(const uint8_t*& from, const uint8_t* end);

    // For bodies: room for the next bytes of the body, to receive into; Received is then called with their number.
    // `place` is null unless the header is complete, the body is not, and the budget allows it (`state` is the reason).
    struct Room {
        State state;
        uint8_t* place;
        size_t size;
    };
    Room RoomForBody();
    State Received(size_t bytes);

    // True between the first byte of a frame and its last.
    bool IsUnderWay() const noexcept { return headerBytes_ != 0 && !complete_; }
    bool HasHeader() const noexcept { return headerBytes_ == sizeof(FrameHeader); }

    const FrameHeader& Header() const noexcept { return header_; }
    // Data and table; the receiver of the frame takes the content out.
    MessageParcel& Body() noexcept { return body_; }
    // What the complete frame is charged with; goes with the content.
    ByteCharge TakeCharge() noexcept { return std::move(charge_); }
    // Forgets the complete frame, and releases its charge unless that was taken.
    void Next();

private:
    State AfterHeader();
    State AfterBody();
    // Bytes that the body may grow by now, at most `wanted`; 0 when the budget is used up.
    size_t Charge(size_t wanted);

    const bool oneWay_;
    FrameHeader header_;
    size_t headerBytes_ = 0;  // of the header, received so far
    MessageParcel body_;
    size_t bodyBytes_ = 0;  // received so far
    ByteCharge charge_;
    bool complete_ = false;
};

}  // namespace TAVO::Transport

#endif
