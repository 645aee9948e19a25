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
TEST_F(HostileReference, NobodyReleasesWhatAnotherHolds)
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
}

struct OverRelease {
    const char* name;
    std::vector<RawRecord> records;  // a RELEASE is of the one object that the peer holds, once
};

TEST_F(HostileReference, ReleaseOfMoreThanIsHeldEndsTheSession)
{
    constexpr uint64_t UNOPENED_LANE = 1000;
    const RawRecord release{RawRecord::RELEASE, 0, 0, 1};
    const RawRecord after{RawRecord::AFTER, RawRecord::OWN_LANE, UNOPENED_LANE, 1};
    const std::vector<OverRelease> rows = {
        {"two of one", {{RawRecord::RELEASE, 0, 0, 2}}},
        {"all there are", {{RawRecord::RELEASE, 0, 0, UINT64_MAX}}},
        {"none", {{RawRecord::RELEASE, 0, 0, 0}}},
        {"one, twice", {release, release}},
        {"after a message to come, two of one", {after, {RawRecord::RELEASE, 0, 0, 2}}},
        {"after a message to come, none", {after, {RawRecord::RELEASE, 0, 0, 0}}},
        {"after a message to come, twice", {after, release, after, release}},
        {"after a message to come, and at once", {after, release, release}},
    };
    const uint64_t serial = MakeObject(*raw_);
    const int32_t live = LiveObjects();
    for (const OverRelease& row : rows) {
        SCOPED_TRACE(row.name);
        RawPeer greedy(dir_.Path());
        ASSERT_TRUE(greedy.OpenSession());
        const uint64_t one = MakeObject(greedy);
        for (RawRecord record : row.records) {
            record.a = record.type == RawRecord::RELEASE ? one : record.a;
            greedy.Control().Send(record.Encode());
        }
        ASSERT_TRUE(greedy.Control().WaitForEnd());
        EXPECT_TRUE(WaitFor([this, live] { return LiveObjects() == live; }));
        EXPECT_EQ(StatusOf(raw_->CallOnce(RequestFor(TestCode::NUMBER, serial))), TAVO::IPC_OK);
    }
}

