// SPDX-License-Identifier: Apache-2.0
// How requests run side by side: order, one at a time, twelve at once, large ones, and those that are read late.
#include <gtest/gtest.h>

#include <thread>

#include "platform/transport/peer_fixture.h"

namespace TransportTest {
namespace {

using TestSupport::Child;
using TestSupport::WaitFor;

class Flow : public PeerFixture {
protected:
    ~Flow() override { Join(); }

    // Starts `count` threads that call WAIT of `target`; the statuses are there after Join.
    void WaitInThreads(int count, const sptr<IRemoteObject>& target)
    {
        for (int caller = 0; caller < count; ++caller) {
            callers_.emplace_back(
                [this, target] { succeeded_ += Call(target, TestCode::WAIT).Send(60) == TAVO::IPC_OK; });
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
    EXPECT_TRUE(AwaitNotesThere(COUNT));
    EXPECT_EQ(NotesThere(), Counting(0, COUNT));
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
    // The same with a handler that stands still: the requests behind it wait, and no one else does.
    EXPECT_TRUE(WaitFor([this] { return Call(object_, TestCode::WAIT).SendOneWay() == TAVO::IPC_OK; }));
    EXPECT_EQ(peer_.Ask("await-waiting 1"), "waiting");
    EXPECT_EQ(servedCalls(), CALLS);
    isOver = true;
    flood.join();
    EXPECT_EQ(Call(object_, TestCode::OPEN).Send(), TAVO::IPC_OK);
}

TEST_F(Flow, OneWayRequestsUnderWayRunThoughTheirSenderDies)
{
    ASSERT_EQ(Call(object_, TestCode::SEND_NOTES).Int(50).Object(root_).Send(), TAVO::IPC_OK);
    ASSERT_TRUE(World::Get().AwaitWaiting(1));  // the first of its requests holds up the others of its lane
    peer_.Kill();
    EXPECT_TRUE(WaitFor([this] { return !object_->IsAlive(); }));
    EXPECT_TRUE(World::Get().Notes().empty());
    World::Get().OpenGate();
    EXPECT_TRUE(WaitFor([] { return World::Get().Notes().size() >= 50; }));
    EXPECT_EQ(World::Get().Notes(), Counting(0, 50));
}

// Its lane, its requests and its end all lie there when the receiver looks.
TEST_F(Flow, TheFirstOneWayRequestsOfAProcessThatEndedAreRun)
{
    Child sender = StartPeer("sender");
    const sptr<IRemoteObject> world = Kept("sender");
    ASSERT_EQ(KeepIn(world, "receiver", object_), TAVO::IPC_OK);
    ASSERT_EQ(CallKept(world, "receiver"), TAVO::IPC_OK);
    peer_.Stop();
    ASSERT_EQ(Call(world, TestCode::SEND_NOTES).Int(3).Object(object_).Send(), TAVO::IPC_OK);
    sender.Kill();
    EXPECT_EQ(sender.WaitForExit(), "signal 9");
    peer_.Continue();
    EXPECT_EQ(peer_.Ask("await-waiting 1"), "waiting");
    EXPECT_EQ(Call(object_, TestCode::OPEN).Send(), TAVO::IPC_OK);
    EXPECT_TRUE(AwaitNotesThere(3));
    EXPECT_EQ(NotesThere(), Counting(0, 3));
}

TEST_F(Flow, WhatWaitedForItsObjectIsNotRunForACallerThatGaveUp)
{
    const sptr<IRemoteObject> oneAtATime = MakeIn(object_, true);
    WaitInThreads(1, oneAtATime);
    EXPECT_EQ(peer_.Ask("await-waiting 1"), "waiting");
    EXPECT_EQ(Call(oneAtATime, TestCode::NOTE).Int(1).Send(1), TAVO::IPC_TIMED_OUT);
    EXPECT_EQ(Call(object_, TestCode::OPEN).Send(), TAVO::IPC_OK);
    Join();
    EXPECT_EQ(succeeded_, 1);
    EXPECT_EQ(Call(oneAtATime, TestCode::NOTE).Int(2).Send(), TAVO::IPC_OK);
    EXPECT_EQ(NotesThere(), Counting(2, 1));
}

TEST_F(Flow, ASerialObjectHandlesOneRequestAtATime)
{
    const sptr<IRemoteObject> serial = MakeIn(object_, true);
    WaitInThreads(8, serial);
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
    WaitInThreads(CALLERS, busy);
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

TEST_F(Flow, AMessageOfAnyPermittedSizeTravelsBothWays)
{
    constexpr int32_t SIZE = 46137344;  // of the longest list that is sent
    Call down(object_, TestCode::ECHO);
    EXPECT_EQ(down.Text(std::string(SIZE, 'd')).Send(), TAVO::IPC_OK);
    EXPECT_EQ(down.reply.ReadString(), std::string(SIZE, 'd'));
    Call up(object_, TestCode::SIZED_REPLY);
    EXPECT_EQ(up.Int(SIZE).Send(), TAVO::IPC_OK);
    EXPECT_EQ(up.reply.ReadString(), std::string(SIZE, 'r'));

    const std::string oneWay((64 << 10) - 32 - 8, 's');  // less the frame's header, the text's length and end
    const std::string parcel(TAVO::Parcel::MAX_DATA_BYTES - 8, 's');
    EXPECT_EQ(Call(object_, TestCode::ECHO).Text(oneWay).SendOneWay(), TAVO::IPC_OK);
    EXPECT_EQ(Call(object_, TestCode::ECHO).Text(oneWay + "more").SendOneWay(), TAVO::IPC_TOO_LARGE);
    EXPECT_EQ(Call(object_, TestCode::ECHO).Text(parcel).Send(), TAVO::IPC_OK);
    const std::u16string name(256, u'd');
    const auto named = [](const std::u16string& descriptor) { return TAVO::MakeRef<TAVO::IPCObjectStub>(descriptor); };
    EXPECT_EQ(KeepIn(object_, "it", named(name)), TAVO::IPC_OK);
    EXPECT_EQ(KeepIn(object_, "it", named(name + u'd')), TAVO::IPC_BAD_MESSAGE);
    EXPECT_EQ(Echo(object_), TAVO::IPC_OK);
}

// Objects of both are handed out by the hub, so that neither has a session with the other before the first call.
TEST_F(Flow, FirstCallsThatCrossBothSucceed)
{
    for (int round = 0; round < 40; ++round) {
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

}  // namespace
}  // namespace TransportTest
