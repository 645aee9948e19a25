// SPDX-License-Identifier: Apache-2.0
// Death notices: as many as were registered, on time whatever else is stuck, and nobody waits for one under way.
#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "platform/transport/test_object.h"
#include "transport/transport.h"

namespace TransportTest {
namespace {

using TestSupport::Child;
using TestSupport::PATIENCE;
using TestSupport::PrivateRuntimeDir;
using TestSupport::WaitFor;

// This process is the hub; the peer is what dies.
class DeathNotice : public ::testing::Test {
protected:
    void SetUp() override
    {
        ServeAsHub();
        peer_ = StartPeer("peer");
        object_ = World::Get().Kept("peer");
    }

    // The death has been told to all that were registered.
    void KillPeer()
    {
        const sptr<CountingRecipient> last = TAVO::MakeRef<CountingRecipient>();
        ASSERT_TRUE(object_->AddDeathRecipient(last));
        peer_.Kill();
        ASSERT_TRUE(WaitFor([&last] { return last->told == 1; }));
        auto isThrough = std::make_shared<std::promise<void>>();
        ASSERT_TRUE(TAVO::Transport::RunOnDeliveryThread([isThrough] { isThrough->set_value(); }));
        ASSERT_EQ(isThrough->get_future().wait_for(PATIENCE), std::future_status::ready);
    }

