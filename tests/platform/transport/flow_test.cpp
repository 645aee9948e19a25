// SPDX-License-Identifier: Apache-2.0
// How requests run side by side: order, one at a time, twelve at once, large ones, and none left behind.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <thread>

#include "platform/transport/peer_fixture.h"

namespace TransportTest {
namespace {

using TestSupport::Child;
using TestSupport::WaitFor;

class Flow : public PeerFixture {
protected:
    // Starts `count` threads that call `code` of `target`; the statuses are there after Join.
    void CallOften(int count, const sptr<IRemoteObject>& target, TestCode code)
    {
        for (int caller = 0; caller < count; ++caller) {
            callers_.emplace_back([this, target, code] {
                if (Call(target, code).Send(60) == TAVO::IPC_OK) {
                    ++succeeded_;
                }
            });
        }
    }
    void Join()
    {
        for (std::thread& caller : callers_) {
            caller.join();
        }
        callers_.clear();
    }

    std::vector<std::thread> callers_;
    std::atomic<int> succeeded_{0};
};

TEST_F(Flow, OneWayRequestsRunInOrderAndEachOnce)
{
    constexpr int32_t COUNT = 3000;
    const sptr<IRemoteObject> second = MakeIn(object_);  // the order is the session's, not the object's
    for (int32_t note = 0; note < COUNT; ++note) {
        const sptr<IRemoteObject>& target = note % 2 == 0 ? object_ : second;
        ASSERT_TRUE(WaitFor([&target, note] {
            const int status = Call(target, TestCode::NOTE).Int(note).SendOneWay();
            EXPECT_TRUE(status == TAVO::IPC_OK || status == TAVO::IPC_QUEUE_FULL) << status;
            return status != TAVO::IPC_QUEUE_FULL;
        }));
    }
    EXPECT_TRUE(WaitFor([this] { return NotesThere().size() >= COUNT; }));
    EXPECT_EQ(NotesThere(), Counting(0, COUNT));
}

TEST_F(Flow, OneWayToAStoppedReceiverIsRefusedWithoutWaitingAndTheAcceptedOnesRun)
{
    constexpr int32_t ENOUGH = 100000;
    ASSERT_EQ(Call(object_, TestCode::NOTE).Int(0).SendOneWay(), TAVO::IPC_OK);
    peer_.Stop();
    const auto start = TestSupport::Clock::now();
    int32_t accepted = 1;
    int status = TAVO::IPC_OK;
    while (accepted < ENOUGH && (status = Call(object_, TestCode::NOTE).Int(accepted).SendOneWay()) == TAVO::IPC_OK) {
        ++accepted;
    }
    EXPECT_EQ(status, TAVO::IPC_QUEUE_FULL) << "accepted " << accepted;
    for (int round = 0; round < 100; ++round) {
        EXPECT_EQ(Call(object_, TestCode::NOTE).Int(-1).SendOneWay(), TAVO::IPC_QUEUE_FULL);
    }
    EXPECT_LT(TestSupport::Clock::now() - start, std::chrono::seconds(6)) << "a one-way call waited";
    peer_.Continue();
    EXPECT_TRUE(WaitFor([this, accepted] { return NotesThere().size() >= static_cast<size_t>(accepted); }));
    ASSERT_TRUE(
        WaitFor([this, accepted] { return Call(object_, TestCode::NOTE).Int(accepted).SendOneWay() == TAVO::IPC_OK; }));
    EXPECT_TRUE(WaitFor([this, accepted] { return NotesThere().size() > static_cast<size_t>(accepted); }));
    EXPECT_EQ(NotesThere(), Counting(0, accepted + 1));
}

// The flood never ends, and its receiver has still time for others.
TEST_F(Flow, OneWayFloodDelaysNoCallOfAnotherClient)
{
    constexpr int CALLS = 500;
    const Child other = StartPeer("other");
    const sptr<IRemoteObject> client = World::Get().Kept("other");
    ASSERT_EQ(Call(client, TestCode::KEEP).Text("flooded").Object(object_).Send(), TAVO::IPC_OK);
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
            served += Call(client, TestCode::ECHO_KEPT).Text("flooded").SendForInt() == TAVO::IPC_OK;
        }
        return served;
    };
    const auto start = TestSupport::Clock::now();
    EXPECT_EQ(servedCalls(), CALLS);
    EXPECT_LT(TestSupport::Clock::now() - start, std::chrono::seconds(20));
    // The same with a handler that stands still: the requests behind it wait, and no one else does.
    EXPECT_TRUE(WaitFor([this] { return Call(object_, TestCode::WAIT).SendOneWay() == TAVO::IPC_OK; }));
    EXPECT_EQ(peer_.Ask("await-waiting 1"), "waiting");
    EXPECT_EQ(servedCalls(), CALLS);
    isOver = true;
    flood.join();
    EXPECT_EQ(Call(object_, TestCode::OPEN).Send(), TAVO::IPC_OK);
}

