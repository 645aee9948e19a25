// SPDX-License-Identifier: Apache-2.0
#include "mailbox.h"

#include <gtest/gtest.h>

#include <string>

namespace TAVO::Veltra {
namespace {

SessionOptions Small()
{
    SessionOptions options;
    options.eventCapacity = 2;
    options.batchCapacity = 2;
    options.reportCapacity = 2;
    return options;
}

GameCallbackEventInfo Event(int32_t level)
{
    GameCallbackEventInfo info;
    info.tempLevel = level;
    return info;
}

TEST(Mailbox, FullQueuesDropTheirOldestAndCount)
{
    Mailbox mailbox(Small());
    for (int32_t i = 0; i < 5; ++i) {
        mailbox.PostGameEvent(Event(i));
        mailbox.PostGpuBatch(std::vector<GpuPerfInfo>(static_cast<size_t>(i + 1)));
    }
    std::string order;
    while (const auto event = mailbox.TakeEvent({})) {
        order += event->kind == SessionEvent::Kind::GPU ? "gpu" + std::to_string(event->samples.size())
                                                        : "event" + std::to_string(event->info.tempLevel);
    }
    EXPECT_EQ(order, "event3event4gpu4gpu5");
    EXPECT_EQ(mailbox.Status().eventsDropped, 3u);
    EXPECT_EQ(mailbox.Status().batchesDropped, 3u);
}

TEST(Mailbox, WaitingBatchesHoldABoundedNumberOfSamples)
{
    Mailbox mailbox({});
    for (int i = 0; i < 3; ++i) {
        mailbox.PostGpuBatch(std::vector<GpuPerfInfo>(300000));
    }
    EXPECT_EQ(mailbox.CountEvents(), 1u);
    EXPECT_TRUE(mailbox.TakeEvent({}));
    for (int i = 0; i < 2; ++i) {
        mailbox.PostGpuBatch(std::vector<GpuPerfInfo>(200000));
    }
    EXPECT_EQ(mailbox.CountEvents(), 2u) << "what was taken still counts";
}

TEST(Mailbox, FullQueueOfReportsRefusesUntilOneIsRemoved)
{
    Mailbox mailbox(Small());
    const Report report{[](IVeltraServerInterface&) { return 0; }};
    EXPECT_TRUE(mailbox.PostReport(report));
    EXPECT_TRUE(mailbox.PostReport(report));
    EXPECT_FALSE(mailbox.PostReport(report));
    EXPECT_FALSE(mailbox.WaitForWork(false, {}).report) << "there is no service to send it to";
    EXPECT_TRUE(mailbox.WaitForWork(true, {}).report);
    EXPECT_TRUE(mailbox.PostReport(report));
    EXPECT_EQ(mailbox.Status().reportsRefused, 1u);
}

TEST(Mailbox, TheDeathOfAnEarlierConnectionIsIgnored)
{
    Mailbox mailbox({});
    const uint64_t earlier = mailbox.BeginConnection();
    mailbox.PostDeath(earlier);
    mailbox.BeginConnection();
    mailbox.PostDeath(earlier);
    EXPECT_FALSE(mailbox.WaitForWork(true, {}).isServiceDead);
}

TEST(Mailbox, NothingIsQueuedAfterTheStop)
{
    Mailbox mailbox({});
    mailbox.Stop();
    mailbox.PostGameEvent(Event(1));
    mailbox.PostGpuBatch(std::vector<GpuPerfInfo>(1));
    EXPECT_EQ(mailbox.CountEvents(), 0u);
    EXPECT_FALSE(mailbox.PostReport({}));
}

TEST(Mailbox, EventsThatComeDuringADeliveryWaitForTheNextOne)
{
    SessionOptions options;
    Mailbox* receiver = nullptr;
    int calls = 0;
    options.handler = [&](const SessionEvent&) {
        if (++calls < 9) {
            receiver->PostGameEvent(Event(calls));
            receiver->PostGpuBatch(std::vector<GpuPerfInfo>(1));
        }
    };
    Mailbox mailbox(options);
    receiver = &mailbox;
    mailbox.PostGameEvent(Event(0));
    mailbox.PostGpuBatch(std::vector<GpuPerfInfo>(1));
    mailbox.Deliver();
    EXPECT_EQ(calls, 2);
}

}  // namespace
}  // namespace TAVO::Veltra
