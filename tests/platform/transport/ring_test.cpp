// SPDX-License-Identifier: Apache-2.0
// Rings: what is in them is run as what is on a socket is, and neither end can be harmed by what the other does to one.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <ostream>
#include <utility>

#include "platform/transport/hub_fixture.h"
#include "support/raw_ring.h"
#include "wire/ring.h"

namespace TransportTest {
namespace {

using TestSupport::RawInstance;
using TestSupport::RawRing;
using TestSupport::WaitFor;

constexpr uint16_t INTO_RING = 4;

RawFrame Note(uint64_t number)
{
    return RequestFor(TestCode::NOTE, 0, number).Int32(static_cast<int32_t>(number));
}

RawFrame IntoRing(uint64_t number)
{
    RawFrame frame;
    frame.kind = INTO_RING;
    frame.number = number;
    return frame;
}

// The hub receives; this process sends so much that it is offered a ring.
class OfferedRing : public HubFixture {
protected:
    void SetUp() override
    {
        HubFixture::SetUp();
        lane_ = raw_->OpenLane(RawHello::ONE_WAY);
        std::optional<RawRecord> offer;
        while (!offer && last_ < 256 * 200) {  // a slow machine does not take them for a stream at once
            Bytes burst;
            for (const uint64_t end = last_ + 256; last_ < end;) {
                const Bytes note = Note(++last_).Encode();
                burst.insert(burst.end(), note.begin(), note.end());
            }
            ASSERT_TRUE(lane_.Send(burst));
            offer = raw_->AwaitRecord(RawRecord::RING, std::chrono::milliseconds(last_ < 512 ? 0 : 200));
        }
        ASSERT_TRUE(offer);
        EXPECT_EQ(offer->a, raw_->LastLane());
        EXPECT_EQ(offer->flags, 0u);
        ring_.emplace(hub_.Pid(), offer->b);
        ASSERT_TRUE(ring_->IsOpen());
    }

    bool AwaitNotes(size_t count)
    {
        return WaitFor([this, count] {
            const auto answer = raw_->CallOnce(RequestFor(TestCode::NOTES));
            return answer && answer->data.size() == 4 * count;
        });
    }
    bool AwaitAsleep()
    {
        return WaitFor([this] { return ring_->Reader().load() == RawRing::ASLEEP; });
    }
    void RingBell() { lane_.Send(Bytes{0}); }