TEST_F(HostileReference, ReleaseAfterAMessageWaitsForItAndNoLonger)
{
    const uint64_t serial = MakeObject(*raw_);
    RawSocket lane = raw_->OpenLane(RawHello::ONE_WAY);
    const RawRecord after{RawRecord::AFTER, RawRecord::OWN_LANE, raw_->LastLane(), 1};
    ASSERT_TRUE(raw_->Control().Send(after.Encode()));
    ASSERT_TRUE(raw_->Control().Send(RawRecord{RawRecord::RELEASE, 0, serial, 1}.Encode()));
    ASSERT_TRUE(raw_->Ping());
    EXPECT_EQ(StatusOf(raw_->CallOnce(RequestFor(TestCode::NUMBER, serial))), TAVO::IPC_OK);
    ASSERT_TRUE(lane.Send(RequestFor(TestCode::NOTE, serial).Int32(5).Encode()));
    EXPECT_TRUE(WaitFor([this, serial] {
        return StatusOf(raw_->CallOnce(RequestFor(TestCode::NUMBER, serial))) == TAVO::IPC_DEAD_OBJECT;
    }));
    const auto notes = raw_->CallOnce(RequestFor(TestCode::NOTES));
    EXPECT_TRUE(notes && notes->data == RequestFor(TestCode::NOTE).Int32(5).data) << "the message was run";
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

// A request is refused as a whole, and with it goes back what its sender had counted.
TEST_F(HostileReference, RefusedRequestGivesItsReferencesBack)
{
    constexpr uint64_t OWN_SERIAL = 77;
    RawFrame request = RequestFor(TestCode::KEEP).String("it");
    request.Reference(raw_->Instance(), OWN_SERIAL).Reference(raw_->Target(), UINT64_MAX);
    EXPECT_EQ(StatusOf(raw_->CallOnce(request)), TAVO::IPC_BAD_MESSAGE);
    const auto release = raw_->AwaitRecord(RawRecord::RELEASE);
    ASSERT_TRUE(release);
    EXPECT_EQ(release->a, OWN_SERIAL);
    EXPECT_EQ(release->b, 1u);
    EXPECT_TRUE(raw_->AwaitRecord(RawRecord::TAKEN));
}

TEST_F(HostileReference, NoSerialIsUsedTwice)
{
    constexpr uint64_t OBJECTS = 5000;
    const int32_t live = LiveObjects();
    RawSocket lane = raw_->OpenLane();
    const uint64_t laneNumber = raw_->LastLane();
    uint64_t last = 0;
    for (uint64_t number = 1; number <= OBJECTS; ++number) {
        ASSERT_TRUE(lane.Send(RequestFor(TestCode::MAKE, 0, number).Int32(0).Encode()));
        const auto made = lane.ReceiveFrame();
        ASSERT_TRUE(made && made->references.size() == 1);
        ASSERT_GT(made->references[0].serial, last);
        last = made->references[0].serial;
        ASSERT_TRUE(
            raw_->Control().Send(RawRecord{RawRecord::TAKEN, RawRecord::OWN_LANE, laneNumber, number}.Encode()));
        ASSERT_TRUE(raw_->Control().Send(RawRecord{RawRecord::RELEASE, 0, last, 1}.Encode()));
    }
    EXPECT_TRUE(WaitFor([this, live] { return LiveObjects() == live; }));
}

struct Replayed {
    const char* name;
    RawFrame frame;
    int elsewhere;  // its status on a session other than the one that it was made for, where it is fine
};

// Another process, or the same one after its session ended.
TEST_F(HostileReference, MessageReplayedOnAnotherSessionReachesNothingThatIsNotItsOwn)
{
    const int32_t live = LiveObjects();
    const uint64_t held = MakeObject(*raw_);
    const RawInstance self = raw_->Instance();
    const auto keep = [](const RawInstance& owner, uint64_t serial) {
        return RequestFor(TestCode::KEEP).String("kept").Reference(owner, serial, u"raw.Object");
    };
    const std::vector<Replayed> rows = {
        {"call of an object that is held", RequestFor(TestCode::NUMBER, held), TAVO::IPC_DEAD_OBJECT},
        {"reference that goes home", keep(raw_->Target(), held), TAVO::IPC_BAD_MESSAGE},
        {"reference to the sender's own object", keep(self, 21), TAVO::IPC_OK},
    };
    RawPeer other(dir_.Path());
    ASSERT_TRUE(other.OpenSession());
    for (const Replayed& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(StatusOf(raw_->CallOnce(row.frame)), TAVO::IPC_OK);
        EXPECT_EQ(StatusOf(other.CallOnce(row.frame)), row.elsewhere);
    }
    EXPECT_EQ(LiveObjects(), live + 1);
    const Bytes release = RawRecord{RawRecord::RELEASE, 0, held, 1}.Encode();
    ASSERT_TRUE(other.Control().Send(release));
    EXPECT_TRUE(other.Control().WaitForEnd());
    EXPECT_EQ(StatusOf(raw_->CallOnce(rows[0].frame)), TAVO::IPC_OK) << "it is still held here";

    raw_ = std::make_unique<RawPeer>(dir_.Path());
    raw_->SetInstance(self);
    ASSERT_TRUE(WaitFor([this] { return raw_->OpenSession(); }));
    EXPECT_TRUE(WaitFor([this, live] { return LiveObjects() == live; })) << "freed with the session";
    for (const Replayed& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(StatusOf(raw_->CallOnce(row.frame)), row.elsewhere);
    }
    ASSERT_TRUE(raw_->Control().Send(release));
    EXPECT_TRUE(raw_->Control().WaitForEnd());
    ASSERT_TRUE(WaitFor([this] { return raw_->OpenSession(); }));
    EXPECT_EQ(LiveObjects(), live);
}

}  // namespace
}  // namespace TransportTest
