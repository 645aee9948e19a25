// SPDX-License-Identifier: Apache-2.0
// However clients behave, each gets one delivery at a time and none holds up another.
#include "push/delivery_pool.h"

#include <atomic>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "service/push_receiver.h"
#include "support/process.h"
#include "support/threads.h"

namespace TAVO::Veltra {
namespace {

// Sends a number, and the number of those that were replaced.
DeliveryPool::Delivery Sending(const PushReceiver& receiver, int32_t number)
{
    return [object = receiver.Object(), number](uint32_t replaced) {
        MessageParcel data;
        MessageParcel reply;
        MessageOption option;
        data.WriteInt32(number);
        data.WriteInt32(static_cast<int32_t>(replaced));
        return object->SendRequest(7, data, reply, option);
    };
}

std::string Pushed(int32_t number, int32_t replaced = 0)
{
    return Bytes(Items{number, replaced});
}

// How many pushes have reached them.
size_t Begun(const std::vector<PushReceiver>& receivers)
{
    size_t count = 0;
    for (const PushReceiver& receiver : receivers) {
        count += receiver.Count();
    }
    return count;
}

class DeliveryPoolTest : public testing::Test {
protected:
    void PushLatest(uint64_t client, const PushReceiver& receiver, int32_t number, bool isReplaceable = true)
    {
        pool_.PushLatest(client, receiver.Object(), Sending(receiver, number), isReplaceable);
    }
    bool PushAnswer(uint64_t client, const PushReceiver& receiver, int32_t number)
    {
        return pool_.PushAnswer(client, receiver.Object(), Sending(receiver, number));
    }
    // Returns while this push, of number 1 to client 1, is under way.
    void PushAndBlock(PushReceiver& receiver)
    {
        receiver.Block();
        PushLatest(1, receiver, 1);
        EXPECT_EQ(receiver.WaitFor(1).size(), 1U);
    }
    bool BecomesIdle() const
    {
        return TestSupport::WaitFor([this] { return pool_.IsIdle(); });
    }

