// SPDX-License-Identifier: Apache-2.0
// What a peer does with references that are not its own to use: no count but its own moves.
#include <gtest/gtest.h>

#include "platform/transport/hub_fixture.h"

namespace TransportTest {
namespace {

using TestSupport::RawInstance;
using TestSupport::WaitFor;

class HostileReference : public HubFixture {};

// Nobody can release what another holds, and an unknown or released serial is a dead object.
TEST_F(HostileReference, OverReleaseEndsTheSessionAndMovesNobodyElsesCount)
{
    const uint64_t serial = MakeObject(*raw_);
    const int32_t live = LiveObjects();
    RawPeer thief(dir_.Path());
    ASSERT_TRUE(thief.OpenSession());
    EXPECT_EQ(StatusOf(thief.CallOnce(RequestFor(TestCode::NUMBER, serial))), TAVO::IPC_DEAD_OBJECT)
        << "a serial that was never given to this peer";
    const uint64_t own = MakeObject(thief);
    EXPECT_EQ(StatusOf(thief.CallOnce(RequestFor(TestCode::NUMBER, own))), TAVO::IPC_OK);
    EXPECT_EQ(LiveObjects(), live + 1);
    ASSERT_TRUE(thief.Control().Send(RawRecord{RawRecord::RELEASE, 0, serial, 1}.Encode()));
    EXPECT_TRUE(thief.Control().WaitForEnd());
    EXPECT_TRUE(WaitFor([this, live] { return LiveObjects() == live; })) << "what the thief held is to be freed";
    EXPECT_EQ(StatusOf(raw_->CallOnce(RequestFor(TestCode::NUMBER, serial))), TAVO::IPC_OK);

    RawPeer greedy(dir_.Path());
    ASSERT_TRUE(greedy.OpenSession());
    const uint64_t one = MakeObject(greedy);
    ASSERT_TRUE(greedy.Control().Send(RawRecord{RawRecord::RELEASE, 0, one, 2}.Encode()));
    EXPECT_TRUE(greedy.Control().WaitForEnd());
    EXPECT_EQ(StatusOf(raw_->CallOnce(RequestFor(TestCode::NUMBER, serial))), TAVO::IPC_OK);
}

TEST_F(HostileReference, ReleasedSerialIsADeadObject)
{
    const uint64_t serial = MakeObject(*raw_);
    const int32_t live = LiveObjects();
    EXPECT_EQ(StatusOf(raw_->CallOnce(RequestFor(TestCode::NUMBER, serial))), TAVO::IPC_OK);
    ASSERT_TRUE(raw_->Control().Send(RawRecord{RawRecord::RELEASE, 0, serial, 1}.Encode()));
    ASSERT_TRUE(raw_->Ping());  // the release was handled before
    EXPECT_EQ(StatusOf(raw_->CallOnce(RequestFor(TestCode::NUMBER, serial))), TAVO::IPC_DEAD_OBJECT);
    EXPECT_TRUE(WaitFor([this, live] { return LiveObjects() == live - 1; }));
    EXPECT_NE(MakeObject(*raw_), serial);
}

// What a session passed stays the sender's until it is acknowledged, and comes back with the lane's end.
TEST_F(HostileReference, PassedReferenceIsTakenBackWhenItsLaneEndsUnacknowledged)
{
    const int32_t live = LiveObjects();
    RawSocket lane = raw_->OpenLane();
    ASSERT_TRUE(lane.Send(RequestFor(TestCode::MAKE).Int32(0).Encode()));
    const auto reply = lane.ReceiveFrame();
    ASSERT_TRUE(reply && reply->references.size() == 1);
    EXPECT_EQ(LiveObjects(), live + 1);
    RawRecord closed{RawRecord::LANE_CLOSED, RawRecord::OWN_LANE, raw_->LastLane() - 1,
                     0};  // LiveObjects took one more
    ASSERT_TRUE(raw_->Control().Send(closed.Encode()));
    lane.Close();
    EXPECT_TRUE(WaitFor([this, live] { return LiveObjects() == live; }));
}

TEST_F(HostileReference, ReferenceToTheReceiversObjectMustBeHeldByTheSender)
{
    const uint64_t held = MakeObject(*raw_);
    RawPeer other(dir_.Path());
    ASSERT_TRUE(other.OpenSession());
    const auto keep = [this](RawPeer& peer, uint64_t serial) {
        return StatusOf(peer.CallOnce(RequestFor(TestCode::KEEP).String("it").Reference(raw_->Target(), serial)));
    };
    EXPECT_EQ(keep(other, held), TAVO::IPC_BAD_MESSAGE);
    EXPECT_EQ(keep(*raw_, held + 1000), TAVO::IPC_BAD_MESSAGE);
    EXPECT_EQ(keep(*raw_, UINT64_MAX), TAVO::IPC_BAD_MESSAGE);
    EXPECT_EQ(keep(*raw_, held), TAVO::IPC_OK);
    EXPECT_EQ(EchoKept("it"), TAVO::IPC_OK) << "it came home";
}

// The same message is fine on one session and nothing on another.
TEST_F(HostileReference, MessageReplayedOnAnotherSessionIsRefused)
{
    const uint64_t held = MakeObject(*raw_);
    const RawFrame number = RequestFor(TestCode::NUMBER, held);
    EXPECT_EQ(StatusOf(raw_->CallOnce(number)), TAVO::IPC_OK);
    RawPeer other(dir_.Path());
    ASSERT_TRUE(other.OpenSession());
    EXPECT_EQ(StatusOf(other.CallOnce(number)), TAVO::IPC_DEAD_OBJECT);
    const RawInstance self = raw_->Instance();
    raw_ = std::make_unique<RawPeer>(dir_.Path());  // the same process after its session ended
    raw_->SetInstance(self);
    ASSERT_TRUE(WaitFor([this] { return raw_->OpenSession(); }));
    EXPECT_EQ(StatusOf(raw_->CallOnce(number)), TAVO::IPC_DEAD_OBJECT);
}

}  // namespace
}  // namespace TransportTest
