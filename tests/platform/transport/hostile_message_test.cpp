// SPDX-License-Identifier: Apache-2.0
// Messages in any pieces and with any reference table: whole ones are handled, others refused before they make anything.
#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>

#include "platform/transport/hub_fixture.h"

namespace TransportTest {
namespace {

using TestSupport::WaitFor;

// All that was sent has been read at the other end.
bool AwaitRead(const RawSocket& socket)
{
    return WaitFor([&socket] {
        int unread = -1;
        return ::ioctl(socket.Fd(), SIOCOUTQ, &unread) == 0 && unread == 0;
    });
}

Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

class HostileMessage : public HubFixture {
protected:
    // A request that keeps two objects of this peer, so that the table has an order.
    RawFrame KeepTwo() const
    {
        RawFrame frame = RequestFor(TestCode::KEEP);
        frame.String("two")
            .Reference(raw_->Instance(), 21, u"raw.First")
            .Reference(raw_->Instance(), 22, u"raw.Second");
        return frame;
    }

    std::vector<int32_t> Notes()
    {
        const auto answer = raw_->CallOnce(RequestFor(TestCode::NOTES));
        std::vector<int32_t> notes;
        for (size_t at = 0; answer && at + 4 <= answer->data.size(); at += 4) {
            notes.push_back(TestSupport::ReadAt<int32_t>(answer->data, at));
        }
        return notes;
    }
};

// A request that waits for its object is charged to its sender until the handler has it.
TEST_F(HostileMessage, RequestsQueuedAtABusyObjectAreChargedToTheirSender)
{
    constexpr int BUDGET = 128;                                             // MiB
    constexpr int SIZE = 12;                                                // MiB
    const auto made = raw_->CallOnce(RequestFor(TestCode::MAKE).Int32(1));  // handles one request at a time
    ASSERT_TRUE(made && made->references.size() == 1);
    const uint64_t busy = made->references[0].serial;
    RawSocket first = raw_->OpenLane();
    ASSERT_TRUE(first.Send(RequestFor(TestCode::WAIT, busy).Encode()));
    ASSERT_EQ(hub_.Ask("await-waiting 1"), "waiting");
    RawFrame large = RequestFor(TestCode::NUMBER, busy);
    large.data.resize(size_t{SIZE} << 20);
    const Bytes bytes = large.Encode();
    std::vector<RawSocket> lanes;
    bool isWhole = true;
    while (isWhole && lanes.size() < 2 * BUDGET / SIZE) {
        lanes.push_back(raw_->OpenLane());
        isWhole = lanes.back().Send(bytes, std::chrono::seconds(2));
    }
    EXPECT_FALSE(isWhole);
    const size_t queued = lanes.size() - 1;
    EXPECT_LE(queued, size_t{BUDGET / SIZE + 1}) << "one may exceed it";
    EXPECT_GE(queued, size_t{BUDGET / SIZE / 2});
    EXPECT_EQ(StatusOf(raw_->CallOnce(RequestFor(TestCode::OPEN))), TAVO::IPC_OK);
    for (size_t lane = 0; lane < queued; ++lane) {
        EXPECT_TRUE(lanes[lane].ReceiveFrame()) << lane;
    }
}

TEST_F(HostileMessage, MessagesSentByteByByteAreReassembled)
{
    RawPeer slow(dir_.Path());
    RawSocket control = slow.Connect("manager");
    RawSocket lane = slow.Connect("manager");
    RawHello hello;
    hello.instance = slow.Instance();
    ASSERT_TRUE(control.SendByteByByte(hello.Encode()) && control.ReceiveHello());
    hello.kind = RawHello::CALL;
    hello.lane = 1;
    ASSERT_TRUE(lane.SendByteByByte(hello.Encode()));
    for (uint64_t number = 1; number <= 3; ++number) {
        ASSERT_TRUE(control.SendByteByByte(RawRecord{RawRecord::PING, 0, number, 0}.Encode()));
        const auto pong = control.ReceiveRecord();
        EXPECT_TRUE(pong && pong->type == RawRecord::PONG && pong->a == number);
        RawFrame keep = RequestFor(TestCode::KEEP, 0, number);
        keep.String("slow " + std::to_string(number)).Reference(slow.Instance(), number, u"raw.Object");
        ASSERT_TRUE(lane.SendByteByByte(keep.Encode()));
        EXPECT_EQ(StatusOf(lane.ReceiveFrame()), TAVO::IPC_OK);
        const auto taken = control.ReceiveRecord();
        EXPECT_TRUE(taken && taken->type == RawRecord::TAKEN && taken->a == 1 && taken->b == number);
    }
}

TEST_F(HostileMessage, ThreeMessagesAreReassembledFromAnyTwoPieces)
{
    RawSocket lane = raw_->OpenLane(RawHello::ONE_WAY);
    std::vector<int32_t> expected;
    uint64_t number = 0;
    size_t size = 0;
    for (size_t cutAt = 0; cutAt <= size; ++cutAt) {
        Bytes messages;
        for (int count = 0; count < 3; ++count) {
            expected.push_back(static_cast<int32_t>(expected.size()));
            // A text behind the number, so that the messages have different lengths.
            RawFrame note = RequestFor(TestCode::NOTE, 0, ++number).Int32(expected.back());
            messages = messages + note.String(std::string(static_cast<size_t>(count) * 5, 'n')).Encode();
        }
        size = messages.size();
        const auto middle = messages.begin() + static_cast<ptrdiff_t>(cutAt);
        ASSERT_TRUE(lane.Send(Bytes(messages.begin(), middle)));
        ASSERT_TRUE(AwaitRead(lane));
        ASSERT_TRUE(lane.Send(Bytes(middle, messages.end())));
        ASSERT_TRUE(AwaitRead(lane));
    }
    EXPECT_TRUE(WaitFor([this, &expected] { return Notes().size() >= expected.size(); }));
    EXPECT_EQ(Notes(), expected);
}

// What was sent before the sender died is run, whether its end is seen before the requests or while the first one runs.
TEST_F(HostileMessage, OneWayRequestsOfADeadSenderAreRun)
{
    for (const bool isSeenAfter : {false, true}) {
        SCOPED_TRACE(isSeenAfter);
        const size_t before = Notes().size();
        {
            const auto sender = NewPeer();
            MakeObject(*sender);
            if (!isSeenAfter) {
                hub_.Stop();
            }
            RawSocket lane = sender->OpenLane(RawHello::ONE_WAY);
            ASSERT_TRUE(lane.Send(RequestFor(TestCode::WAIT).Encode()));
            for (uint64_t number = 2; number <= 4; ++number) {
                ASSERT_TRUE(lane.Send(RequestFor(TestCode::NOTE, 0, number).Int32(5).Encode()));
            }
            EXPECT_TRUE(!isSeenAfter || hub_.Ask("await-waiting 1") == "waiting");
        }
        hub_.Continue();
        EXPECT_EQ(hub_.Ask("await-waiting 1"), "waiting");
        EXPECT_TRUE(raw_->Ping());  // the control thread has seen the end
        EXPECT_EQ(Notes().size(), before);
        EXPECT_EQ(StatusOf(raw_->CallOnce(RequestFor(TestCode::OPEN))), TAVO::IPC_OK);
        EXPECT_TRUE(WaitFor([this, before] { return Notes().size() == before + 3; }));
        EXPECT_TRUE(AwaitLiveObjects(1)) << "what the dead held is freed, the requests once they are run";
    }
}

// What is spoiled of the request of KeepTwo.
const std::vector<std::pair<const char*, std::function<void(RawFrame& f)>>> TABLES_THAT_DO_NOT_HOLD = {
    {"offset off a slot by 1", [](RawFrame& f) { f.references[0].offset += 1; }},
    {"offset off a slot by 2", [](RawFrame& f) { f.references[1].offset += 2; }},
    {"offset at the end", [](RawFrame& f) { f.references[1].offset = static_cast<uint32_t>(f.data.size()); }},
    {"offset a slot before the end",
     [](RawFrame& f) { f.references[1].offset = static_cast<uint32_t>(f.data.size()) - 4; }},
    {"offset past the end", [](RawFrame& f) { f.references[1].offset = 1 << 20; }},
    {"largest offset", [](RawFrame& f) { f.references[1].offset = 0xfffffffc; }},
    {"the same place twice", [](RawFrame& f) { f.references[1].offset = f.references[0].offset; }},
    {"places that overlap", [](RawFrame& f) { f.references[1].offset = f.references[0].offset + 4; }},
    {"not in order", [](RawFrame& f) { std::swap(f.references[0], f.references[1]); }},
    {"place of a string", [](RawFrame& f) { f.references[0].offset = 0; }},
    {"other magic in the data", [](RawFrame& f) { f.data[f.references[0].offset] ^= 1; }},
    {"other index in the data", [](RawFrame& f) { f.data[f.references[0].offset + 4] ^= 1; }},
    {"one entry more than announced", [](RawFrame& f) { f.referenceCount = 1; }},
    {"one entry less than announced",
     [](RawFrame& f) {
         f.references[1].descriptor.assign(100, u'd');
         f.referenceCount = 3;
     }},
    {"descriptor shorter than its place", [](RawFrame& f) { f.references[1].announcedUnits = 2; }},
    {"descriptor past the end of the table", [](RawFrame& f) { f.references[1].announcedUnits = 200; }},
    {"descriptor of 257 units", [](RawFrame& f) { f.references[1].descriptor.assign(257, u'd'); }},
    {"descriptor of 2 billion units", [](RawFrame& f) { f.references[0].announcedUnits = 0x7fffffff; }},
    {"descriptor of 4 billion units", [](RawFrame& f) { f.references[1].announcedUnits = 0xffffffff; }},
    {"serial 0", [](RawFrame& f) { f.references[1].serial = 0; }},
};

TEST_F(HostileMessage, InvalidReferenceTableRefusesThatRequestOnly)
{
    RawSocket lane = raw_->OpenLane();
    uint64_t number = 0;
    for (const auto& [name, spoil] : TABLES_THAT_DO_NOT_HOLD) {
        SCOPED_TRACE(name);
        RawFrame keep = KeepTwo();
        spoil(keep);
        keep.number = ++number;
        ASSERT_TRUE(lane.Send(keep.Encode()));
        EXPECT_EQ(StatusOf(lane.ReceiveFrame()), TAVO::IPC_BAD_MESSAGE);
        ASSERT_TRUE(lane.Send(RequestFor(TestCode::ECHO, 0, ++number).Int32(1).Encode()));
        EXPECT_EQ(StatusOf(lane.ReceiveFrame()), TAVO::IPC_OK);
    }
    EXPECT_EQ(EchoKept("two"), 1) << "something was kept";
    // No object was made: the first one that is acquired and released is of the message that holds together.
    RawFrame keep = KeepTwo();
    keep.number = ++number;
    ASSERT_TRUE(lane.Send(keep.Encode()));
    EXPECT_EQ(StatusOf(lane.ReceiveFrame()), TAVO::IPC_OK);
    EXPECT_TRUE(WaitFor([&] {  // KEEP reads the first one only
        const auto record = raw_->Control().ReceiveRecord();
        EXPECT_TRUE(record);
        EXPECT_TRUE(!record || record->type != RawRecord::TAKEN || record->b == number);
        EXPECT_TRUE(!record || record->type != RawRecord::RELEASE || (record->a == 22 && record->b == 1));
        return !record || record->type == RawRecord::RELEASE;
    }));
}

// The message is handled at once. Only its acknowledgement waits for the owner, and its object is dead then.
TEST_F(HostileMessage, ReferenceWithoutALivingOwnerIsADeadObject)
{
    for (const std::string owner : {"absent", "silent until it dies", "ignorant"}) {
        SCOPED_TRACE(owner);
        RawPeer third(dir_.Path());
        RawFrame keep = RequestFor(TestCode::KEEP).String(owner).Reference(third.Instance(), 5, u"raw.Object");
        RawHello hello;
        RawSocket control;
        if (owner != "absent") {
            third.Listen();
        }
        EXPECT_EQ(StatusOf(raw_->CallOnce(keep)), TAVO::IPC_OK);
        ExpectServes();
        if (owner != "absent") {
            control = third.Accept(hello);
            ASSERT_EQ(hello.kind, RawHello::CONTROL);
            ExpectServes();
        }
        if (owner == "ignorant") {
            hello.instance = third.Instance();
            ASSERT_TRUE(control.Send(hello.Encode()));
            const auto acquire = control.ReceiveRecord();
            ASSERT_TRUE(acquire);
            EXPECT_EQ(acquire->type, RawRecord::ACQUIRE);
            EXPECT_EQ(acquire->a, 5u);
            ASSERT_TRUE(control.Send(RawRecord{RawRecord::ACQUIRED, 0, 5, 1}.Encode()));
        } else {
            control.Close();
        }
        EXPECT_TRUE(raw_->AwaitRecord(RawRecord::TAKEN)) << "known dead is as good as acquired";
        EXPECT_EQ(EchoKept(owner), TAVO::IPC_DEAD_OBJECT);
    }
}

}  // namespace
}  // namespace TransportTest
