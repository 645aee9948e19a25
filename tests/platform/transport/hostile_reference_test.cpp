// SPDX-License-Identifier: Apache-2.0
// What a peer does with references that are not its own to use: no count but its own moves.
#include <gtest/gtest.h>

#include "platform/transport/hub_fixture.h"

namespace TransportTest {
namespace {

using TestSupport::RawInstance;
using TestSupport::WaitFor;

using HostileReference = HubFixture;

TEST_F(HostileReference, InvalidRecordClosesOnlyThatSession)
{
    constexpr uint64_t HELD = 1'000'000;
    constexpr uint64_t UNOPENED_LANE = 1000;
    const RawRecord release{RawRecord::RELEASE, 0, HELD, 1};
    const RawRecord after{RawRecord::AFTER, RawRecord::OWN_LANE, UNOPENED_LANE, 1};
    const uint64_t ofAnother = MakeObject(*raw_);
    // A RELEASE of HELD is of the one object that the peer holds, once.
    const std::vector<std::pair<const char*, std::vector<RawRecord>>> rows = {
        {"type 0", {{0, 0, 0, 0}}},
        {"type 10", {{10, 0, 0, 0}}},
        {"a ring for the receiver's own lane", {{9, RawRecord::OWN_LANE, 1, 0}}},
        {"type 4 billion", {{UINT32_MAX, 0, 0, 0}}},
        {"unknown flag", {{RawRecord::PING, 2, 0, 0}}},
        {"all flags", {{RawRecord::TAKEN, UINT32_MAX, 1, 1}}},
        {"release of an object never given", {{RawRecord::RELEASE, 0, 12345, 1}}},
        {"release of another's object", {{RawRecord::RELEASE, 0, ofAnother, 1}}},
        {"release of the root", {{RawRecord::RELEASE, 0, 0, 1}}},
        {"two of one", {{RawRecord::RELEASE, 0, HELD, 2}}},
        {"all there are", {{RawRecord::RELEASE, 0, HELD, UINT64_MAX}}},
        {"none", {{RawRecord::RELEASE, 0, HELD, 0}}},
        {"one, twice", {release, release}},
        {"after a message to come, two of one", {after, {RawRecord::RELEASE, 0, HELD, 2}}},
        {"after a message to come, none", {after, {RawRecord::RELEASE, 0, HELD, 0}}},
        {"after a message to come, twice", {after, release, after, release}},
        {"after a message to come, and at once", {after, release, release}},
    };
    const int32_t live = LiveObjects();
    for (const auto& [name, records] : rows) {
        SCOPED_TRACE(name);
        const auto greedy = NewPeer();
        const uint64_t one = MakeObject(*greedy);
        for (RawRecord record : records) {
            record.a = record.a == HELD ? one : record.a;
            greedy->Control().Send(record.Encode());
        }
        ASSERT_TRUE(greedy->Control().WaitForEnd());
        EXPECT_TRUE(AwaitLiveObjects(live)) << "what the peer held is to be freed";
        EXPECT_EQ(StatusOf(raw_->CallOnce(RequestFor(TestCode::NUMBER, ofAnother))), TAVO::IPC_OK);
    }
}

TEST_F(HostileReference, ReleaseAfterAMessageWaitsForTheMessageOrTheEndOfItsLane)
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