    PrivateRuntimeDir dir_;
    Child peer_;
    sptr<IRemoteObject> object_;
};

struct Registration {
    const char* name;
    int added;
    int removed;
    int told;
};

TEST_F(DeathNotice, IsToldOncePerRegistrationThatStands)
{
    const std::vector<Registration> rows = {
        {"never added", 0, 0, 0},           {"once", 1, 0, 1},       {"twice", 2, 0, 2},
        {"twice, one taken back", 2, 1, 1}, {"taken back", 1, 1, 0}, {"three times, all taken back", 3, 3, 0},
    };
    std::vector<sptr<CountingRecipient>> recipients;
    for (const Registration& row : rows) {
        SCOPED_TRACE(row.name);
        recipients.push_back(TAVO::MakeRef<CountingRecipient>());
        for (int count = 0; count < row.added; ++count) {
            EXPECT_TRUE(object_->AddDeathRecipient(recipients.back()));
        }
        for (int count = 0; count < row.removed; ++count) {
            EXPECT_TRUE(object_->RemoveDeathRecipient(recipients.back()));
        }
        if (row.added == row.removed) {
            EXPECT_FALSE(object_->RemoveDeathRecipient(recipients.back()));
        }
    }
    KillPeer();
    for (size_t row = 0; row < rows.size(); ++row) {
        EXPECT_EQ(recipients[row]->told, rows[row].told) << rows[row].name;
        EXPECT_EQ(recipients[row]->GetStrongCount(), 1) << rows[row].name << ": somebody still holds it";
    }
}

TEST_F(DeathNotice, IsRefusedForTheDeadTheLocalAndTheNull)
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

TEST_F(DeathNotice, NobodyWaitsForADeliveryUnderWay)
{
    std::promise<void> begun;
    std::promise<void> mayEnd;
    const sptr<CountingRecipient> slow = TAVO::MakeRef<CountingRecipient>([&begun, &mayEnd] {
        begun.set_value();
        mayEnd.get_future().wait_for(PATIENCE);
    });
    const sptr<IRemoteObject> other = MakeIn(object_);
    const sptr<CountingRecipient> removed = TAVO::MakeRef<CountingRecipient>();
    ASSERT_TRUE(object_->AddDeathRecipient(slow));
    peer_.Kill();
    ASSERT_EQ(begun.get_future().wait_for(PATIENCE), std::future_status::ready);
    // All of these come back although the delivery stands; were they to wait, it would not end within its patience.
    EXPECT_FALSE(object_->AddDeathRecipient(removed));
    object_->RemoveDeathRecipient(slow);
    other->RemoveDeathRecipient(slow);
    EXPECT_PRED1(IsConnectionError, Echo(object_));
    object_ = nullptr;
    EXPECT_EQ(slow->told, 0) << "the delivery was over before the calls";
    mayEnd.set_value();
    EXPECT_TRUE(WaitFor([&slow] { return slow->told == 1; }));
    EXPECT_EQ(removed->told, 0);
}

TEST_F(DeathNotice, ARecipientMayTakeAllApart)
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
    World::Get().Forget("peer");
    peer_.Kill();
    EXPECT_TRUE(WaitFor([&first] { return first->told == 1; }));
}

// Every worker of this process is held up, and more requests wait behind them.
TEST_F(DeathNotice, IsNotDelayedByBlockedWorkers)
{
    constexpr int WORKERS = 16;
    const Child blocker = StartPeer("blocker");
    const sptr<IRemoteObject> blocking = World::Get().Kept("blocker");
    std::vector<sptr<TestObject>> ours;
    for (int count = 0; count < WORKERS + 4; ++count) {  // one-way requests of one session run one at a time: sync ones
        ours.push_back(TAVO::MakeRef<TestObject>());
        ASSERT_EQ(Call(blocking, TestCode::KEEP).Text(std::to_string(count)).Object(ours.back()).Send(), TAVO::IPC_OK);
        ASSERT_EQ(Call(blocking, TestCode::START_WAIT).Text(std::to_string(count)).Send(), TAVO::IPC_OK);
    }
    ASSERT_TRUE(World::Get().AwaitWaiting(WORKERS));
    const sptr<CountingRecipient> recipient = TAVO::MakeRef<CountingRecipient>();
    ASSERT_TRUE(object_->AddDeathRecipient(recipient));
    EXPECT_EQ(Echo(object_), TAVO::IPC_OK) << "replies do not pass the workers";
    peer_.Kill();
    EXPECT_TRUE(WaitFor([&recipient] { return recipient->told == 1; }));
    EXPECT_GE(World::Get().Waiting(), WORKERS) << "the workers were free";
    World::Get().OpenGate();
    EXPECT_TRUE(WaitFor([] {
        World::Get().OpenGate();  // those that waited for a worker come only now
        return Call(World::Get().Kept("blocker"), TestCode::WAITS_OVER).SendForInt() == WORKERS + 4;
    }));
}

// Dropping the last reference may run any code: never on a thread that others wait for.
TEST_F(DeathNotice, AnObjectThatItsHolderReleasesMayCallOutInItsDestructor)
{
    std::promise<int> farewell;
    {
        const sptr<TestObject> ours = TAVO::MakeRef<TestObject>();
        ours->SetFarewell([&farewell, object = object_] { farewell.set_value(Echo(object)); });
        ASSERT_EQ(Call(object_, TestCode::KEEP).Text("ours").Object(ours).Send(), TAVO::IPC_OK);
    }
    ASSERT_EQ(Call(object_, TestCode::FORGET).Text("ours").Send(), TAVO::IPC_OK);
    std::future<int> status = farewell.get_future();
    ASSERT_EQ(status.wait_for(PATIENCE), std::future_status::ready);
    EXPECT_EQ(status.get(), TAVO::IPC_OK);
}

TEST_F(DeathNotice, AnObjectThatDiesWithItsHolderMayCallOutInItsDestructor)
{
    const Child witness = StartPeer("witness");
    std::promise<int> farewell;
    {
        const sptr<TestObject> ours = TAVO::MakeRef<TestObject>();
        ours->SetFarewell([&farewell] { farewell.set_value(Echo(World::Get().Kept("witness"))); });
        ASSERT_EQ(Call(object_, TestCode::KEEP).Text("ours").Object(ours).Send(), TAVO::IPC_OK);
    }
    peer_.Kill();
    std::future<int> status = farewell.get_future();
    ASSERT_EQ(status.wait_for(PATIENCE), std::future_status::ready);
    EXPECT_EQ(status.get(), TAVO::IPC_OK);
}

}  // namespace
}  // namespace TransportTest
