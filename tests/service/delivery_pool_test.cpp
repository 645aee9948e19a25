// SPDX-License-Identifier: Apache-2.0
// However clients behave, each gets one delivery at a time and none holds up another.
#include "delivery_pool.h"

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

bool BecomesIdle(const DeliveryPool& pool)
{
    return TestSupport::WaitFor([&pool] { return pool.IsIdle(); });
}

TEST(DeliveryPool, NewerReplacesWhatWaitsAndTheReceiverLearnsHowMuch)
{
    PushReceiver receiver;
    receiver.Block();
    DeliveryPool pool;
    pool.PushLatest(1, receiver.Object(), Sending(receiver, 1));
    ASSERT_EQ(receiver.WaitFor(1).size(), 1U);
    for (int32_t number = 2; number <= 5; ++number) {
        pool.PushLatest(1, receiver.Object(), Sending(receiver, number));
    }
    EXPECT_EQ(receiver.Count(), 1U) << "two deliveries outstanding";
    receiver.Unblock();
    EXPECT_EQ(receiver.WaitFor(2), (std::vector<std::string>{Pushed(1), Pushed(5, 3)}));
    EXPECT_TRUE(BecomesIdle(pool));
    EXPECT_EQ(pool.Count().replaced, 3U);
    pool.PushLatest(1, receiver.Object(), Sending(receiver, 6));
    EXPECT_EQ(receiver.WaitFor(3).back(), Pushed(6));
}

TEST(DeliveryPool, AnswersAllGoOutInTheirOrderUpToABound)
{
    PushReceiver receiver;
    PushReceiver other;
    receiver.Block();
    DeliveryPool pool;
    std::vector<std::string> expected = {Pushed(0)};
    EXPECT_TRUE(pool.PushAnswer(1, receiver.Object(), Sending(receiver, 0)));
    ASSERT_EQ(receiver.WaitFor(1).size(), 1U);
    for (int32_t number = 1; number <= static_cast<int32_t>(DeliveryPool::MAX_WAITING_ANSWERS); ++number) {
        EXPECT_TRUE(pool.PushAnswer(1, receiver.Object(), Sending(receiver, number)));
        expected.push_back(Pushed(number));
    }
    EXPECT_FALSE(pool.PushAnswer(1, receiver.Object(), Sending(receiver, 99)));
    EXPECT_FALSE(pool.PushAnswer(1, other.Object(), Sending(other, 99))) << "the bound is the client's";
    EXPECT_TRUE(pool.PushAnswer(2, other.Object(), Sending(other, 1)));
    receiver.Unblock();
    EXPECT_EQ(receiver.WaitFor(expected.size()), expected);
    EXPECT_TRUE(BecomesIdle(pool));
    EXPECT_TRUE(pool.PushAnswer(1, receiver.Object(), Sending(receiver, 1)));
    EXPECT_TRUE(BecomesIdle(pool));
}

TEST(DeliveryPool, AClientThatLetsOneTimeOutGetsNothingUntilItCalls)
{
    PushReceiver events;
    PushReceiver answers;
    events.AnswerWith(IPC_TIMED_OUT);
    events.Block();
    DeliveryPool pool;
    pool.PushLatest(1, events.Object(), Sending(events, 1));
    ASSERT_EQ(events.WaitFor(1).size(), 1U);
    pool.PushLatest(1, events.Object(), Sending(events, 2));
    events.Unblock();
    ASSERT_TRUE(BecomesIdle(pool));
    pool.PushLatest(1, events.Object(), Sending(events, 3));
    EXPECT_TRUE(pool.PushAnswer(1, answers.Object(), Sending(answers, 4)));
    EXPECT_TRUE(pool.IsIdle());
    EXPECT_EQ(pool.Count().timedOut, 1U);
    EXPECT_EQ(pool.Count().dropped, 3U);

    PushReceiver neighbour;
    pool.Heard(2);
    pool.PushLatest(2, neighbour.Object(), Sending(neighbour, 5));
    EXPECT_EQ(neighbour.WaitFor(1).size(), 1U);
    pool.PushLatest(1, events.Object(), Sending(events, 6));
    EXPECT_TRUE(BecomesIdle(pool));
    EXPECT_EQ(events.Count(), 1U) << "another client's call ended the silence";

    events.AnswerWith(0);
    pool.Heard(1);
    pool.PushLatest(1, events.Object(), Sending(events, 7));
    EXPECT_EQ(events.WaitFor(2).back(), Pushed(7));
    EXPECT_TRUE(BecomesIdle(pool));
}

