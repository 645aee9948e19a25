// SPDX-License-Identifier: Apache-2.0
// How requests run side by side: floods, one at a time, twelve at once, large ones, and those that come too late.
#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "platform/transport/peer_fixture.h"
#include "support/raw_message.h"
#include "wire/frame_reader.h"

namespace TransportTest {
namespace {

using TAVO::Transport::ByteBudget;
using TAVO::Transport::FrameHeader;
using TAVO::Transport::FrameReader;
using TAVO::Transport::MessageKind;
using TestSupport::Bytes;
using TestSupport::Child;
using TestSupport::RawFrame;
using TestSupport::WaitFor;
using State = FrameReader::State;

using Flow = PeerFixture;
using Statuses = std::vector<std::future<int>>;

// Calls of WAIT, each from a thread of its own.
Statuses WaitIn(int count, const sptr<IRemoteObject>& target)
{
    Statuses statuses;
    for (int caller = 0; caller < count; ++caller) {
        statuses.push_back(std::async(std::launch::async, [target] { return Call(target, TestCode::WAIT).Send(60); }));
    }
    return statuses;
}

// The flood never ends, and its receiver has still time for others.
TEST_F(Flow, OneWayFloodDelaysNoCallOfAnotherClient)
{
    constexpr int CALLS = 500;
    const Child other = StartPeer("other");
    const sptr<IRemoteObject> client = Kept("other");
    ASSERT_EQ(KeepIn(client, "flooded", object_), TAVO::IPC_OK);
    std::atomic<bool> isOver{false};
    std::atomic<int> refused{0};
    std::thread flood([this, &isOver, &refused] {
        const std::string large(32 << 10, 'f');
        while (!isOver) {
            refused += Call(object_, TestCode::ECHO).Text(large).SendOneWay() == TAVO::IPC_QUEUE_FULL;
        }
    });
    EXPECT_TRUE(WaitFor([&refused] { return refused > 0; }));
    const auto servedCalls = [&client] {
        int served = 0;
        for (int call = 0; call < CALLS; ++call) {
            served += CallKept(client, "flooded") == TAVO::IPC_OK;
        }
        return served;
    };
    const auto start = TestSupport::Clock::now();
    EXPECT_EQ(servedCalls(), CALLS);
    EXPECT_LT(TestSupport::Clock::now() - start, std::chrono::seconds(20));
    // The same with a handler that blocks: the requests behind it wait, and no others do.
    EXPECT_TRUE(WaitFor([this] { return Call(object_, TestCode::WAIT).SendOneWay() == TAVO::IPC_OK; }));
    EXPECT_EQ(peer_.Ask("await-waiting 1"), "waiting");
    EXPECT_EQ(servedCalls(), CALLS);
    isOver = true;
    flood.join();
    EXPECT_EQ(Call(object_, TestCode::OPEN).Send(), TAVO::IPC_OK);
}

TEST_F(Flow, OneWayRequestsRunInTheirOrder)
{
    constexpr int32_t COUNT = 8000;  // through the socket and several times around the ring
    for (int32_t i = 0; i < COUNT; ++i) {
        const std::string text(static_cast<size_t>(i) % 200, 't');
        ASSERT_TRUE(
            WaitFor([&] { return Call(object_, TestCode::NOTE).Int(i).Text(text).SendOneWay() == TAVO::IPC_OK; }));
    }
    EXPECT_TRUE(AwaitNotesThere(COUNT));
    EXPECT_EQ(NotesThere(), Counting(0, COUNT));
}

TEST_F(Flow, QueuedRequestOfATimedOutCallDoesNotRun)
{
    const sptr<IRemoteObject> oneAtATime = MakeIn(object_, true);
    Statuses first = WaitIn(1, oneAtATime);
    EXPECT_EQ(peer_.Ask("await-waiting 1"), "waiting");
    EXPECT_EQ(Call(oneAtATime, TestCode::NOTE).Int(1).Send(1), TAVO::IPC_TIMED_OUT);
    EXPECT_EQ(Call(object_, TestCode::OPEN).Send(), TAVO::IPC_OK);
    EXPECT_EQ(first[0].get(), TAVO::IPC_OK);
    EXPECT_EQ(Call(oneAtATime, TestCode::NOTE).Int(2).Send(), TAVO::IPC_OK);
    EXPECT_EQ(NotesThere(), Counting(2, 1));
}

struct Crowd {
    bool isSerial;
    int callers;
    int atOnce;
};

TEST_F(Flow, ObjectOccupiesAtMostTwelveWorkers)
{
    for (const Crowd& row : {Crowd{true, 8, 1}, Crowd{false, 30, 12}}) {
        SCOPED_TRACE(row.atOnce);
        const sptr<IRemoteObject> busy = MakeIn(object_, row.isSerial);
        const size_t threadsBefore = TestSupport::CountThreads(peer_.Pid());
        Statuses statuses = WaitIn(row.callers, busy);
        EXPECT_EQ(peer_.Ask("await-waiting " + std::to_string(row.atOnce)), "waiting");
        for (int round = 0; round < 100; ++round) {
            EXPECT_EQ(Echo(object_, round), TAVO::IPC_OK) << "another object is served meanwhile";
        }
        EXPECT_LE(TestSupport::CountThreads(peer_.Pid()), threadsBefore + 16) << "waiting requests take no thread";
        for (std::future<int>& status : statuses) {
            EXPECT_TRUE(WaitFor([this, &status] {  // let them through in turn, as they come
                Call(object_, TestCode::OPEN).Send();
                return status.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
            }));
            EXPECT_EQ(status.get(), TAVO::IPC_OK);
        }
        EXPECT_EQ(Call(busy, TestCode::MOST_AT_ONCE).SendForInt(), row.atOnce);
    }
}

TEST_F(Flow, MessagesUpToTheLimitAreSentBothWays)
{
    constexpr int32_t SIZE = 46137344;  // of the longest list that is sent
    constexpr int SECONDS = 60;         // A sanitizer on a busy machine takes its time over so many bytes.
    Call echo(object_, TestCode::ECHO);
    EXPECT_EQ(echo.Text(std::string(SIZE, 'd')).Send(SECONDS), TAVO::IPC_OK);
    EXPECT_EQ(echo.reply.ReadString(), std::string(SIZE, 'd'));
    const std::string oneWay((64 << 10) - 32 - 8, 's');  // less the frame's header, the text's length and end
    const std::string parcel(TAVO::Parcel::MAX_DATA_BYTES - 8, 's');
    EXPECT_EQ(Call(object_, TestCode::ECHO).Text(oneWay).SendOneWay(), TAVO::IPC_OK);
    EXPECT_EQ(Call(object_, TestCode::ECHO).Text(oneWay + "more").SendOneWay(), TAVO::IPC_TOO_LARGE);
    EXPECT_EQ(Call(object_, TestCode::ECHO).Text(parcel).Send(SECONDS), TAVO::IPC_OK);
    const std::u16string name(256, u'd');
    const auto named = [](const std::u16string& descriptor) { return TAVO::MakeRef<TAVO::IPCObjectStub>(descriptor); };
    EXPECT_EQ(KeepIn(object_, "it", named(name)), TAVO::IPC_OK);
    EXPECT_EQ(KeepIn(object_, "it", named(name + u'd')), TAVO::IPC_BAD_MESSAGE);
    EXPECT_EQ(Echo(object_), TAVO::IPC_OK);
}

// Objects of both are handed out by the hub, so that neither has a session with the other before the first call.
TEST_F(Flow, SimultaneousFirstCallsSucceedInBothDirections)
{
    for (int round = 0; round < 40; ++round) {
        Child left = StartPeer("left");
        Child right = StartPeer("right");
        left.Pipe().Send("call-all right");
        right.Pipe().Send("call-all left");
        EXPECT_EQ(left.Pipe().Receive().value_or("no answer"), "called") << "round " << round;
        EXPECT_EQ(right.Pipe().Receive().value_or("no answer"), "called") << "round " << round;
        EXPECT_EQ(left.Ask("call-all right peer"), "called");
        EXPECT_EQ(right.Ask("call-all left peer"), "called");
    }
}

// So many bytes of data in a frame.
Bytes FrameOf(size_t dataBytes)
{
    RawFrame frame;
    frame.data.resize(dataBytes);
    return frame.Encode();
}

TEST(FlowOfLargeFrames, LargeFramesWaitWhileTheBudgetIsUsedUp)
{
    constexpr size_t LIMIT = size_t{300} << 10;
    ByteBudget process(size_t{400} << 10);
    ByteBudget peer(LIMIT, &process);
    const Bytes bytes = FrameOf(1 << 20);
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
        FrameReader first(false, MessageKind::REQUEST, &peer);
        FrameReader second(false, MessageKind::REQUEST, &peer);
        begin(first);
        begin(second);
        ASSERT_EQ(second.Received(second.RoomForBody().size), State::MORE);
        // One goes beyond, or neither would ever be whole; the other waits for it.
        EXPECT_EQ(fill(first), State::COMPLETE);
        EXPECT_EQ(fill(second), State::STALLED);
        EXPECT_EQ(process.Used(), peer.Used());
        // Small ones are received anyway.
        FrameReader other(false, MessageKind::REQUEST, &peer);
        const Bytes small = FrameOf(1000);
        const uint8_t* from = small.data();
        EXPECT_EQ(other.Consume(from, small.data() + small.size()), State::COMPLETE);
        // A reply that a handler waits for is not held up by requests that wait for the handler.
        FrameReader reply(false, MessageKind::REPLY, &peer);
        begin(reply);
        EXPECT_EQ(fill(reply), State::COMPLETE);
        reply.Next();
        // What was charged goes with the content.
        {
            const TAVO::Transport::ByteCharge queued = first.TakeCharge();
            first.Next();
            EXPECT_EQ(fill(second), State::STALLED);
        }
        EXPECT_LE(peer.Used(), LIMIT);
        EXPECT_EQ(fill(second), State::COMPLETE);
    }
    EXPECT_EQ(peer.Used(), size_t{0});
    EXPECT_EQ(process.Used(), size_t{0});
}

}  // namespace
}  // namespace TransportTest