    RawSocket lane_;
    uint64_t last_ = 0;  // note on the socket
    std::optional<RawRing> ring_;
};

TEST_F(OfferedRing, RequestsInTheRingRunInOrderAlsoAfterTheSenderDied)
{
    // It sleeps at first, so there may be a bell at once.
    ring_->Write(Note(last_ + 1).Encode());
    Bytes switching = IntoRing(last_ + 1).Encode();
    switching.push_back(0);
    lane_.Send(switching);
    EXPECT_TRUE(AwaitNotes(last_ + 1));
    ASSERT_TRUE(AwaitAsleep());
    ring_->Write(Note(last_ + 2).Encode());
    RingBell();
    EXPECT_TRUE(AwaitNotes(last_ + 2));
    const Bytes third = Note(last_ + 3).Encode();
    ring_->Write(Bytes(third.begin(), third.begin() + 10));
    RingBell();
    ASSERT_TRUE(WaitFor([this] { return ring_->Read().load() == ring_->Written().load(); }));
    ring_->Write(Bytes(third.begin() + 10, third.end()));
    ring_->Write(Note(last_ + 4).Encode());
    lane_.Close();  // no bell, and the session stays
    EXPECT_TRUE(AwaitNotes(last_ + 4));
    EXPECT_TRUE(WaitFor([this] { return ring_->Reader().load() == RawRing::ENDED; }));
    const auto notes = raw_->CallOnce(RequestFor(TestCode::NOTES));
    for (size_t i = 0; i < last_ + 4; ++i) {
        ASSERT_EQ(TestSupport::ReadAt<int32_t>(notes->data, 4 * i), static_cast<int32_t>(i + 1));
    }
}

// Ways to spoil it, each of which costs the lane and nothing else.
struct Spoiled {
    const char* name;
    std::function<void(RawRing& ring, uint64_t next)> act;
    bool hasBody = false;  // the frame that switches to it
};

void PrintTo(const Spoiled& row, std::ostream* out)
{
    *out << row.name;
}

const Spoiled SPOILED[] = {
    {"more_than_there_is_room", [](auto& ring, auto) { ring.Written() += RawRing::CAPACITY + 1; }},
    {"less_than_nothing", [](auto& ring, auto) { --ring.Written(); }},
    {"impossible_frame", [](auto& ring, auto) { ring.Write(Bytes(32, 0xff)); }},
    {"frame_out_of_turn", [](auto& ring, auto next) { ring.Write(Note(next + 1).Encode()); }},
    {"into_it_again", [](auto& ring, auto next) { ring.Write(IntoRing(next).Encode()); }},
    {"switch_with_a_body", [](auto&, auto) {}, true},
};

class SpoiledRing : public OfferedRing, public ::testing::WithParamInterface<Spoiled> {};

TEST_P(SpoiledRing, EndsItsLaneOnly)
{
    RawFrame switching = IntoRing(last_ + 1);
    lane_.Send((GetParam().hasBody ? switching.Int32(7) : switching).Encode());
    GetParam().act(*ring_, last_ + 1);
    RingBell();
    EXPECT_TRUE(lane_.WaitForEnd(std::chrono::seconds(5))) << "a ring without use ends its lane after 10 s";
    EXPECT_EQ(ring_->Reader().load(), RawRing::ENDED);
    EXPECT_TRUE(raw_->Ping());
}

INSTANTIATE_TEST_SUITE_P(Ring, SpoiledRing, ::testing::ValuesIn(SPOILED));

TEST_F(OfferedRing, IsWithdrawnWhenTheSenderDoesNotUseIt)
{
    const auto withdrawn = raw_->AwaitRecord(RawRecord::RING);
    ASSERT_TRUE(withdrawn);
    EXPECT_EQ(withdrawn->a, raw_->LastLane());
    EXPECT_EQ(withdrawn->b, UINT64_MAX);
    EXPECT_EQ(ring_->Reader().load(), RawRing::ENDED);
    lane_.Send(Note(last_ + 1).Encode());
    EXPECT_TRUE(AwaitNotes(last_ + 1));
    lane_.Send(IntoRing(last_ + 2).Encode());
    EXPECT_TRUE(lane_.WaitForEnd());
    EXPECT_TRUE(raw_->Ping());
}

// The reader sets itself asleep, then checks for unread bytes. The idle sweep may end the ring between these two steps.
TEST(Ring, IsNotEndedWithAcceptedBytesUnread)
{
    using TAVO::Transport::IoStatus;
    using TAVO::Transport::RingReader;
    using TAVO::Transport::RingWriter;
    const TAVO::Transport::Instance self;
    const auto reader = RingReader::Make(self, 1);
    ASSERT_NE(reader, nullptr);
    const auto writer = RingWriter::Open(::getpid(), static_cast<uint64_t>(reader->Fd()), self, 1);
    ASSERT_NE(writer, nullptr);
    RawRing memory(::getpid(), static_cast<uint64_t>(reader->Fd()));
    uint32_t sent = 4711;
    uint32_t received = 0;
    bool needsBell = false;
    reader->WakeUp();
    ASSERT_EQ(writer->Write(&sent, sizeof(sent), needsBell).status, IoStatus::OK);
    memory.Reader() = RawRing::ASLEEP;
    EXPECT_FALSE(reader->EndIfUnused());
    EXPECT_FALSE(reader->Sleep());
    EXPECT_EQ(reader->Read(&received, sizeof(received)).status, IoStatus::OK);
    EXPECT_EQ(received, sent);
    EXPECT_TRUE(reader->Sleep());
    EXPECT_TRUE(reader->EndIfUnused());
    EXPECT_EQ(writer->Write(&sent, sizeof(sent), needsBell).status, IoStatus::CLOSED);
    EXPECT_EQ(reader->Read(&received, sizeof(received)).status, IoStatus::CLOSED);
}

TEST_F(OfferedRing, SwitchToARingThatWasNotOfferedClosesTheLane)
{
    for (const uint16_t kind : {RawHello::CALL, RawHello::ONE_WAY, RawHello::NOTICE}) {
        SCOPED_TRACE(kind);
        RawSocket other = raw_->OpenLane(kind);
        other.Send(IntoRing(1).Encode());
        EXPECT_TRUE(other.WaitForEnd());
    }
    EXPECT_TRUE(raw_->Ping());
}

// Takes notes from the lane; false when something else arrives before so many.
bool TakeNotes(RawSocket& lane, int count)
{
    while (count-- > 0) {
        const auto frame = lane.ReceiveFrame();
        if (!frame || frame->kind != RawFrame::REQUEST) {
            return false;
        }
    }
    return true;
}

// Whether the sender replaces the lane by a new one, and continues there.
bool IsLeft(RawPeer& raw, RawSocket& lane, RawHello& hello)
{
    std::optional<RawFrame> frame = lane.ReceiveFrame();
    while (frame && frame->kind == RawFrame::REQUEST) {
        frame = lane.ReceiveFrame();
    }
    if (!frame || frame->kind != INTO_RING || !lane.WaitForEnd()) {
        return false;
    }
    lane = raw.Accept(hello);
    return lane.IsOpen() && TakeNotes(lane, 1);
}

// Returns which step of the conversation went wrong; 0: none.
int OfferAllKinds(RawPeer& raw)
{
    constexpr int MORE_THAN_A_SOCKET_HOLDS = 1000;
    RawHello hello;
    RawSocket lane = raw.Accept(hello);
    const RawRing ofOthers(raw.Target(), hello.lane);
    const RawRing ofAnotherLane(raw.Instance(), hello.lane + 1);
    const RawRing unsealed(raw.Instance(), hello.lane, RawRing::SIZE, 0);
    const RawRing shorter(raw.Instance(), hello.lane, RawRing::SIZE - 1);
    const RawRing longer(raw.Instance(), hello.lane, RawRing::SIZE + 1);
    const TestSupport::OwnedFd noMemory(::open("/dev/zero", O_RDWR));
    int pipe[2];
    if (::pipe(pipe) != 0) {
        return 1;
    }
    for (const int fd : {ofOthers.Fd(), ofAnotherLane.Fd(), unsealed.Fd(), shorter.Fd(), longer.Fd(), noMemory.Get(),
                         pipe[0], 100000, -1}) {
        if (!OfferMemory(raw, hello.lane, fd)) {
            return 2;
        }
    }
    if (!TakeNotes(lane, MORE_THAN_A_SOCKET_HOLDS)) {
        return 3;
    }
    RawRing overRead(raw.Instance(), hello.lane);
    ++overRead.Read();
    if (!OfferMemory(raw, hello.lane, overRead.Fd()) || !IsLeft(raw, lane, hello)) {
        return 4;
    }
    RawRing abandoned(raw.Instance(), hello.lane);
    abandoned.Written() |= RawRing::CLOSED;
    if (!OfferMemory(raw, hello.lane, abandoned.Fd()) || !IsLeft(raw, lane, hello)) {
        return 5;
    }
    RawRing good(raw.Instance(), hello.lane);
    good.Reader() = RawRing::ASLEEP;
    if (!OfferMemory(raw, hello.lane, good.Fd())) {
        return 6;
    }
    std::optional<RawFrame> frame = lane.ReceiveFrame();
    while (frame && frame->kind == RawFrame::REQUEST) {
        frame = lane.ReceiveFrame();
    }
    const bool isRung = frame && frame->kind == INTO_RING && lane.Receive(1).has_value();
    return isRung && good.Written() > 0 && good.Written() <= RawRing::CAPACITY ? 0 : 7;
}

TEST(RingOfAnother, IsUsedOnlyIfItIsValid)
{
    const TestSupport::PrivateRuntimeDir dir;
    Child callee = ForkCallee(dir.Path(), "callee", [](RawPeer& raw) { ::_exit(OfferAllKinds(raw)); });
    ServeAsHub();
    ASSERT_TRUE(StartCallee(callee));
    const sptr<IRemoteObject> object = World::Get().Kept("callee");
    std::string end;
    EXPECT_TRUE(WaitFor([&] {
        for (int i = 0; i < 100; ++i) {
            Call(object, TestCode::NOTE).Int(i).SendOneWay();
        }
        end = callee.WaitForExit(std::chrono::seconds(0));
        return end != "running";
    }));
    EXPECT_EQ(end, "exit 0");
}

}  // namespace
}  // namespace TransportTest
