// SPDX-License-Identifier: Apache-2.0
// What a peer may send: it can spoil its own lane, request or session, and nothing of anybody else.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

#include "platform/transport/hub_fixture.h"

namespace TransportTest {
namespace {

using TestSupport::RawInstance;
using TestSupport::RawReference;
using TestSupport::WaitFor;

class HostilePeer : public HubFixture {};

struct WrongHello {
    const char* name;
    RawHello hello;
};

TEST_F(HostilePeer, WrongHelloClosesTheConnection)
{
    RawHello good;
    good.instance = raw_->Instance();
    std::vector<WrongHello> rows(9, WrongHello{"", good});
    rows[0].name = "magic", rows[0].hello.magic ^= 1;
    rows[1].name = "older version", rows[1].hello.version = 0;
    rows[2].name = "newer version", rows[2].hello.version = 2;
    rows[3].name = "kind 0", rows[3].hello.kind = 0;
    rows[4].name = "kind 5", rows[4].hello.kind = 5;
    rows[5].name = "kind 0xffff", rows[5].hello.kind = 0xffff;
    rows[6].name = "lane of nobody", rows[6].hello.kind = RawHello::CALL, rows[6].hello.instance.fill(0x77);
    rows[7].name = "one-way lane of nobody", rows[7].hello.kind = RawHello::ONE_WAY, rows[7].hello.instance.fill(0x77);
    rows[8].name = "notice lane of nobody", rows[8].hello.kind = RawHello::NOTICE, rows[8].hello.instance.fill(0x77);
    for (const WrongHello& row : rows) {
        SCOPED_TRACE(row.name);
        RawSocket connection = raw_->Connect("manager");
        ASSERT_TRUE(connection.Send(row.hello.Encode()));
        EXPECT_TRUE(connection.WaitForEnd());
        ExpectServes();
    }
}

struct Header {
    const char* name;
    RawFrame frame;
};

std::vector<Header> ImpossibleHeaders()
{
    const RawFrame echo = RequestFor(TestCode::ECHO).Int32(1);
    const auto withSizes = [&echo](uint32_t dataBytes, uint32_t tableBytes, uint16_t references) {
        RawFrame frame = echo;
        frame.dataBytes = dataBytes;
        frame.tableBytes = tableBytes;
        frame.referenceCount = references;
        return frame;
    };
    constexpr uint32_t LARGEST = 64 << 20;
    std::vector<Header> rows = {
        {"1 byte of data", withSizes(1, 0, 0)},
        {"a slot less one", withSizes(3, 0, 0)},
        {"a slot and one", withSizes(5, 0, 0)},
        {"2 GiB less one", withSizes(0x7fffffff, 0, 0)},
        {"2 GiB", withSizes(0x80000000, 0, 0)},
        {"4 GiB less one", withSizes(0xffffffff, 0, 0)},
        {"4 GiB less a slot", withSizes(0xfffffffc, 0, 0)},
        {"largest frame and a slot", withSizes(LARGEST - 32 + 4, 0, 0)},
        {"data and table together too large", withSizes(LARGEST - 64, 64, 1)},
        {"sizes whose sum overflows", withSizes(0xfffffffc, 0xfffffffc, 1)},
        {"table of 4 GiB", withSizes(4, 0xffffffff, 1)},
        {"table without references", withSizes(4, 32, 0)},
        {"references without a table", withSizes(4, 0, 1)},
        {"table shorter than its references", withSizes(4, 63, 2)},
        {"table longer than its reference can be", withSizes(4, 32 + 512 + 4, 1)},
        {"more references than a message may have", withSizes(4, 32 * 1025, 1025)},
        {"65535 references", withSizes(4, 32 * 65535, 65535)},
        {"a reply", echo},
        {"kind 0", echo},
        {"kind 3", echo},
    };
    rows[rows.size() - 3].frame.kind = RawFrame::REPLY;
    rows[rows.size() - 2].frame.kind = 0;
    rows[rows.size() - 1].frame.kind = 3;
    return rows;
}

TEST_F(HostilePeer, ImpossibleFrameEndsItsLaneOnly)
{
    for (const Header& row : ImpossibleHeaders()) {
        for (const uint16_t kind : {RawHello::CALL, RawHello::ONE_WAY}) {
            SCOPED_TRACE(std::string(row.name) + (kind == RawHello::CALL ? ", call lane" : ", one-way lane"));
            RawSocket lane = raw_->OpenLane(kind);
            ASSERT_TRUE(lane.Send(row.frame.Encode()));
            EXPECT_TRUE(lane.WaitForEnd());
            EXPECT_TRUE(raw_->Ping()) << "the session was to stay";
        }
    }
    ExpectServes();
}

TEST_F(HostilePeer, WrongMessageNumberEndsItsLaneOnly)
{
    for (const uint64_t number : {uint64_t{0}, uint64_t{2}, UINT64_MAX}) {
        SCOPED_TRACE(number);
        RawSocket lane = raw_->OpenLane();
        ASSERT_TRUE(lane.Send(RequestFor(TestCode::ECHO, 0, number).Int32(1).Encode()));
        EXPECT_TRUE(lane.WaitForEnd());
        EXPECT_TRUE(raw_->Ping());
    }
}

TEST_F(HostilePeer, OneWayFrameAbove64KiBEndsItsLane)
{
    RawFrame note = RequestFor(TestCode::NOTE);
    note.data.resize((64 << 10) - RawFrame::HEADER_SIZE + 4);
    RawSocket lane = raw_->OpenLane(RawHello::ONE_WAY);
    ASSERT_TRUE(lane.Send(note.Encode()));
    EXPECT_TRUE(lane.WaitForEnd());
    EXPECT_TRUE(raw_->Ping());
}

TEST_F(HostilePeer, MalformedControlRecordEndsTheSessionOnly)
{
    const std::vector<std::pair<const char*, RawRecord>> rows = {
        {"type 0", {0, 0, 0, 0}},
        {"type 9", {9, 0, 0, 0}},
        {"type 4 billion", {UINT32_MAX, 0, 0, 0}},
        {"unknown flag", {RawRecord::PING, 2, 0, 0}},
        {"all flags", {RawRecord::TAKEN, UINT32_MAX, 1, 1}},
        {"release of an object never given", {RawRecord::RELEASE, 0, 12345, 1}},
        {"release of the root", {RawRecord::RELEASE, 0, 0, 1}},
        {"release of 4 billion and more", {RawRecord::RELEASE, 0, 1, UINT64_MAX}},
    };
    for (const auto& [name, record] : rows) {
        SCOPED_TRACE(name);
        RawPeer other(dir_.Path());
        ASSERT_TRUE(other.OpenSession());
        const RawSocket idleLane = other.OpenLane();
        ASSERT_TRUE(other.Ping());
        ASSERT_TRUE(other.Control().Send(record.Encode()));
        EXPECT_TRUE(other.Control().WaitForEnd());
        ExpectServes();
    }
}

// Records about lanes and numbers that never were may be ignored or end the session; they do no other harm.
TEST_F(HostilePeer, AcknowledgementsOfNothingAreHarmless)
{
    for (const uint32_t type : {RawRecord::TAKEN, RawRecord::LANE_CLOSED, RawRecord::ACQUIRED, RawRecord::PONG}) {
        for (const uint32_t flags : {0u, RawRecord::OWN_LANE}) {
            for (const uint64_t number : {uint64_t{0}, uint64_t{1}, UINT64_MAX}) {
                SCOPED_TRACE(type);
                RawPeer other(dir_.Path());
                ASSERT_TRUE(other.OpenSession());
                ASSERT_TRUE(other.Control().Send(RawRecord{type, flags, number, number}.Encode()));
                ExpectServes();
            }
        }
    }
}

TEST_F(HostilePeer, UninvitedDescriptorsAreNeverOpenInTheReceiver)
{
    const pid_t target = hub_.Pid();
    RawSocket lane = raw_->OpenLane();
    ASSERT_TRUE(lane.Send(RequestFor(TestCode::ECHO).Encode()) && lane.ReceiveFrame());
    const size_t before = TestSupport::CountDescriptors(target);
    for (uint64_t number = 2; number < 2000; ++number) {  // two sets with each request, one with each ping
        const size_t count = number % 2 == 0 ? 1 : 253;
        const RawRecord ping{RawRecord::PING, 0, number, 0};
        const Bytes request = RequestFor(TestCode::ECHO, 0, number).Int32(1).Encode();
        const Bytes head(request.begin(), request.begin() + 10);
        const Bytes rest(request.begin() + 10, request.end());
        ASSERT_TRUE(lane.SendWithDescriptors(head, count) && lane.SendWithDescriptors(rest, count));
        ASSERT_TRUE(raw_->Control().SendWithDescriptors(ping.Encode(), count));
        ASSERT_TRUE(lane.ReceiveFrame());
        ASSERT_TRUE(raw_->AwaitRecord(RawRecord::PONG));
        ASSERT_LE(TestSupport::CountDescriptors(target), before);
    }
    RawHello hello;
    hello.kind = RawHello::CALL;
    hello.instance = raw_->Instance();
    hello.lane = 1000;
    RawSocket another = raw_->Connect("manager");
    ASSERT_TRUE(another.SendWithDescriptors(hello.Encode(), 253));
    ASSERT_TRUE(another.Send(RequestFor(TestCode::ECHO).Encode()) && another.ReceiveFrame());
    EXPECT_LE(TestSupport::CountDescriptors(target), before + 1);
}

TEST_F(HostilePeer, ConnectionsThatComeAndGoLeaveNothing)
{
    for (int round = 0; round < 2000; ++round) {
        RawSocket connection = raw_->Connect("manager");
        ASSERT_TRUE(connection.IsOpen());
        if (round % 3 == 1) {
            connection.Send(Bytes(20, 0));
        }
    }
    ExpectServes();
}

TEST_F(HostilePeer, AThousandSilentConnectionsKeepNobodyOut)
{
    constexpr int COUNT = 1000;
    std::vector<RawSocket> silent;
    for (int count = 0; count < COUNT; ++count) {
        silent.push_back(raw_->Connect("manager"));
    }
    ExpectServes();
    for (RawSocket& connection : silent) {
        EXPECT_TRUE(connection.WaitForEnd()) << "a hello must come within 2 s";
    }
}

TEST_F(HostilePeer, SecondSessionOfOneInstanceHarmsNobodyElse)
{
    RawPeer twin(dir_.Path());
    ASSERT_TRUE(twin.OpenSession());
    for (int round = 0; round < 20; ++round) {
        RawPeer again(dir_.Path());
        again.SetInstance(twin.Instance());
        again.OpenSession();
        ExpectServes();
    }
    RawPeer self(dir_.Path());
    self.SetInstance(raw_->Target());  // the receiver's own name
    self.OpenSession();
    ExpectServes();
}

}  // namespace
}  // namespace TransportTest