TEST_F(Flow, OneWayRequestsOfADeadSenderStillRun)
{
    constexpr int32_t COUNT = 50;
    ASSERT_EQ(Call(object_, TestCode::SEND_NOTES).Int(COUNT).Object(root_).Send(), TAVO::IPC_OK);
    ASSERT_TRUE(World::Get().AwaitWaiting(1));  // the first of its requests holds up the others of its lane
    peer_.Kill();
    EXPECT_TRUE(WaitFor([this] { return !object_->IsAlive(); }));
    EXPECT_TRUE(World::Get().Notes().empty());
    World::Get().OpenGate();
    EXPECT_TRUE(WaitFor([] { return World::Get().Notes().size() >= COUNT; }));
    EXPECT_EQ(World::Get().Notes(), Counting(0, COUNT));
}

TEST_F(Flow, ASerialObjectHandlesOneRequestAtATime)
{
    const sptr<IRemoteObject> serial = MakeIn(object_, true);
    CallOften(8, serial, TestCode::WAIT);
    for (int round = 0; round < 8; ++round) {
        EXPECT_EQ(peer_.Ask("await-waiting 1"), "waiting");
        EXPECT_EQ(Echo(object_), TAVO::IPC_OK) << "another object is served meanwhile";
        EXPECT_EQ(Call(object_, TestCode::OPEN).Send(), TAVO::IPC_OK);
    }
    Join();
    EXPECT_EQ(succeeded_, 8);
    EXPECT_EQ(Call(serial, TestCode::MOST_AT_ONCE).SendForInt(), 1);
}

TEST_F(Flow, AnObjectOccupiesTwelveWorkersAndLeavesTheOthers)
{
    constexpr int CALLERS = 30;
    constexpr int AT_ONCE = 12;
    const sptr<IRemoteObject> busy = MakeIn(object_);
    const size_t threadsBefore = TestSupport::CountThreads(peer_.Pid());
    CallOften(CALLERS, busy, TestCode::WAIT);
    EXPECT_EQ(peer_.Ask("await-waiting 12"), "waiting");
    for (int round = 0; round < 100; ++round) {
        EXPECT_EQ(Echo(object_, round), TAVO::IPC_OK);
    }
    EXPECT_LE(TestSupport::CountThreads(peer_.Pid()), threadsBefore + 16) << "waiting requests take no thread";
    // Let them through in turn, as they come.
    EXPECT_TRUE(WaitFor([this] {
        Call(object_, TestCode::OPEN).Send();
        return succeeded_ == CALLERS;
    }));
    Join();
    EXPECT_EQ(Call(busy, TestCode::MOST_AT_ONCE).SendForInt(), AT_ONCE);
}