    DeliveryPool pool_;
};

TEST_F(DeliveryPoolTest, NewerReplacesQueuedAndTheReceiverLearnsHowMany)
{
    PushReceiver receiver;
    PushAndBlock(receiver);
    for (int32_t number = 2; number <= 5; ++number) {
        PushLatest(1, receiver, number);
    }
    EXPECT_EQ(receiver.Count(), 1U) << "two deliveries outstanding";
    receiver.Unblock();
    EXPECT_EQ(receiver.WaitFor(2), (std::vector<std::string>{Pushed(1), Pushed(5, 3)}));
    EXPECT_TRUE(BecomesIdle());
    EXPECT_EQ(pool_.Count().replaced, 3U);
    PushLatest(1, receiver, 6);
    EXPECT_EQ(receiver.WaitFor(3).back(), Pushed(6));
}

TEST_F(DeliveryPoolTest, WhatIsNotReplaceableIsQueuedUpToABound)
{
    constexpr int32_t BOUND = DeliveryPool::MAX_WAITING_EVENTS;
    PushReceiver receiver;
    PushAndBlock(receiver);
    PushLatest(1, receiver, -1);
    std::vector<std::string> expected = {Pushed(1), Pushed(2, 1)};
    for (int32_t number = 2; number <= BOUND + 2; ++number) {
        PushLatest(1, receiver, number, false);
    }
    for (int32_t number = 3; number <= BOUND; ++number) {
        expected.push_back(Pushed(number));
    }
    expected.push_back(Pushed(BOUND + 2, 1));
    receiver.Unblock();
    EXPECT_EQ(receiver.WaitFor(expected.size()), expected);
    EXPECT_TRUE(BecomesIdle());
}

TEST_F(DeliveryPoolTest, AnswersAreSentInTheirOrderUpToABound)
{
    PushReceiver receiver;
    PushReceiver other;
    receiver.Block();
    std::vector<std::string> expected = {Pushed(0)};
    EXPECT_TRUE(PushAnswer(1, receiver, 0));
    ASSERT_EQ(receiver.WaitFor(1).size(), 1U);
    for (int32_t number = 1; number <= static_cast<int32_t>(DeliveryPool::MAX_WAITING_ANSWERS); ++number) {
        EXPECT_TRUE(PushAnswer(1, receiver, number));
        expected.push_back(Pushed(number));
    }
    EXPECT_FALSE(PushAnswer(1, receiver, 99));
    EXPECT_FALSE(PushAnswer(1, other, 99)) << "the bound is the client's";
    EXPECT_TRUE(PushAnswer(2, other, 1));
    receiver.Unblock();
    EXPECT_EQ(receiver.WaitFor(expected.size()), expected);
    EXPECT_TRUE(BecomesIdle());
    EXPECT_TRUE(PushAnswer(1, receiver, 1));
    EXPECT_TRUE(BecomesIdle());
}

TEST_F(DeliveryPoolTest, AClientThatLetsOneTimeOutGetsNothingUntilItCalls)
{
    PushReceiver events;
    PushReceiver answers;
    events.AnswerWith(IPC_TIMED_OUT);
    PushAndBlock(events);
    PushLatest(1, events, 2);
    events.Unblock();
    ASSERT_TRUE(BecomesIdle());
    PushLatest(1, events, 3);
    EXPECT_TRUE(PushAnswer(1, answers, 4));
    EXPECT_TRUE(pool_.IsIdle());
    EXPECT_EQ(pool_.Count().timedOut, 1U);
    EXPECT_EQ(pool_.Count().dropped, 3U);

    PushReceiver neighbour;
    pool_.Heard(2);
    PushLatest(2, neighbour, 5);
    EXPECT_EQ(neighbour.WaitFor(1).size(), 1U);
    PushLatest(1, events, 6);
    EXPECT_TRUE(BecomesIdle());
    EXPECT_EQ(events.Count(), 1U) << "another client's call ended the silence";

    events.AnswerWith(0);
    pool_.Heard(1);
    PushLatest(1, events, 7);
    EXPECT_EQ(events.WaitFor(2).back(), Pushed(7));
    EXPECT_TRUE(BecomesIdle());
}

TEST_F(DeliveryPoolTest, OtherFailuresSilenceNoClient)
{
    for (const int status : {static_cast<int>(IPC_DEAD_OBJECT), static_cast<int>(IPC_BROKEN), 1010310012, -1}) {
        SCOPED_TRACE(status);
        PushReceiver receiver;
        receiver.AnswerWith(status);
        PushLatest(1, receiver, 1);
        ASSERT_TRUE(BecomesIdle());
        PushLatest(1, receiver, 2);
        EXPECT_EQ(receiver.WaitFor(2).size(), 2U);
    }
    PushReceiver receiver;
    pool_.PushLatest(1, receiver.Object(), [](uint32_t) -> int32_t { throw std::bad_alloc(); });
    ASSERT_TRUE(BecomesIdle());
    PushLatest(1, receiver, 2);
    EXPECT_EQ(receiver.WaitFor(1).size(), 1U);
}

TEST_F(DeliveryPoolTest, NoClientOccupiesMoreThanItsShareOfThreads)
{
    std::vector<PushReceiver> objects(DeliveryPool::MAX_RUNNING_PER_CLIENT + 1);
    PushReceiver neighbour;
    for (PushReceiver& receiver : objects) {
        receiver.Block();
        EXPECT_TRUE(PushAnswer(1, receiver, 1));
    }
    EXPECT_TRUE(TestSupport::WaitFor([&] { return Begun(objects) == DeliveryPool::MAX_RUNNING_PER_CLIENT; }));
    PushLatest(2, neighbour, 1);
    EXPECT_EQ(neighbour.WaitFor(1).size(), 1U) << "held up by a client that blocks";
    EXPECT_EQ(Begun(objects), DeliveryPool::MAX_RUNNING_PER_CLIENT);
    for (PushReceiver& receiver : objects) {
        receiver.Unblock();
    }
    EXPECT_TRUE(BecomesIdle());
    EXPECT_EQ(Begun(objects), objects.size());
}

// Clients that blocked before, and call only to be pushed to again, get few threads together.
TEST_F(DeliveryPoolTest, ClientsThatBlockAgainAndAgainShareFewThreads)
{
    std::vector<PushReceiver> slow(DeliveryPool::MAX_THREADS);
    for (size_t i = 0; i < slow.size(); ++i) {
        slow[i].AnswerWith(IPC_TIMED_OUT);
        PushLatest(100 + i, slow[i], 1);
        ASSERT_EQ(slow[i].WaitFor(1).size(), 1U);
    }
    ASSERT_TRUE(BecomesIdle());
    for (size_t i = 0; i < slow.size(); ++i) {
        slow[i].Block();
        pool_.Heard(100 + i);
        PushLatest(100 + i, slow[i], 2);
    }
    PushReceiver neighbour;
    PushLatest(1, neighbour, 3);
    EXPECT_EQ(neighbour.WaitFor(1).size(), 1U);
    EXPECT_TRUE(TestSupport::WaitFor([&] { return Begun(slow) == slow.size() + DeliveryPool::MAX_RUNNING_SLOW; }));
    for (PushReceiver& receiver : slow) {
        receiver.AnswerWith(0);
        receiver.Unblock();
    }
    EXPECT_TRUE(BecomesIdle());
    EXPECT_EQ(Begun(slow), 2 * slow.size());
}

TEST_F(DeliveryPoolTest, DroppedDeliveriesAreNeverSentAndBegunOnesComplete)
{
    PushReceiver receiver;
    PushAndBlock(receiver);
    PushLatest(1, receiver, 2);
    pool_.Drop(receiver.Object());
    receiver.Unblock();
    EXPECT_TRUE(BecomesIdle());
    EXPECT_EQ(receiver.Count(), 1U);
}

TEST_F(DeliveryPoolTest, ServedObjectsAreReleased)
{
    wptr<FakeRemoteObject> object;
    {
        PushReceiver receiver;
        object = receiver.Object();
        EXPECT_TRUE(PushAnswer(1, receiver, 1));
        ASSERT_EQ(receiver.WaitFor(1).size(), 1U);
    }
    EXPECT_TRUE(TestSupport::WaitFor([&object] { return object.promote() == nullptr; }));
}

TEST_F(DeliveryPoolTest, EndedSilentClientIsForgottenWhenAnotherCalls)
{
    wptr<FakeRemoteObject> object;
    {
        PushReceiver receiver;
        object = receiver.Object();
        receiver.AnswerWith(IPC_TIMED_OUT);
        PushLatest(1, receiver, 1);
        ASSERT_EQ(receiver.WaitFor(1).size(), 1U);
        ASSERT_TRUE(BecomesIdle());
    }
    pool_.Heard(2);
    ASSERT_NE(object.promote(), nullptr) << "its process lives, and must stay silent";
    object.promote()->Die();
    pool_.Heard(2);
    EXPECT_TRUE(TestSupport::WaitFor([&object] { return object.promote() == nullptr; }));
}

TEST(DeliveryPool, DestructorWaitsForBegunDeliveries)
{
    PushReceiver receiver;
    receiver.Block();
    std::atomic<bool> isDone{false};
    std::thread releaser;
    {
        DeliveryPool pool;
        pool.PushLatest(1, receiver.Object(), [send = Sending(receiver, 1), &isDone](uint32_t replaced) {
            const int32_t status = send(replaced);
            isDone = true;
            return status;
        });
        ASSERT_EQ(receiver.WaitFor(1).size(), 1U);
        releaser = std::thread([&receiver] { receiver.Unblock(); });
    }
    EXPECT_TRUE(isDone);
    releaser.join();
}

TEST_F(DeliveryPoolTest, ManyPushAtOnce)
{
    constexpr int32_t ROUNDS = 300;
    std::vector<PushReceiver> receivers(8);
    TestSupport::Threads pushers(receivers.size(), [&](size_t i) {
        for (int32_t round = 1; round <= ROUNDS; ++round) {
            PushLatest(i / 2, receivers[i], round);
            pool_.Heard(i);
            if (round % 50 == 0 && round < ROUNDS) {
                receivers[i].AnswerWith(round % 100 == 0 ? 0 : IPC_TIMED_OUT);
                pool_.Drop(receivers[i].Object());
            }
        }
    });
    pushers.Join();
    ASSERT_TRUE(BecomesIdle());
    for (size_t i = 0; i < receivers.size(); ++i) {
        receivers[i].AnswerWith(0);
        pool_.Heard(i / 2);
        PushLatest(i / 2, receivers[i], 0);
    }
    EXPECT_TRUE(BecomesIdle());
    for (const PushReceiver& receiver : receivers) {
        EXPECT_EQ(receiver.WaitFor(1).back(), Pushed(0)) << "what is idle must work again";
    }
}

}  // namespace
}  // namespace TAVO::Veltra
