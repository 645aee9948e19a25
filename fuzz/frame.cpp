// SPDX-License-Identifier: Apache-2.0
// Do the same bytes give the same frames however they are cut, in buffers that grow with the bytes received?
#include <cstring>
#include <iterator>
#include <utility>

#include "base/parcel_buffer.h"
#include "input.h"
#include "wire/frame_reader.h"

namespace {

using Fuzz::Require;
using TAVO::Transport::FrameHeader;
using TAVO::Transport::FrameKind;
using TAVO::Transport::FrameReader;
using Bytes = std::vector<uint8_t>;
using State = FrameReader::State;

constexpr size_t SPARE_BYTES = 256 * 1024;

// Frames with likely headers, some of which announce what never comes; then a few bytes of anything.
Bytes Conversation(FuzzedDataProvider& input)
{
    Bytes bytes;
    for (int i = input.ConsumeIntegralInRange(0, 6); i > 0; --i) {
        const uint32_t bodyBytes = input.ConsumeIntegralInRange(0U, 100U) * (input.ConsumeBool() ? 4 : 1004);
        FrameHeader header;
        header.references = input.ConsumeIntegralInRange<uint16_t>(0, 3);
        header.tableBytes = std::min(bodyBytes, header.references * 40U);
        header.dataBytes = bodyBytes - header.tableBytes;
        if (input.ConsumeIntegralInRange(0, 3) == 0) {
            header.dataBytes = input.ConsumeIntegralInRange<uint32_t>(0, 2 * TAVO::Transport::MAX_FRAME_BYTES);
        }
        header.kind = static_cast<FrameKind>(input.ConsumeIntegralInRange(0, 3));
        header.number = input.ConsumeIntegral<uint64_t>();
        const auto* const begin = reinterpret_cast<const uint8_t*>(&header);
        bytes.insert(bytes.end(), begin, begin + sizeof(header));
        bytes.resize(bytes.size() + bodyBytes, input.ConsumeIntegral<uint8_t>());
    }
    const Bytes rest = input.ConsumeBytes<uint8_t>(input.ConsumeIntegralInRange<size_t>(0, 100));
    bytes.insert(bytes.end(), rest.begin(), rest.end());
    return bytes;
}

// Every whole frame, header and body, and what the reader made of the rest.
struct Reading {
    std::vector<Bytes> frames;
    State last = State::MORE;
    bool isUnderWay = false;

    bool operator==(const Reading& other) const = default;
};

State TakeSome(FrameReader& reader, const uint8_t*& from, const uint8_t* end, bool inPlace)
{
    const FrameReader::Room room = inPlace ? reader.RoomForBody() : FrameReader::Room{State::MORE, nullptr, 0};
    if (room.place == nullptr) {
        return reader.Consume(from, end);
    }
    const size_t size = std::min(room.size, static_cast<size_t>(end - from));
    std::memcpy(room.place, from, size);
    from += size;
    return reader.Received(size);
}

// The rest, without cuts or after the last one.
size_t NextPiece(size_t left, FuzzedDataProvider* cuts)
{
    if (cuts == nullptr || cuts->remaining_bytes() == 0) {
        return left;
    }
    return cuts->ConsumeIntegralInRange<size_t>(1, cuts->ConsumeBool() ? std::min<size_t>(left, 40) : left);
}

Reading Read(const Bytes& bytes, bool oneWay, FuzzedDataProvider* cuts)
{
    FrameReader reader(oneWay, TAVO::Transport::MessageKind::REQUEST, nullptr);
    Reading reading;
    size_t taken = 0;
    while (reading.last == State::MORE && taken < bytes.size()) {
        const size_t piece = NextPiece(bytes.size() - taken, cuts);
        const uint8_t* from = bytes.data() + taken;
        reading.last = TakeSome(reader, from, from + piece, cuts != nullptr && cuts->ConsumeBool());
        taken = static_cast<size_t>(from - bytes.data());
        const uint8_t* body = reader.Body().GetData();
        Require(body == nullptr || TAVO::ParcelBuffer::Capacity(body) <= 2 * taken + SPARE_BYTES,
                "memory follows the bytes");
        if (reading.last == State::COMPLETE) {
            const auto* const header = reinterpret_cast<const uint8_t*>(&reader.Header());
            Bytes frame(header, header + sizeof(FrameHeader));
            frame.insert(frame.end(), body, body + reader.Body().GetDataSize());
            Require(frame.size() == sizeof(FrameHeader) + reader.Header().BodyBytes(), "a whole body");
            Require(std::equal(frame.rbegin(), frame.rend(), std::make_reverse_iterator(from)), "the bytes that came");
            reading.frames.push_back(std::move(frame));
            reader.Next();
            reading.last = State::MORE;
        }
    }
    reading.isUnderWay = reader.IsUnderWay();
    return reading;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    FuzzedDataProvider input(bytes, size);
    const bool oneWay = input.ConsumeBool();
    const Bytes conversation = Conversation(input);
    const Reading whole = Read(conversation, oneWay, nullptr);
    Require(whole.last == State::MORE || whole.last == State::BAD, "never stalled without a budget");
    Require(Read(conversation, oneWay, &input) == whole, "the same frames for every cut");
    return 0;
}
