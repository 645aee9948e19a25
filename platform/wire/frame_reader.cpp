// SPDX-License-Identifier: Apache-2.0
// Assembles frames from bytes that arrive in any portions. The header is checked when it is complete, before anything
// is done with its lengths. No memory is allocated from a length alone: the buffer doubles with the bytes that have
// arrived, so that a peer that announces 64 MiB and sends 10 bytes costs 64 KiB. Bodies beyond a small size are charged
// to the byte budget before they are received; with the budget used up the reader is STALLED until the caller tries
// again.
#include "wire/frame_reader.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "base/parcel_access.h"

namespace TAVO::Transport {
namespace {

constexpr size_t FIRST_ROOM_BYTES = 64 * 1024;

}  // namespace

FrameReader::State FrameReader::Consume(const uint8_t*& from, const uint8_t* end)
{
    if (!HasHeader()) {
        // A header may be split at any byte.
        const size_t take = std::min(sizeof(FrameHeader) - headerBytes_, static_cast<size_t>(end - from));
        if (take != 0) {
            std::memcpy(reinterpret_cast<uint8_t*>(&header_) + headerBytes_, from, take);
        }
        headerBytes_ += take;
        from += take;
        if (!HasHeader()) {
            return State::MORE;
        }
        if (const State state = AfterHeader(); state != State::MORE) {
            return state;
        }
    }
    const size_t wanted = std::min(header_.BodyBytes() - bodyBytes_, static_cast<size_t>(end - from));
    if (wanted == 0) {
        return AfterBody();
    }
    // These bytes have left the socket: they are taken whatever the budget says, which then holds back the next ones.
    uint8_t* place = ParcelAccess::Append(body_, wanted);
    if (place == nullptr) {
        return State::NO_MEMORY;
    }
    std::memcpy(place, from, wanted);
    bodyBytes_ += wanted;
    from += wanted;
    return AfterBody();
}

FrameReader::Room FrameReader::RoomForBody()
{
    if (!HasHeader() || complete_) {
        return {State::MORE, nullptr, 0};
    }
    // As much again as has arrived: each byte is copied at most a few times while the buffer grows.
    const size_t size = Charge(std::min(header_.BodyBytes() - bodyBytes_, std::max(FIRST_ROOM_BYTES, bodyBytes_)));
    if (size == 0) {
        return {State::STALLED, nullptr, 0};
    }
    uint8_t* place = ParcelAccess::Append(body_, size);
    return {place != nullptr ? State::MORE : State::NO_MEMORY, place, size};
}

FrameReader::State FrameReader::Received(size_t bytes)
{
    bodyBytes_ += bytes;
    // RoomForBody has appended more than was received.
    ParcelAccess::Truncate(body_, bodyBytes_);
    return AfterBody();
}

void FrameReader::Next()
{
    ParcelAccess::Clear(body_);
    charge_.Release();
    headerBytes_ = 0;
    bodyBytes_ = 0;
    complete_ = false;
}

FrameReader::State FrameReader::AfterHeader()
{
    return header_.IsPossible(oneWay_) ? State::MORE : State::BAD;
}

FrameReader::State FrameReader::AfterBody()
{
    complete_ = bodyBytes_ == header_.BodyBytes();
    return complete_ ? State::COMPLETE : State::MORE;
}

size_t FrameReader::Charge(size_t wanted)
{
    const size_t total = bodyBytes_ + wanted;
    // Small messages are not charged: they could not use up the budget, and the counter is shared by all threads.
    return total <= SMALL_BYTES || charge_.RaiseTo(total) ? wanted : 0;
}

}  // namespace TAVO::Transport