    // Nor longer than its lane, when the message never comes.
    const int32_t live = LiveObjects();
    const uint64_t second = MakeObject(*raw_);
    RawSocket ended = raw_->OpenLane(RawHello::ONE_WAY);
    const RawRecord afterNone{RawRecord::AFTER, RawRecord::OWN_LANE, raw_->LastLane(), 1};
    ASSERT_TRUE(raw_->Control().Send(afterNone.Encode()));
    ASSERT_TRUE(raw_->Control().Send(RawRecord{RawRecord::RELEASE, 0, second, 1}.Encode()));
    ASSERT_TRUE(raw_->Ping());
    ended.Close();
    EXPECT_TRUE(AwaitLiveObjects(live));
}

// Of the receiver's objects a peer holds so many, and further ones are neither passed to it nor acquired by it.
TEST_F(HostileReference, ObjectsHeldByAPeerAreLimited)
{
    constexpr int32_t IN_ONE_MESSAGE = 1024;
    constexpr int32_t LIMIT = 65536;
    const auto other = NewPeer();
    const uint64_t ofOther = MakeObject(*other);
    RawSocket lane = raw_->OpenLane();
    const uint64_t laneNumber = raw_->LastLane();
    uint64_t number = 0;
    for (int32_t held = 0; held < LIMIT; held += IN_ONE_MESSAGE) {
        ASSERT_TRUE(lane.Send(RequestFor(TestCode::MAKE, 0, ++number).Int32(0).Int32(IN_ONE_MESSAGE).Encode()));
        ASSERT_EQ(StatusOf(lane.ReceiveFrame()), TAVO::IPC_OK) << held;
        ASSERT_TRUE(
            raw_->Control().Send(RawRecord{RawRecord::TAKEN, RawRecord::OWN_LANE, laneNumber, number}.Encode()));
    }
    ASSERT_TRUE(lane.Send(RequestFor(TestCode::MAKE, 0, ++number).Int32(0).Encode()));
    EXPECT_TRUE(lane.WaitForEnd()) << "more were passed";
    ASSERT_TRUE(raw_->Control().Send(RawRecord{RawRecord::ACQUIRE, 0, ofOther, 0}.Encode()));
    EXPECT_EQ(raw_->AwaitRecord(RawRecord::ACQUIRED)->b, 1u);
}

// Of a peer's objects the receiver holds so many: those of requests that wait count too.
TEST_F(HostileReference, ObjectsHeldOfAPeerAreLimited)
{
    constexpr uint64_t LANES = 64;
    constexpr uint64_t IN_ONE_MESSAGE = 1024;
    const uint64_t busy = MakeObject(*raw_);
    std::vector<RawSocket> lanes;
    uint64_t serial = 0;
    const auto waitWith = [&](uint64_t references) {
        RawFrame wait = RequestFor(TestCode::WAIT, busy);
        for (uint64_t count = 0; count < references; ++count) {
            wait.Reference(raw_->Instance(), ++serial);
        }
        return wait.Encode();
    };
    for (uint64_t lane = 0; lane < LANES; ++lane) {
        lanes.push_back(raw_->OpenLane());
        ASSERT_TRUE(lanes.back().Send(waitWith(IN_ONE_MESSAGE)));
        ASSERT_TRUE(raw_->AwaitRecord(RawRecord::TAKEN)) << lane;
    }
    ASSERT_TRUE(raw_->OpenLane(RawHello::ONE_WAY).Send(waitWith(1)));
    const auto release = raw_->AwaitRecord(RawRecord::RELEASE);
    ASSERT_TRUE(release);
    EXPECT_EQ(release->a, serial) << "the one beyond the limit is given back";
    EXPECT_TRUE(WaitFor([&] {  // they come to wait twelve at a time
        raw_->Ping();          // reads the releases
        NewPeer()->CallOnce(RequestFor(TestCode::OPEN));
        return lanes.back().ReceiveFrame(std::chrono::milliseconds(10)).has_value();
    }));
}

// What a session passed stays the sender's until it is acknowledged, and comes back with the lane's end.
TEST_F(HostileReference, UnacknowledgedReferenceIsReleasedWhenItsLaneCloses)
{
    const int32_t live = LiveObjects();
    RawSocket lane = raw_->OpenLane();
    ASSERT_TRUE(lane.Send(RequestFor(TestCode::MAKE).Int32(0).Encode()));
    const auto reply = lane.ReceiveFrame();
    ASSERT_TRUE(reply && reply->references.size() == 1);
    EXPECT_EQ(LiveObjects(), live + 1);
    const uint64_t number = raw_->LastLane() - 1;  // LiveObjects took one more
    const RawRecord closed{RawRecord::LANE_CLOSED, RawRecord::OWN_LANE, number, 0};
    ASSERT_TRUE(raw_->Control().Send(closed.Encode()));
    lane.Close();
    EXPECT_TRUE(AwaitLiveObjects(live));
}

// A request is refused as a whole, and with it goes back what its sender had counted.
TEST_F(HostileReference, RefusedRequestReleasesItsReferences)
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

// Each message holds a record here until the owner of what it passes has answered.
TEST_F(HostileReference, MessagesThatCannotBeAcknowledgedAreRefusedBeyondALimit)
{
    constexpr uint64_t LIMIT = 4096;
    RawPeer silent(dir_.Path());
    silent.Listen();
    RawSocket lane = raw_->OpenLane();
    for (uint64_t number = 1; number <= LIMIT + 1; ++number) {
        RawFrame keep =
            RequestFor(TestCode::KEEP, 0, number).String("it").Reference(silent.Instance(), 1, u"raw.Object");
        ASSERT_TRUE(lane.Send(keep.Encode()));
        ASSERT_EQ(StatusOf(lane.ReceiveFrame()), number <= LIMIT ? TAVO::IPC_OK : TAVO::IPC_BAD_MESSAGE) << number;
    }
}

TEST_F(HostileReference, FirstRequestReachesAnExportedObjectAndHoldsNoReference)
{
    constexpr uint16_t FIRST_REQUEST = 3;
    const int32_t live = LiveObjects();
    const uint64_t held = MakeObject(*raw_);
    RawFrame first = RequestFor(TestCode::NUMBER, held);
    first.kind = FIRST_REQUEST;
    const auto other = NewPeer();
    EXPECT_EQ(StatusOf(other->CallOnce(RequestFor(TestCode::NUMBER, held))), TAVO::IPC_DEAD_OBJECT);
    EXPECT_EQ(StatusOf(other->CallOnce(first)), TAVO::IPC_OK);
    EXPECT_EQ(StatusOf(other->CallOnce(RequestFor(TestCode::NUMBER, held))), TAVO::IPC_DEAD_OBJECT);
    ASSERT_TRUE(raw_->Control().Send(RawRecord{RawRecord::RELEASE, 0, held, 1}.Encode()));
    EXPECT_TRUE(AwaitLiveObjects(live));
    EXPECT_EQ(StatusOf(other->CallOnce(first)), TAVO::IPC_DEAD_OBJECT);
}

// The control thread finds both at once, and the holder first, which had sent something before. The connection of the
// other one may not even be accepted then.
TEST_F(HostileReference, AcquireSentBeforeTheOnlyHolderEndedSucceeds)
{
    for (const bool isConnected : {true, false}) {
        SCOPED_TRACE(isConnected);
        auto holder = NewPeer();
        const uint64_t serial = MakeObject(*holder);
        ASSERT_TRUE(raw_->Ping());
        hub_.Stop();
        holder->Control().Send(RawRecord{RawRecord::PING, 0, 0, 0}.Encode());
        RawSocket fresh;
        if (!isConnected) {
            RawHello hello;
            hello.instance.fill(0x66);
            fresh = raw_->Connect("manager");
            fresh.Send(hello.Encode());
        }
        RawSocket& control = isConnected ? raw_->Control() : fresh;
        control.Send(RawRecord{RawRecord::ACQUIRE, 0, serial, 0}.Encode());
        holder.reset();
        hub_.Continue();
        EXPECT_TRUE(isConnected || fresh.ReceiveHello());
        const auto acquired = control.ReceiveRecord();
        ASSERT_TRUE(acquired && acquired->type == RawRecord::ACQUIRED);
        EXPECT_EQ(acquired->b, 0u);
    }
}

// The hello arrived after its connection was accepted, and the lane is read before that hello.
TEST_F(HostileReference, LaneIsServedAlthoughTheHelloOfItsSessionIsUnread)
{
    RawHello hello;
    hello.instance.fill(0x55);
    RawSocket control = raw_->Connect("manager");
    ASSERT_TRUE(raw_->Ping() && raw_->Ping());  // accepted by now
    hub_.Stop();
    RawSocket lane = raw_->Connect("manager");
    control.Send(hello.Encode());
    hello.kind = RawHello::CALL;
    hello.lane = 1;
    lane.Send(hello.Encode());
    lane.Send(RequestFor(TestCode::ECHO).Encode());
    hub_.Continue();
    const auto answer = lane.ReceiveFrame();
    EXPECT_EQ(StatusOf(answer), TAVO::IPC_OK);
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
    EXPECT_TRUE(AwaitLiveObjects(live));
}

struct Replayed {
    const char* name;
    RawFrame frame;
    int elsewhere;  // its status on a session other than the one that it was made for, where it is fine
};

// Another process, or the same one after its session ended.
TEST_F(HostileReference, MessageReplayedOnAnotherSessionReachesOnlyThatSessionsObjects)
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
    const auto other = NewPeer();
    for (const Replayed& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(StatusOf(raw_->CallOnce(row.frame)), TAVO::IPC_OK);
        EXPECT_EQ(StatusOf(other->CallOnce(row.frame)), row.elsewhere);
    }
    EXPECT_EQ(LiveObjects(), live + 1);
    raw_ = std::make_unique<RawPeer>(dir_.Path());
    raw_->SetInstance(self);
    ASSERT_TRUE(WaitFor([this] { return raw_->OpenSession(); }));
    EXPECT_TRUE(AwaitLiveObjects(live)) << "freed with the session";
    for (const Replayed& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(StatusOf(raw_->CallOnce(row.frame)), row.elsewhere);
    }
}

}  // namespace
}  // namespace TransportTest
