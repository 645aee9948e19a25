// SPDX-License-Identifier: Apache-2.0
// One subscription of each kind for each process, and nothing of processes that have ended.
#include "push/subscriptions.h"

#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/fake_remote_object.h"

namespace TAVO::Veltra {
namespace {

Subscription Of(uint64_t client, const sptr<IRemoteObject>& object)
{
    return {client, object, 0, 0, 0};
}

sptr<IRemoteObject> Add(Subscriptions& subscriptions, Subject subject, uint64_t client,
                        const sptr<IRemoteObject>& object)
{
    sptr<IRemoteObject> replaced;
    EXPECT_TRUE(subscriptions.Add(subject, Of(client, object), replaced));
    return replaced;
}

TEST(Subscriptions, TheLatestOfAProcessReplacesItsEarlierOne)
{
    const sptr<Subscriptions> subscriptions(new Subscriptions());
    const auto first = MakeRef<FakeRemoteObject>();
    const auto second = MakeRef<FakeRemoteObject>();
    const auto other = MakeRef<FakeRemoteObject>();
    EXPECT_EQ(Add(*subscriptions, Subject::EVENTS, 1, first), nullptr);
    EXPECT_EQ(Add(*subscriptions, Subject::EVENTS, 2, other), nullptr);
    EXPECT_EQ(Add(*subscriptions, Subject::GPU_COUNTERS, 1, other), nullptr);
    EXPECT_EQ(Add(*subscriptions, Subject::EVENTS, 1, second), first);
    EXPECT_EQ(first->DeathRecipients(), 0U);
    EXPECT_EQ(subscriptions->All(Subject::EVENTS).size(), 2U);
    EXPECT_EQ(subscriptions->All(Subject::EVENTS)[0].object, second);
    EXPECT_EQ(Add(*subscriptions, Subject::EVENTS, 1, second), second);
    EXPECT_EQ(second->DeathRecipients(), 1U);

    EXPECT_EQ(subscriptions->Remove(Subject::EVENTS, 1), second);
    EXPECT_EQ(second->DeathRecipients(), 0U);
    EXPECT_EQ(subscriptions->Remove(Subject::EVENTS, 1), nullptr);
    EXPECT_EQ(subscriptions->Remove(Subject::GPU_COUNTERS, 2), nullptr);
    EXPECT_EQ(subscriptions->All(Subject::GPU_COUNTERS).size(), 1U);
}

TEST(Subscriptions, DeathOfAProcessEndsItsSubscriptionsOnly)
{
    const sptr<Subscriptions> subscriptions(new Subscriptions());
    const auto dying = MakeRef<FakeRemoteObject>();
    const auto living = MakeRef<FakeRemoteObject>();
    Add(*subscriptions, Subject::EVENTS, 1, dying);
    Add(*subscriptions, Subject::GPU_COUNTERS, 1, dying);
    Add(*subscriptions, Subject::EVENTS, 2, living);
    dying->Die();
    ASSERT_EQ(subscriptions->All(Subject::EVENTS).size(), 1U);
    EXPECT_EQ(subscriptions->All(Subject::EVENTS)[0].client, 2U);
    EXPECT_TRUE(subscriptions->All(Subject::GPU_COUNTERS).empty());

    sptr<IRemoteObject> replaced;
    EXPECT_FALSE(subscriptions->Add(Subject::EVENTS, Of(3, dying), replaced));
    EXPECT_EQ(subscriptions->All(Subject::EVENTS).size(), 1U);
}

TEST(Subscriptions, ProgressIsKeptForTheSameSubscriptionOnly)
{
    const sptr<Subscriptions> subscriptions(new Subscriptions());
    const auto old = MakeRef<FakeRemoteObject>();
    const auto current = MakeRef<FakeRemoteObject>();
    Add(*subscriptions, Subject::GPU_COUNTERS, 1, old);
    Subscription progress = subscriptions->All(Subject::GPU_COUNTERS)[0];
    progress.sent = 5;
    progress.due = 2.5;
    subscriptions->Advance(Subject::GPU_COUNTERS, progress);
    EXPECT_EQ(subscriptions->All(Subject::GPU_COUNTERS)[0].sent, 5U);
    EXPECT_EQ(subscriptions->All(Subject::GPU_COUNTERS)[0].due, 2.5);
    Add(*subscriptions, Subject::GPU_COUNTERS, 1, current);
    subscriptions->Advance(Subject::GPU_COUNTERS, progress);
    EXPECT_EQ(subscriptions->All(Subject::GPU_COUNTERS)[0].sent, 0U);
    subscriptions->Remove(Subject::GPU_COUNTERS, 1);
    subscriptions->Advance(Subject::GPU_COUNTERS, progress);
    EXPECT_TRUE(subscriptions->All(Subject::GPU_COUNTERS).empty());
}

TEST(Subscriptions, DeathsAndReplacementsMeet)
{
    for (int round = 0; round < 200; ++round) {
        const sptr<Subscriptions> subscriptions(new Subscriptions());
        const auto dying = MakeRef<FakeRemoteObject>();
        const auto living = MakeRef<FakeRemoteObject>();
        std::thread killer([&dying] { dying->Die(); });
        sptr<IRemoteObject> replaced;
        subscriptions->Add(Subject::EVENTS, Of(1, dying), replaced);
        EXPECT_TRUE(subscriptions->Add(Subject::EVENTS, Of(1, living), replaced));
        killer.join();
        ASSERT_EQ(subscriptions->All(Subject::EVENTS).size(), 1U);
        EXPECT_EQ(subscriptions->All(Subject::EVENTS)[0].object, living);
    }
}

}  // namespace
}  // namespace TAVO::Veltra
