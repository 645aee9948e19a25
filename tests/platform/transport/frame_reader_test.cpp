// SPDX-License-Identifier: Apache-2.0
// Frames come out the same however their bytes were cut, and memory follows the bytes that came.
#include "transport/frame_reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "support/raw_peer.h"
#include "transport/reference_table.h"

namespace TransportTest {
namespace {

using TAVO::MessageParcel;
using TAVO::Transport::ByteBudget;
using TAVO::Transport::FrameHeader;
using TAVO::Transport::FrameReader;
using TestSupport::Bytes;
using TestSupport::RawFrame;
using State = FrameReader::State;

RawFrame FrameOf(uint64_t number, size_t dataBytes)
{
    RawFrame frame;
    frame.number = number;
    frame.data.resize(dataBytes);
    for (size_t at = 0; at < dataBytes; ++at) {
        frame.data[at] = static_cast<uint8_t>(at * 7 + number);
    }
    return frame;
}

// With empty, small and large bodies, and a reference table.
std::vector<RawFrame> Conversation()
{
    std::vector<RawFrame> frames = {FrameOf(1, 0), FrameOf(2, 4), FrameOf(3, 100), FrameOf(4, 40000), FrameOf(5, 0)};
    frames[2].Reference({}, 9, u"some.Descriptor");
    return frames;
}

Bytes Joined(const std::vector<RawFrame>& frames)
{
    Bytes bytes;
    for (const RawFrame& frame : frames) {
        const Bytes encoded = frame.Encode();
        bytes.insert(bytes.end(), encoded.begin(), encoded.end());
    }
    return bytes;
}

void ExpectFrame(FrameReader& reader, const RawFrame& frame)
{
    const Bytes encoded = frame.Encode();
    ASSERT_EQ(std::memcmp(&reader.Header(), encoded.data(), sizeof(FrameHeader)), 0);
    const MessageParcel& body = reader.Body();
    ASSERT_EQ(body.GetDataSize(), encoded.size() - sizeof(FrameHeader));
    ASSERT_TRUE(std::equal(encoded.begin() + sizeof(FrameHeader), encoded.end(), body.GetData()));
}

TEST(FrameReading, PiecesOfAnySizeGiveTheSameFrames)
{
    const std::vector<RawFrame> frames = Conversation();
    const Bytes bytes = Joined(frames);
    for (const size_t piece : {size_t{1}, size_t{2}, size_t{31}, size_t{32}, size_t{33}, size_t{97}, size_t{40031}}) {
        SCOPED_TRACE(piece);
        FrameReader reader(false, nullptr);
        size_t done = 0;
        for (size_t at = 0; at < bytes.size(); at += piece) {
            const uint8_t* from = bytes.data() + at;
            const uint8_t* const end = bytes.data() + std::min(at + piece, bytes.size());
            while (from != end) {
                const State state = reader.Consume(from, end);
                if (state == State::COMPLETE) {
                    ExpectFrame(reader, frames.at(done++));
                    EXPECT_FALSE(reader.IsUnderWay());
                    reader.Next();
                } else {
                    ASSERT_EQ(state, State::MORE);
                    EXPECT_TRUE(reader.IsUnderWay());
                }
            }
        }
        EXPECT_EQ(done, frames.size());
    }
}

TEST(FrameReading, ABodyReceivedInPlaceGrowsWithWhatCame)
{
    constexpr size_t SIZE = 3 << 20;
    const RawFrame frame = FrameOf(1, SIZE);
    const Bytes bytes = frame.Encode();
    for (const size_t piece : {size_t{1000}, size_t{65536}, SIZE}) {
        SCOPED_TRACE(piece);
        FrameReader reader(false, nullptr);
        const uint8_t* from = bytes.data();
        ASSERT_EQ(reader.Consume(from, bytes.data() + sizeof(FrameHeader)), State::MORE);
        State state = State::MORE;
        size_t received = 0;
        while (state == State::MORE) {
            const FrameReader::Room room = reader.RoomForBody();
            ASSERT_NE(room.place, nullptr);
            ASSERT_LE(room.size, std::max(size_t{64} << 10, received)) << "room ahead of what came";
            const size_t now = std::min(piece, room.size);
            std::memcpy(room.place, bytes.data() + sizeof(FrameHeader) + received, now);
            received += now;
            state = reader.Received(now);
        }
        EXPECT_EQ(state, State::COMPLETE);
        ExpectFrame(reader, frame);
    }
}

TEST(FrameReading, ImpossibleHeadersAreBad)
{
    RawFrame tooLarge = FrameOf(1, 0);
    tooLarge.dataBytes = 0xfffffffc;
    RawFrame uneven = FrameOf(1, 0);
    uneven.dataBytes = 6;
    RawFrame reply = FrameOf(1, 0);
    reply.kind = RawFrame::REPLY;
    RawFrame large = FrameOf(1, 0);
    large.dataBytes = 64 << 10;
    const auto stateOf = [](const RawFrame& frame, bool oneWay) {
        const Bytes bytes = frame.Encode();
        const uint8_t* from = bytes.data();
        return FrameReader(oneWay, nullptr).Consume(from, bytes.data() + bytes.size());
    };
    EXPECT_EQ(stateOf(tooLarge, false), State::BAD);
    EXPECT_EQ(stateOf(uneven, false), State::BAD);
    EXPECT_EQ(stateOf(reply, false), State::COMPLETE);
    EXPECT_EQ(stateOf(reply, true), State::BAD);
    EXPECT_EQ(stateOf(large, false), State::MORE);
    EXPECT_EQ(stateOf(large, true), State::BAD);
}

TEST(FrameReading, LargeBodiesAreChargedAndWaitWhenTheBudgetIsUsedUp)
{
    constexpr size_t LIMIT = size_t{300} << 10;
    ByteBudget process(size_t{400} << 10);
    ByteBudget peer(LIMIT, &process);
    const Bytes bytes = FrameOf(1, 1 << 20).Encode();
    const auto begin = [&bytes](FrameReader& reader) {
        const uint8_t* from = bytes.data();
        EXPECT_EQ(reader.Consume(from, bytes.data() + sizeof(FrameHeader)), State::MORE);
    };
    // Takes all that the budget allows; the state in which that ends.
    const auto fill = [](FrameReader& reader) {
        for (;;) {
            const FrameReader::Room room = reader.RoomForBody();
            if (room.place == nullptr) {
                return room.state;
            }
            if (const State state = reader.Received(room.size); state != State::MORE) {
                return state;
            }
        }
    };
    {
        FrameReader first(false, &peer);
        FrameReader second(false, &peer);
        begin(first);
        begin(second);
        ASSERT_EQ(second.Received(second.RoomForBody().size), State::MORE);
        // One goes beyond, or neither would ever be whole; the other waits for it.
        EXPECT_EQ(fill(first), State::COMPLETE);
        EXPECT_EQ(fill(second), State::STALLED);
        EXPECT_EQ(process.Used(), peer.Used());
        // Small ones pass all the same.
        FrameReader other(false, &peer);
        const Bytes small = FrameOf(1, 1000).Encode();
        const uint8_t* from = small.data();
        EXPECT_EQ(other.Consume(from, small.data() + small.size()), State::COMPLETE);
        first.Next();
        EXPECT_LE(peer.Used(), LIMIT);
        EXPECT_EQ(fill(second), State::COMPLETE);
    }
    EXPECT_EQ(peer.Used(), size_t{0});
    EXPECT_EQ(process.Used(), size_t{0});
}

TEST(ReferenceTable, ReadsWhatWasWritten)
{
    using namespace TAVO::Transport;
    MessageParcel message;
    message.WriteInt32(1);
    RawFrame raw;
    raw.Int32(1).Reference({}, 1).Reference({}, 2).Reference({}, 3);
    ASSERT_TRUE(message.SetData(raw.data.data(), raw.data.size()));
    FrameHeader header;
    header.dataBytes = static_cast<uint32_t>(message.GetDataSize());
    ReferenceTableWriter writer(message);
    const std::vector<std::u16string> descriptors = {u"", u"odd", std::u16string(MAX_DESCRIPTOR_UNITS, u'd')};
    for (uint32_t at = 0; at < 3; ++at) {
        TableEntry entry;
        entry.offset = 4 + at * 8;
        entry.serial = at + 1;
        entry.instance.bytes.fill(static_cast<uint8_t>(at + 1));
        ASSERT_TRUE(writer.Add(entry, descriptors[at]));
    }
    EXPECT_FALSE(writer.Add(TableEntry{}, std::u16string(MAX_DESCRIPTOR_UNITS + 1, u'd')));
    ASSERT_TRUE(writer.Finish(header));
    ASSERT_TRUE(header.IsPossible(false));
    std::vector<ReferenceTableEntry> entries;
    ASSERT_TRUE(ReadReferenceTable(header, message, entries));
    ASSERT_EQ(entries.size(), 3u);
    for (uint32_t at = 0; at < 3; ++at) {
        EXPECT_EQ(entries[at].fixed.serial, at + 1);
        EXPECT_EQ(entries[at].fixed.instance.bytes[15], at + 1);
        EXPECT_EQ(entries[at].descriptor, descriptors[at]);
    }
}

TEST(ReferenceTable, OfNoReferencesIsEmpty)
{
    using namespace TAVO::Transport;
    MessageParcel message;
    FrameHeader header;
    ASSERT_TRUE(ReferenceTableWriter(message).Finish(header));
    EXPECT_TRUE(header.IsPossible(false));
    std::vector<ReferenceTableEntry> entries;
    EXPECT_TRUE(ReadReferenceTable(header, message, entries));
    EXPECT_TRUE(entries.empty());
}

}  // namespace
}  // namespace TransportTest
