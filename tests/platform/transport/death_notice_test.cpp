// SPDX-License-Identifier: Apache-2.0
// Death notices: one for each registration, on time whatever else is blocked; no call waits for one.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <future>
#include <thread>
#include <utility>

#include "platform/transport/peer_fixture.h"
#include "transport/transport.h"

namespace TransportTest {
namespace {

using TestSupport::Child;
using TestSupport::TIMEOUT;

// The peer is what dies.
class DeathNotice : public PeerFixture {
protected:
    // Returns once all recipients have been notified: deaths are delivered in their order, and another one follows.
    void KillPeer()
    {
        Child next = StartPeer("next");
        const sptr<CountingRecipient> last = CountingRecipient::Of(object_);
        const sptr<CountingRecipient> ofNext = CountingRecipient::Of(Kept("next"));
        peer_.Kill();
        ASSERT_TRUE(last->AwaitTold());
        next.Kill();
        ASSERT_TRUE(ofNext->AwaitTold());
    }
};

TEST_F(DeathNotice, RecipientIsNotifiedOncePerRegistration)
{
    const std::vector<std::pair<int, int>> rows = {{0, 0}, {1, 0}, {2, 0}, {2, 1}, {1, 1}, {3, 3}};  // added, removed
    std::vector<sptr<CountingRecipient>> recipients;
    const sptr<IRemoteObject> other = MakeIn(object_);
    for (const sptr<IRemoteObject>& object : {object_, other}) {
        for (const auto& [added, removed] : rows) {
            SCOPED_TRACE(std::to_string(added) + " added, removed: " + std::to_string(removed));
            recipients.push_back(TAVO::MakeRef<CountingRecipient>());
            for (int count = 0; count < added; ++count) {
                EXPECT_TRUE(object->AddDeathRecipient(recipients.back()));
            }
            for (int count = 0; count < removed; ++count) {
                EXPECT_TRUE(object->RemoveDeathRecipient(recipients.back()));
            }
            EXPECT_TRUE(added > removed || !object->RemoveDeathRecipient(recipients.back()));
        }
    }
    KillPeer();
    for (size_t at = 0; at < recipients.size(); ++at) {
        SCOPED_TRACE(at);
        const auto& [added, removed] = rows[at % rows.size()];
        EXPECT_TRUE(TestSupport::WaitFor([&] { return recipients[at]->GetStrongCount() == 1; })) << "somebody holds it";
        EXPECT_EQ(recipients[at]->told, added - removed);
    }
}

// What is connected stays connected; what is new fails, and no directory is made in its place.
TEST_F(DeathNotice, SessionsOutliveTheRuntimeDirectory)
{
    const sptr<CountingRecipient> recipient = CountingRecipient::Of(object_);
    ASSERT_EQ(Echo(object_), TAVO::IPC_OK);
    std::filesystem::remove_all(dir_.Path());
    EXPECT_EQ(Echo(object_), TAVO::IPC_OK);
    EXPECT_NE(MakeIn(object_), nullptr);
    EXPECT_FALSE(std::filesystem::exists(dir_.Path()));
    Child stranger = Child::Start({"transport_peer", "stranger"});
    EXPECT_EQ(stranger.WaitForExit(), "exit 1");
    peer_.Kill();
    EXPECT_TRUE(recipient->AwaitTold());
}

TEST_F(DeathNotice, DeathClosesTheConnectionAlthoughAProxyIsHeld)
{
    EXPECT_EQ(Echo(object_), TAVO::IPC_OK);  // opens what this process opens once
    KillPeer();
    const size_t before = TestSupport::CountDescriptors(::getpid());
    peer_ = StartPeer("another");
    object_ = Kept("another");
    EXPECT_EQ(Call(object_, TestCode::NOTE).Int(1).SendOneWay(), TAVO::IPC_OK);
    EXPECT_EQ(Echo(object_), TAVO::IPC_OK);
    KillPeer();
    EXPECT_EQ(Echo(object_), TAVO::IPC_DEAD_OBJECT);
    EXPECT_TRUE(TestSupport::WaitFor([before] { return TestSupport::CountDescriptors(::getpid()) <= before; }))
        << TestSupport::CountDescriptors(::getpid()) << " descriptors, " << before << " before";
}

TEST_F(DeathNotice, RecipientIsRefusedForDeadLocalAndNullObjects)
{
    const sptr<CountingRecipient> recipient = TAVO::MakeRef<CountingRecipient>();
    EXPECT_FALSE(object_->AddDeathRecipient(nullptr));
    EXPECT_FALSE(object_->RemoveDeathRecipient(nullptr));
    const sptr<IRemoteObject> local = TAVO::MakeRef<TestObject>();
    EXPECT_FALSE(local->AddDeathRecipient(recipient));
    EXPECT_FALSE(local->RemoveDeathRecipient(recipient));
    KillPeer();
    EXPECT_FALSE(object_->IsAlive());
    EXPECT_FALSE(object_->AddDeathRecipient(recipient));
    EXPECT_FALSE(object_->RemoveDeathRecipient(recipient));
    EXPECT_EQ(recipient->told, 0);
}

TEST_F(DeathNotice, CallsDoNotWaitForARunningRecipient)
{
    std::promise<void> begun;
    std::promise<void> mayEnd;
    const sptr<CountingRecipient> slow = TAVO::MakeRef<CountingRecipient>([&begun, &mayEnd] {
        begun.set_value();
        mayEnd.get_future().wait_for(TIMEOUT);
    });
    const sptr<IRemoteObject> other = MakeIn(object_);
    const sptr<CountingRecipient> removed = TAVO::MakeRef<CountingRecipient>();
    ASSERT_TRUE(object_->AddDeathRecipient(slow));
    peer_.Kill();
    ASSERT_EQ(begun.get_future().wait_for(TIMEOUT), std::future_status::ready);
    // All of these return although the recipient is blocked.
    EXPECT_FALSE(object_->AddDeathRecipient(removed));
    object_->RemoveDeathRecipient(slow);
    other->RemoveDeathRecipient(slow);
    EXPECT_PRED1(IsConnectionError, Echo(object_));
    object_ = nullptr;
    EXPECT_EQ(slow->told, 0) << "the delivery was over before the calls";
    mayEnd.set_value();
    EXPECT_TRUE(slow->AwaitTold());
    EXPECT_EQ(removed->told, 0);
}

TEST_F(DeathNotice, RecipientMayReleaseItsObject)
{
    sptr<CountingRecipient> second = TAVO::MakeRef<CountingRecipient>();
    const sptr<CountingRecipient> first = TAVO::MakeRef<CountingRecipient>([this, &second] {
        object_->RemoveDeathRecipient(second);
        EXPECT_PRED1(IsConnectionError, Echo(object_));
        object_ = nullptr;  // maybe the last reference
        second = nullptr;
    });
    ASSERT_TRUE(object_->AddDeathRecipient(first));
    ASSERT_TRUE(object_->AddDeathRecipient(second));
    World::Get().Keep("peer", nullptr);
    peer_.Kill();
    EXPECT_TRUE(first->AwaitTold());
}

// Every worker of this process is held up, and more requests wait behind them.
TEST_F(DeathNotice, BlockedWorkersDoNotDelayDeathNotices)
{
    constexpr int WORKERS = 16;
    constexpr int CALLS = WORKERS + 4;
    const Child blocker = StartPeer("blocker");
    const sptr<IRemoteObject> blocking = Kept("blocker");
    const sptr<TestObject> ours[] = {TAVO::MakeRef<TestObject>(), TAVO::MakeRef<TestObject>()};
    ASSERT_EQ(KeepIn(blocking, "0", ours[0]), TAVO::IPC_OK);
    ASSERT_EQ(KeepIn(blocking, "1", ours[1]), TAVO::IPC_OK);
    std::atomic<int> passed{0};
    std::thread blocked([&] {  // an object occupies 12 workers at most, on either side
        Threads(CALLS, [&](int call) {
            passed += CallKept(MakeIn(blocking), std::to_string(call % 2), TestCode::WAIT) == TAVO::IPC_OK;
        });
    });
    EXPECT_TRUE(World::Get().AwaitWaiting(WORKERS));
    const sptr<CountingRecipient> recipient = CountingRecipient::Of(object_);
    EXPECT_EQ(Echo(object_), TAVO::IPC_OK) << "replies do not pass the workers";
    peer_.Kill();
    EXPECT_TRUE(recipient->AwaitTold());
    EXPECT_GE(World::Get().Waiting(), WORKERS) << "the workers were free";
    EXPECT_TRUE(TestSupport::WaitFor([&passed] {
        World::Get().OpenGate();  // those that waited for a worker come only now
        return passed == CALLS;
    }));
    blocked.join();
}

// Dropping the last reference may run any code: never on a thread that others wait for.
TEST_F(DeathNotice, DestructorOfAReleasedObjectMayCallOtherProcesses)
{
    const Child witness = StartPeer("witness");
    for (const bool dies : {false, true}) {
        SCOPED_TRACE(dies);
        std::promise<int> farewell;
        const auto call = [&farewell] { farewell.set_value(Echo(Kept("witness"))); };
        ASSERT_EQ(KeepIn(object_, "ours", TAVO::MakeRef<TestObject>(false, call)), TAVO::IPC_OK);
        if (dies) {
            peer_.Kill();
        } else {
            ASSERT_EQ(KeepIn(object_, "ours", nullptr), TAVO::IPC_OK);
        }
        std::future<int> status = farewell.get_future();
        ASSERT_EQ(status.wait_for(TIMEOUT), std::future_status::ready);
        EXPECT_EQ(status.get(), TAVO::IPC_OK);
    }
}

}  // namespace
}  // namespace TransportTest