TEST(DeliveryPool, OtherFailuresSilenceNobody)
{
    for (const int status : {static_cast<int>(IPC_DEAD_OBJECT), static_cast<int>(IPC_BROKEN), 1010310012, -1}) {
        SCOPED_TRACE(status);
        PushReceiver receiver;
        receiver.AnswerWith(status);
        DeliveryPool pool;
        pool.PushLatest(1, receiver.Object(), Sending(receiver, 1));
        ASSERT_TRUE(BecomesIdle(pool));
        pool.PushLatest(1, receiver.Object(), Sending(receiver, 2));
        EXPECT_EQ(receiver.WaitFor(2).size(), 2U);
    }
    DeliveryPool pool;
    PushReceiver receiver;
    pool.PushLatest(1, receiver.Object(), [](uint32_t) -> int32_t { throw std::bad_alloc(); });
    ASSERT_TRUE(BecomesIdle(pool));
    pool.PushLatest(1, receiver.Object(), Sending(receiver, 2));
    EXPECT_EQ(receiver.WaitFor(1).size(), 1U);
}

TEST(DeliveryPool, NoClientTakesMoreThanItsShareOfThreads)
{
    std::vector<PushReceiver> objects(DeliveryPool::MAX_RUNNING_PER_CLIENT + 1);
    PushReceiver neighbour;
    DeliveryPool pool;
    for (PushReceiver& receiver : objects) {
        receiver.Block();
        EXPECT_TRUE(pool.PushAnswer(1, receiver.Object(), Sending(receiver, 1)));
    }
    EXPECT_TRUE(TestSupport::WaitFor([&] { return Begun(objects) == DeliveryPool::MAX_RUNNING_PER_CLIENT; }));
    pool.PushLatest(2, neighbour.Object(), Sending(neighbour, 1));
    EXPECT_EQ(neighbour.WaitFor(1).size(), 1U) << "held up by a client that blocks";
    EXPECT_EQ(Begun(objects), DeliveryPool::MAX_RUNNING_PER_CLIENT);
    for (PushReceiver& receiver : objects) {
        receiver.Unblock();
    }
    EXPECT_TRUE(BecomesIdle(pool));
    EXPECT_EQ(Begun(objects), objects.size());
}

// Clients that blocked before, and call only to be pushed to again, get few threads together.
TEST(DeliveryPool, ClientsThatBlockAgainAndAgainShareFewThreads)
{
    std::vector<PushReceiver> slow(DeliveryPool::MAX_THREADS);
    DeliveryPool pool;
    for (size_t i = 0; i < slow.size(); ++i) {
        slow[i].AnswerWith(IPC_TIMED_OUT);
        pool.PushLatest(100 + i, slow[i].Object(), Sending(slow[i], 1));
        ASSERT_EQ(slow[i].WaitFor(1).size(), 1U);
    }
    ASSERT_TRUE(BecomesIdle(pool));
    for (size_t i = 0; i < slow.size(); ++i) {
        slow[i].Block();
        pool.Heard(100 + i);
        pool.PushLatest(100 + i, slow[i].Object(), Sending(slow[i], 2));
    }
    PushReceiver neighbour;
    pool.PushLatest(1, neighbour.Object(), Sending(neighbour, 3));
    EXPECT_EQ(neighbour.WaitFor(1).size(), 1U);
    EXPECT_TRUE(TestSupport::WaitFor([&] { return Begun(slow) == slow.size() + DeliveryPool::MAX_RUNNING_SLOW; }));
    for (PushReceiver& receiver : slow) {
        receiver.AnswerWith(0);
        receiver.Unblock();
    }
    EXPECT_TRUE(BecomesIdle(pool));
    EXPECT_EQ(Begun(slow), 2 * slow.size());
}

