// SPDX-License-Identifier: Apache-2.0
// The game-state query: never starts the service, and takes its absence for an answer.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <utility>

#include "client/veltra_custom_proxy.h"
#include "client/veltra_server_client_proxy.h"
#include "support/fake_ability_manager.h"
#include "support/fake_remote_object.h"
#include "support/log_capture.h"
#include "support/threads.h"
#include "tavo/delayed_ref_singleton.h"
#include "tavo/system_ability_manager_client.h"
#include "veltra_server_client.h"

namespace TAVO::Veltra {
namespace {

// Without the fixture of the other client tests, which makes the client proxy.
class GameStateTest : public testing::Test {
protected:
    ~GameStateTest() override { FakeAbilityManager::Remove(); }

    static sptr<FakeRemoteObject> ServiceReporting(int32_t result, int32_t state, int status = 0)
    {
        return MakeRef<FakeRemoteObject>([=](uint32_t code, MessageParcel&, MessageParcel& reply) {
            EXPECT_EQ(code, 28u);
            reply.WriteInt32(result);
            reply.WriteInt32(state);
            reply.WriteString("com.game");
            return status;
        });
    }

    void ExpectAnswer(int32_t result, int32_t state, const std::string& bundleName)
    {
        GameState answer{77, "mine"};
        EXPECT_EQ(client_.QueryGameState(answer), result);
        EXPECT_EQ(answer.state, state);
        EXPECT_EQ(answer.bundleName, bundleName);
    }

    const sptr<FakeAbilityManager> manager_ = FakeAbilityManager::Install();
    VeltraClient client_;
};

TEST_F(GameStateTest, ComesFromTheRunningServiceOrIsNoGame)
{
    const std::string noGame = "I QueryGameState: No games exists.";
    ExpectLog({"W GetServiceProxy: Check systemAbility not exist and try to release veltra_server proxy.", noGame},
              [this] { ExpectAnswer(0, 2, "mine"); });  // not running

    const auto service = ServiceReporting(0, 1);
    manager_->SetRunning(service);
    ExpectAnswer(0, 1, "com.game");
    EXPECT_EQ(service->DeathRecipients(), 0u);

    manager_->SetRunning(ServiceReporting(9, 1));
    ExpectAnswer(9, 77, "mine");
    EXPECT_EQ(service->GetStrongCount(), 1);  // the field holds the one of the last check only
    manager_->SetRunning(ServiceReporting(0, 1, IPC_TIMED_OUT));
    ExpectAnswer(IPC_TIMED_OUT, 77, "mine");
    manager_->SetRunning(MakeRef<FakeRemoteObject>(nullptr, u"some.other.Interface"));
    ExpectAnswer(0, 2, "mine");

    manager_->SetRunning(service);
    ExpectAnswer(0, 1, "com.game");
    manager_->SetRunning(nullptr);
    ExpectAnswer(0, 2, "mine");
    EXPECT_EQ(service->GetStrongCount(), 1);
    EXPECT_TRUE(manager_->Loads().empty());

    // Without a manager the field keeps its proxy; the answer goes by what this call found.
    manager_->SetRunning(service);
    ExpectAnswer(0, 1, "com.game");
    FakeAbilityManager::Remove();
    ExpectLog({"E GetServiceProxy: Get SystemAbilityManager failed.", noGame}, [this] { ExpectAnswer(0, 2, "mine"); });
    EXPECT_EQ(service->GetStrongCount(), 3);  // the test, the manager and the field's proxy
    // A check that failed says nothing about games.
    SystemAbilityManagerClient::GetInstance().SetTestManager(MakeRef<ThrowingManager>());
    ExpectAnswer(1010310014, 77, "mine");
    EXPECT_TRUE(VeltraCustomProxy().GetServiceProxy() == nullptr);
    EXPECT_FALSE(DelayedRefSingleton<VeltraClientProxy>::HasInstance());
}

// The last reference to the service of the query before releases what its answer holds, while this query replaces it.
TEST_F(GameStateTest, QueryThatFindsNoServiceMeanwhileIsNoGame)
{
    std::shared_ptr<void> released(nullptr, [this](void*) {
        manager_->SetRunning(nullptr);
        ExpectAnswer(0, 2, "mine");
    });
    manager_->SetRunning(MakeRef<FakeRemoteObject>(
        [released = std::move(released)](uint32_t, MessageParcel&, MessageParcel&) { return 0; }));
    ExpectAnswer(0, 0, "mine");
    const auto successor = ServiceReporting(0, 1);
    manager_->SetRunning(successor);
    ExpectAnswer(0, 2, "mine");
    EXPECT_TRUE(successor->Requests().empty());
}

// Queries replace each other's proxy while they run: each continues with the one that it found.
TEST_F(GameStateTest, QueriesRaceWithTheManagersChanges)
{
    constexpr int QUERIES = 20000;
    std::atomic<int> callersLeft{4};
    const TestSupport::Threads callers(4, [&](size_t) {
        for (int query = 0; query < QUERIES; ++query) {
            GameState answer{77, ""};
            EXPECT_EQ(client_.QueryGameState(answer), 0);
            EXPECT_EQ(answer.bundleName.empty(), answer.state == 2);
            EXPECT_TRUE(answer.state == 2 || answer.state == 1000) << answer.state;
        }
        --callersLeft;
    });
    for (int round = 0; callersLeft > 0; ++round) {
        manager_->SetRunning(round % 3 == 0 ? nullptr : ServiceReporting(0, 1000));
    }
}

}  // namespace
}  // namespace TAVO::Veltra
