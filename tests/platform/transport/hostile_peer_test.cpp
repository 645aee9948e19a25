// SPDX-License-Identifier: Apache-2.0
// What a peer may send: it can spoil its own lane, request or session, and nothing of anybody else.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <utility>

#include "platform/transport/descriptor_limit.h"
#include "platform/transport/hub_fixture.h"

namespace TransportTest {
namespace {

using HostilePeer = HubFixture;

// Hellos of different connections may be read in any order, so which lane is one too many is open until the others are
// counted. The second answer shows that the control thread has handled all that was pending before the first ping.
bool LanesAreCounted(RawPeer& peer)
{
    return peer.Ping() && peer.Ping();
}

TEST_F(HostilePeer, InvalidHelloClosesTheConnection)
{
    const std::vector<std::pair<const char*, std::function<void(RawHello & hello)>>> rows = {
        {"magic", [](RawHello& hello) { hello.magic ^= 1; }},
        {"older version", [](RawHello& hello) { hello.version = 0; }},
        {"newer version", [](RawHello& hello) { hello.version = 2; }},
        {"kind 0", [](RawHello& hello) { hello.kind = 0; }},
        {"kind 5", [](RawHello& hello) { hello.kind = 5; }},
        {"kind 0xffff", [](RawHello& hello) { hello.kind = 0xffff; }},
        {"lane of nobody", [](RawHello& hello) { hello.kind = RawHello::CALL, hello.instance.fill(0x77); }},
        {"one-way lane of nobody", [](RawHello& hello) { hello.kind = RawHello::ONE_WAY, hello.instance.fill(0x77); }},
        {"notice lane of nobody", [](RawHello& hello) { hello.kind = RawHello::NOTICE, hello.instance.fill(0x77); }},
    };
    for (const auto& [name, spoil] : rows) {
        SCOPED_TRACE(name);
        RawHello hello;
        hello.instance = raw_->Instance();
        spoil(hello);
        RawSocket connection = raw_->Connect("manager");
        ASSERT_TRUE(connection.Send(hello.Encode()));
        EXPECT_TRUE(connection.WaitForEnd());
        ExpectServes();
    }
}

RawFrame EchoOfSizes(uint32_t dataBytes, uint32_t tableBytes, uint16_t references)
{
    RawFrame frame = RequestFor(TestCode::ECHO).Int32(1);
    frame.dataBytes = dataBytes;
    frame.tableBytes = tableBytes;
    frame.referenceCount = references;
    return frame;
}

RawFrame EchoOfKind(uint16_t kind)
{
    RawFrame frame = RequestFor(TestCode::ECHO).Int32(1);
    frame.kind = kind;
    return frame;
}

TEST_F(HostilePeer, InvalidFrameHeaderClosesThatLaneOnly)
{
    constexpr uint32_t LARGEST = 64 << 20;
    const std::vector<std::pair<const char*, RawFrame>> rows = {
        {"1 byte of data", EchoOfSizes(1, 0, 0)},
        {"a slot less one", EchoOfSizes(3, 0, 0)},
        {"a slot and one", EchoOfSizes(5, 0, 0)},
        {"2 GiB less one", EchoOfSizes(0x7fffffff, 0, 0)},
        {"2 GiB", EchoOfSizes(0x80000000, 0, 0)},
        {"4 GiB less one", EchoOfSizes(0xffffffff, 0, 0)},
        {"4 GiB less a slot", EchoOfSizes(0xfffffffc, 0, 0)},
        {"largest frame and a slot", EchoOfSizes(LARGEST - 32 + 4, 0, 0)},
        {"data and table together too large", EchoOfSizes(LARGEST - 64, 64, 1)},
        {"sizes whose sum overflows", EchoOfSizes(0xfffffffc, 0xfffffffc, 1)},
        {"table of 4 GiB", EchoOfSizes(4, 0xffffffff, 1)},
        {"table without references", EchoOfSizes(4, 32, 0)},
        {"references without a table", EchoOfSizes(4, 0, 1)},
        {"table shorter than its references", EchoOfSizes(4, 63, 2)},
        {"table longer than its reference can be", EchoOfSizes(4, 32 + 512 + 4, 1)},
        {"more references than a message may have", EchoOfSizes(4, 32 * 1025, 1025)},
        {"65535 references", EchoOfSizes(4, 32 * 65535, 65535)},
        {"a reply", EchoOfKind(RawFrame::REPLY)},
        {"kind 0", EchoOfKind(0)},
        {"kind 4", EchoOfKind(4)},
        {"number 0", RequestFor(TestCode::ECHO, 0, 0)},
        {"number 2 first", RequestFor(TestCode::ECHO, 0, 2)},
        {"largest number", RequestFor(TestCode::ECHO, 0, UINT64_MAX)},
        {"a first request, one-way only", EchoOfKind(3)},
        {"above 64 KiB, one-way only", EchoOfSizes((64 << 10) - RawFrame::HEADER_SIZE + 4, 0, 0)},
    };
    for (const auto& [name, frame] : rows) {
        for (const uint16_t kind : {RawHello::CALL, RawHello::ONE_WAY}) {
            SCOPED_TRACE(std::string(name) + (kind == RawHello::CALL ? ", call lane" : ", one-way lane"));
            if (std::string_view(name).ends_with("one-way only") && kind == RawHello::CALL) {
                continue;  // a good one there
            }
            RawSocket lane = raw_->OpenLane(kind);
            ASSERT_TRUE(lane.Send(frame.Encode()));
            EXPECT_TRUE(lane.WaitForEnd(std::chrono::seconds(5))) << "an unfinished frame would end it after 8 s";
            EXPECT_TRUE(raw_->Ping()) << "the session was to stay";
        }
    }
}

// Records about lanes and numbers that never were may be ignored or end the session; they do no other harm.
TEST_F(HostilePeer, UnexpectedAcknowledgementsAreIgnored)
{
    for (const uint32_t type : {RawRecord::TAKEN, RawRecord::LANE_CLOSED, RawRecord::ACQUIRED, RawRecord::PONG}) {
        for (const uint32_t flags : {0u, RawRecord::OWN_LANE}) {
            for (const uint64_t number : {uint64_t{0}, uint64_t{1}, UINT64_MAX}) {
                SCOPED_TRACE(type);
                const auto other = NewPeer();
                ASSERT_TRUE(other->Control().Send(RawRecord{type, flags, number, number}.Encode()));
                ExpectServes();
            }
        }
    }
}

// A caller that timed out opens another lane, perhaps before a worker has closed the first one.
TEST_F(HostilePeer, CallLaneBeyondTheLimitWaitsUntilAnotherCloses)
{
    constexpr int LIMIT = 64;
    const Bytes echo = RequestFor(TestCode::ECHO).Int32(1).Encode();
    std::vector<RawSocket> lanes;
    for (int count = 0; count < LIMIT; ++count) {
        lanes.push_back(raw_->OpenLane());
        ASSERT_TRUE(lanes.back().Send(echo) && lanes.back().ReceiveFrame()) << count;
    }
    std::vector<RawSocket> waiting;
    for (int count = 0; count < LIMIT; ++count) {
        waiting.push_back(raw_->OpenLane());
        ASSERT_TRUE(waiting.back().Send(echo));
    }
    EXPECT_FALSE(waiting.front().AwaitReadable(std::chrono::milliseconds(200))) << "one more is served";
    waiting.erase(waiting.begin(), waiting.begin() + LIMIT / 2);  // their callers give up
    for (int count = 0; count < LIMIT / 2; ++count) {
        waiting.push_back(raw_->OpenLane());
        ASSERT_TRUE(waiting.back().Send(echo));
    }
    EXPECT_TRUE(LanesAreCounted(*raw_));
    RawSocket tooMany;
    for (int count = 0; count < LIMIT / 2; ++count) {
        tooMany = raw_->OpenLane();
    }
    EXPECT_TRUE(tooMany.WaitForEnd());
    EXPECT_EQ(raw_->AwaitRecord(RawRecord::LANE_CLOSED)->b, 0u) << "nothing was taken from it";
    EXPECT_TRUE(raw_->Ping());
    lanes.clear();
    for (RawSocket& lane : waiting) {
        EXPECT_TRUE(lane.ReceiveFrame());
    }
}

// The names of other processes' instances can be read in the runtime directory.
TEST_F(HostilePeer, LaneInTheNameOfAnotherProcessIsRefused)
{
    for (const uint16_t kind : {RawHello::CALL, RawHello::ONE_WAY, RawHello::NOTICE}) {
        SCOPED_TRACE(kind);
        Child impostor = Child::Fork([&](LinePipe&) {
            RawSocket lane = raw_->OpenLane(kind);
            lane.Send(RequestFor(TestCode::NOTE).Int32(666).Encode());
            return lane.WaitForEnd() ? 0 : 1;
        });
        EXPECT_EQ(impostor.WaitForExit(), "exit 0");
    }
    const auto notes = raw_->CallOnce(RequestFor(TestCode::NOTES));
    EXPECT_TRUE(notes && notes->data.empty()) << "a request was run";
}

// All but that of the page which a busy lane is offered.
size_t CountForeignDescriptors(pid_t pid)
{
    size_t count = 0;
    std::error_code error;
    for (const auto& fd : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd")) {
        const bool isPage = std::filesystem::read_symlink(fd, error).string().starts_with("/memfd:tavo-lane");
        count += isPage ? 0 : 1;
    }
    return count;
}

TEST_F(HostilePeer, UnexpectedDescriptorsAreNotOpenInTheReceiver)
{
    const pid_t target = hub_.Pid();
    RawSocket lane = raw_->OpenLane();
    ASSERT_TRUE(lane.Send(RequestFor(TestCode::ECHO).Encode()) && lane.ReceiveFrame());
    const size_t before = CountForeignDescriptors(target);
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
        ASSERT_LE(CountForeignDescriptors(target), before);
    }
    RawHello hello;
    hello.kind = RawHello::CALL;
    hello.instance = raw_->Instance();
    hello.lane = 1000;
    RawSocket another = raw_->Connect("manager");
    ASSERT_TRUE(another.SendWithDescriptors(hello.Encode(), 253));
    ASSERT_TRUE(another.Send(RequestFor(TestCode::ECHO).Encode()) && another.ReceiveFrame());
    EXPECT_LE(CountForeignDescriptors(target), before + 1);
}

TEST_F(HostilePeer, IncompleteHellosAreBoundedAndTimeOut)
{
    constexpr size_t LIMIT = 1024;  // of connections without a whole hello
    LimitDescriptors(hub_.Pid(), 4 * LIMIT);
    LimitDescriptors(::getpid(), 4 * LIMIT);  // An ordinary user's processes often begin with 1024.
    const Bytes hello = RawHello().Encode();
    size_t most = 0;
    const auto start = TestSupport::Clock::now();
    std::vector<RawSocket> silent;
    for (int round = 0; round < 3000; ++round) {
        RawSocket connection = raw_->Connect("manager");
        connection.Send(Bytes(hello.begin(), hello.begin() + round % 32));
        if (round % 2 == 0) {  // the others close at once
            silent.push_back(std::move(connection));
        }
        most = round % 100 == 0 ? std::max(most, TestSupport::CountDescriptors(hub_.Pid())) : most;
    }
    EXPECT_LE(most, descriptors_ + LIMIT + 100);
    ExpectServes();
    for (RawSocket& connection : silent) {
        EXPECT_TRUE(connection.WaitForEnd()) << "a hello must come within 2 s";
    }
    EXPECT_LT(TestSupport::Clock::now() - start, std::chrono::seconds(10));
}

TEST_F(HostilePeer, OneWayLanesOfAPeerAreLimited)
{
    constexpr int LIMIT = 4;
    std::vector<RawSocket> lanes;
    for (int count = 0; count < LIMIT; ++count) {
        lanes.push_back(raw_->OpenLane(count % 2 == 0 ? RawHello::ONE_WAY : RawHello::NOTICE));
    }
    EXPECT_TRUE(LanesAreCounted(*raw_));
    EXPECT_TRUE(raw_->OpenLane(RawHello::ONE_WAY).WaitForEnd(std::chrono::seconds(5)));
    EXPECT_TRUE(raw_->Ping());
}

// 24 bytes of answer to each, which the peer never reads.
TEST_F(HostilePeer, SessionOfAPeerThatReadsNoRecordsIsClosed)
{
    const auto deaf = NewPeer();
    Bytes pings;
    while (pings.size() < (size_t{1} << 20)) {
        const Bytes ping = RawRecord{RawRecord::PING, 0, 1, 0}.Encode();
        pings.insert(pings.end(), ping.begin(), ping.end());
    }
    int mebibytes = 0;
    while (mebibytes < 16 && deaf->Control().Send(pings)) {
        ++mebibytes;
    }
    EXPECT_LT(mebibytes, 16);
}

TEST_F(HostilePeer, AThousandSessionsAreServed)
{
    LimitDescriptors(hub_.Pid(), 4096);
    LimitDescriptors(::getpid(), 4096);
    std::vector<std::unique_ptr<RawPeer>> peers;
    for (int count = 0; count < 1000; ++count) {
        peers.push_back(NewPeer());
        ASSERT_EQ(StatusOf(peers.back()->CallOnce(RequestFor(TestCode::ECHO).Int32(count))), TAVO::IPC_OK) << count;
    }
}

// However many connections of others are accepted first.
TEST_F(HostilePeer, RequestOnALaneThatIsNotAcceptedYetRunsAfterTheEndOfItsSender)
{
    constexpr int MORE_THAN_TWO_TURNS_ACCEPT = 200;
    const auto sender = NewPeer();
    hub_.Stop();
    std::vector<RawSocket> others;
    for (int count = 0; count < MORE_THAN_TWO_TURNS_ACCEPT; ++count) {
        others.push_back(raw_->Connect("manager"));
    }
    RawSocket lane = sender->OpenLane(RawHello::ONE_WAY);
    EXPECT_TRUE(lane.Send(RequestFor(TestCode::NOTE).Int32(7).Encode()));
    sender->Control().Close();
    hub_.Continue();
    EXPECT_TRUE(TestSupport::WaitFor([this] { return !raw_->CallOnce(RequestFor(TestCode::NOTES))->data.empty(); }));
}

TEST_F(HostilePeer, PeerThatConnectsAgainBeforeItsEndIsNoticedIsAccepted)
{
    const auto peer = NewPeer();
    hub_.Stop();
    peer->Control().Close();
    RawSocket again = peer->Connect("manager");
    RawHello hello;
    hello.instance = peer->Instance();
    EXPECT_TRUE(again.Send(hello.Encode()));
    hub_.Continue();
    const auto answer = again.ReceiveHello();
    EXPECT_TRUE(answer && answer->lane == 0) << "refused, as if the first connection stood";
}

TEST_F(HostilePeer, SecondSessionOfAnInstanceAffectsNoOther)
{
    const auto twin = NewPeer();
    for (int round = 0; round < 20; ++round) {
        RawPeer again(dir_.Path());
        again.SetInstance(round == 0 ? raw_->Target() : twin->Instance());  // the receiver's own name, and another's
        again.OpenSession();
        ExpectServes();
    }
}

}  // namespace
}  // namespace TransportTest