TEST(DeliveryPool, WhatIsDroppedNeverGoesOutAndWhatHasBegunEnds)
{
    PushReceiver receiver;
    receiver.Block();
    DeliveryPool pool;
    pool.PushLatest(1, receiver.Object(), Sending(receiver, 1));
    ASSERT_EQ(receiver.WaitFor(1).size(), 1U);
    pool.PushLatest(1, receiver.Object(), Sending(receiver, 2));
    pool.Drop(receiver.Object());
    receiver.Unblock();
    EXPECT_TRUE(BecomesIdle(pool));
    EXPECT_EQ(receiver.Count(), 1U);
}

TEST(DeliveryPool, NothingIsKeptOfAnObjectOnceItIsServed)
{
    wptr<FakeRemoteObject> object;
    DeliveryPool pool;
    {
        PushReceiver receiver;
        object = receiver.Object();
        EXPECT_TRUE(pool.PushAnswer(1, receiver.Object(), Sending(receiver, 1)));
        ASSERT_EQ(receiver.WaitFor(1).size(), 1U);
    }
    EXPECT_TRUE(TestSupport::WaitFor([&object] { return object.promote() == nullptr; }));
}

TEST(DeliveryPool, ASilentClientThatEndedIsForgottenWhenAnyoneCalls)
{
    wptr<FakeRemoteObject> object;
    DeliveryPool pool;
    {
        PushReceiver receiver;
        object = receiver.Object();
        receiver.AnswerWith(IPC_TIMED_OUT);
        pool.PushLatest(1, receiver.Object(), Sending(receiver, 1));
        ASSERT_EQ(receiver.WaitFor(1).size(), 1U);
        ASSERT_TRUE(BecomesIdle(pool));
    }
    pool.Heard(2);
    ASSERT_NE(object.promote(), nullptr) << "its process lives, and must stay silent";
    object.promote()->Die();
    pool.Heard(2);
    EXPECT_TRUE(TestSupport::WaitFor([&object] { return object.promote() == nullptr; }));
}

TEST(DeliveryPool, ItsEndWaitsForWhatHasBegun)
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

TEST(DeliveryPool, ManyPushAtOnce)
{
    constexpr int32_t ROUNDS = 300;
    std::vector<PushReceiver> receivers(8);
    {
        DeliveryPool pool;
        TestSupport::Threads pushers(receivers.size(), [&](size_t i) {
            for (int32_t round = 1; round <= ROUNDS; ++round) {
                pool.PushLatest(i / 2, receivers[i].Object(), Sending(receivers[i], round));
                pool.Heard(i);
                if (round % 50 == 0 && round < ROUNDS) {
                    receivers[i].AnswerWith(round % 100 == 0 ? 0 : IPC_TIMED_OUT);
                    pool.Drop(receivers[i].Object());
                }
            }
        });
        pushers.Join();
        ASSERT_TRUE(BecomesIdle(pool));
        for (size_t i = 0; i < receivers.size(); ++i) {
            receivers[i].AnswerWith(0);
            pool.Heard(i / 2);
            pool.PushLatest(i / 2, receivers[i].Object(), Sending(receivers[i], 0));
        }
        EXPECT_TRUE(BecomesIdle(pool));
    }
    for (const PushReceiver& receiver : receivers) {
        EXPECT_EQ(receiver.WaitFor(1).back(), Pushed(0)) << "what is idle must work again";
    }
}

}  // namespace
}  // namespace TAVO::Veltra
