// SPDX-License-Identifier: Apache-2.0
// Memory follows the bytes that came, and large frames wait for each other.
#include "transport/frame_reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "support/raw_message.h"

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

void ExpectFrame(FrameReader& reader, const RawFrame& frame)
{
    const Bytes encoded = frame.Encode();
    ASSERT_EQ(std::memcmp(&reader.Header(), encoded.data(), sizeof(FrameHeader)), 0);
    const MessageParcel& body = reader.Body();
    ASSERT_EQ(body.GetDataSize(), encoded.size() - sizeof(FrameHeader));
    ASSERT_TRUE(std::equal(encoded.begin() + sizeof(FrameHeader), encoded.end(), body.GetData()));
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