TEST_F(Flow, AMessageOf46MegabytesTravelsBothWays)
{
    constexpr int32_t SIZE = 46137344;
    Call down(object_, TestCode::ECHO);
    down.Text(std::string(SIZE, 'd'));
    EXPECT_EQ(down.Send(), TAVO::IPC_OK);
    EXPECT_EQ(down.reply.GetDataSize(), down.data.GetDataSize());
    EXPECT_EQ(down.reply.ReadString(), std::string(SIZE, 'd'));
    Call up(object_, TestCode::SIZED_REPLY);
    EXPECT_EQ(up.Int(SIZE).Send(), TAVO::IPC_OK);
    EXPECT_EQ(up.reply.ReadString(), std::string(SIZE, 'r'));
}

struct Size {
    const char* name;
    size_t bytes;
    bool oneWay;
    int status;
};

TEST_F(Flow, ASizeBeyondTheLimitIsRefusedBeforeAnythingIsSent)
{
    constexpr size_t ONE_WAY_LIMIT = 64 << 10;
    constexpr size_t FRAME_AND_TEXT = 32 + 8;  // the frame's header, the text's length and end
    for (const Size& size :
         {Size{"one-way, largest", ONE_WAY_LIMIT - FRAME_AND_TEXT, true, TAVO::IPC_OK},
          Size{"one-way, a slot more", ONE_WAY_LIMIT - FRAME_AND_TEXT + 4, true, TAVO::IPC_TOO_LARGE},
          Size{"largest parcel", TAVO::Parcel::MAX_DATA_BYTES - 8, false, TAVO::IPC_OK}}) {
        SCOPED_TRACE(size.name);
        Call call(object_, TestCode::ECHO);
        ASSERT_TRUE(call.data.WriteString(std::string(size.bytes, 's')));
        EXPECT_EQ(size.oneWay ? call.SendOneWay() : call.Send(), size.status);
        EXPECT_EQ(Echo(object_), TAVO::IPC_OK);
    }
}

// Objects of both are handed out by the hub, so that neither has a session with the other before the first call.
TEST_F(Flow, FirstCallsThatCrossBothSucceed)
{
    constexpr int ROUNDS = 40;
    for (int round = 0; round < ROUNDS; ++round) {
        Child left = StartPeer("left");
        Child right = StartPeer("right");
        left.Pipe().Say("call-all right");
        right.Pipe().Say("call-all left");
        EXPECT_EQ(left.Pipe().Hear().value_or("silence"), "called") << "round " << round;
        EXPECT_EQ(right.Pipe().Hear().value_or("silence"), "called") << "round " << round;
        EXPECT_EQ(left.Ask("call-all right peer"), "called");
        EXPECT_EQ(right.Ask("call-all left peer"), "called");
    }
}

TEST_F(Flow, PeersThatComeAndGoLeaveNoDescriptorAndNoThread)
{
    const pid_t self = ::getpid();
    size_t descriptors = 0;
    size_t threads = 0;
    for (int round = 0; round < 30; ++round) {
        Child guest = StartPeer("guest");
        const sptr<IRemoteObject> object = World::Get().Kept("guest");
        EXPECT_EQ(Echo(object), TAVO::IPC_OK);
        EXPECT_EQ(guest.Ask("call-all peer"), "called");
        guest.Kill();
        EXPECT_TRUE(WaitFor([&object] { return !object->IsAlive(); }));
        World::Get().Forget("guest");
        if (round == 9) {
            guest = Child();
            ASSERT_TRUE(WaitFor([&] {  // they settle
                const size_t before = descriptors;
                descriptors = TestSupport::CountDescriptors(self);
                threads = TestSupport::CountThreads(self);
                return before == descriptors;
            }));
        }
    }
    EXPECT_TRUE(WaitFor([&] { return TestSupport::CountDescriptors(self) <= descriptors; }));
    EXPECT_LE(TestSupport::CountThreads(self), threads + 1) << "before: " << threads;
}

}  // namespace
}  // namespace TransportTest
