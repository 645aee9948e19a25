// SPDX-License-Identifier: Apache-2.0
// How the service is found, loaded and released.
#include <atomic>
#include <chrono>
#include <memory>
#include <new>
#include <vector>

#include "client/client_test.h"
#include "client/veltra_sa_load_callback.h"
#include "support/log_capture.h"
#include "support/threads.h"

namespace TAVO::Veltra {
namespace {

using TestSupport::Threads;

const std::vector<int32_t> ONCE = {66006};

class ConnectionTest : public ClientTest {};

TEST_F(ConnectionTest, EachCallLooksUpARunningServiceWithoutLoadOrDeathNotice)
{
    const auto service = RunService();
    const sptr<IVeltraServerInterface> found = proxy_.GetServiceProxy();
    ASSERT_TRUE(found != nullptr);
    EXPECT_TRUE(found->AsObject() == service);
    EXPECT_EQ(manager_->Checks(), ONCE);
    EXPECT_TRUE(manager_->Loads().empty());
    EXPECT_EQ(service->DeathRecipients(), 0u);
    const auto successor = RunService();
    EXPECT_TRUE(proxy_.GetServiceProxy()->AsObject() == successor);
}

TEST_F(ConnectionTest, LoadedServiceIsWatchedUntilItDiesOrIsReplaced)
{
    const auto service = MakeRef<FakeRemoteObject>();
    ReportSuccessOnLoad(66006, service);
    EXPECT_EQ(proxy_.CallAuth(""), 0);
    manager_->WaitForReports();
    EXPECT_EQ(service->Requests().size(), 1u);
    EXPECT_EQ(manager_->Loads(), ONCE);
    proxy_.LoadSystemAbilitySuccess(service);  // as to a second caller that waited for the same start
    EXPECT_EQ(service->DeathRecipients(), 1u);
    const int32_t references = service->GetStrongCount();
    service->Die();
    EXPECT_LT(service->GetStrongCount(), references);  // the proxy in the field was dropped

    const auto successor = MakeRef<FakeRemoteObject>();
    ReportSuccessOnLoad(66006, successor);
    EXPECT_EQ(proxy_.CallAuth(""), 0);
    EXPECT_EQ(successor->Requests().size(), 1u);
    EXPECT_EQ(manager_->Loads().size(), 2u);
    manager_->ScriptLoad(ABILITY_UNKNOWN);  // a failed check releases what the field held
    EXPECT_TRUE(proxy_.GetServiceProxy() == nullptr);
    EXPECT_EQ(successor->DeathRecipients(), 0u);
}

// The failure wakes the waiter, which must still take the success that follows.
TEST_F(ConnectionTest, SuccessAfterAFailureIsAccepted)
{
    const auto service = MakeRef<FakeRemoteObject>();
    manager_->ScriptLoad(ABILITY_OK, [service](ISystemAbilityLoadCallback& callback) {
        callback.OnLoadSystemAbilityFail(66006);
        callback.OnLoadSystemAbilitySuccess(66006, service);
    });
    EXPECT_EQ(proxy_.CallAuth(""), 0);
}

// The report of the start that this caller waits for never comes; a call of another thread finds the service.
TEST_F(ConnectionTest, WaitEndsWhenAnotherCallFindsTheService)
{
    manager_->ScriptLoad(ABILITY_OK, [this](ISystemAbilityLoadCallback&) {
        RunService();
        proxy_.GetServiceProxy();
    });
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(proxy_.GetServiceProxy() != nullptr);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

class UnwatchableService : public FakeRemoteObject {
public:
    bool AddDeathRecipient(const sptr<DeathRecipient>&) override { throw std::bad_alloc(); }
};

TEST_F(ConnectionTest, MissingMemoryEndsNoWaitAndThrowsNothing)
{
    ReportSuccessOnLoad(66006, MakeRef<UnwatchableService>());
    EXPECT_EQ(proxy_.CallAuth(""), 0);
    SystemAbilityManagerClient::GetInstance().SetTestManager(MakeRef<ThrowingManager>());
    EXPECT_TRUE(proxy_.GetServiceProxy() == nullptr);
}

TEST_F(ConnectionTest, FailureAndSuccessWithoutObjectDoNotEndTheWait)
{
    manager_->ScriptLoad(ABILITY_OK, [](ISystemAbilityLoadCallback& callback) {
        callback.OnLoadSystemAbilityFail(66006);
        callback.OnLoadSystemAbilitySuccess(66006, nullptr);
        callback.OnLoadSystemAbilitySuccess(66005, MakeRef<FakeRemoteObject>());
    });
    const LogCapture log;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(proxy_.GetServiceProxy() == nullptr);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    ASSERT_FALSE(log.Lines().empty());
    EXPECT_EQ(log.Lines().back(), "W GetServiceProxy: Load systemAbility timeout.");
}

// The waiter may destroy the proxy as soon as it holds the lock; the sanitizers see a report that goes on after that.
TEST_F(ConnectionTest, LoadReportEndsBeforeItsWaiterReturns)
{
    constexpr int ROUNDS = 50;
    for (int i = 0; i < ROUNDS; ++i) {
        auto proxy = std::make_unique<VeltraClientProxy>();
        manager_->ScriptLoad(ABILITY_OK, [&proxy = *proxy](ISystemAbilityLoadCallback&) {
            proxy.LoadSystemAbilitySuccess(MakeRef<FakeRemoteObject>());
        });
        EXPECT_TRUE(proxy->GetServiceProxy() != nullptr);
    }
}

TEST_F(ConnectionTest, RefusedLoadIsNotWaitedFor)
{
    for (const int32_t status : std::vector<int32_t>{ABILITY_UNKNOWN, ABILITY_UNREACHABLE, -1}) {
        manager_->ScriptLoad(status);
        EXPECT_TRUE(proxy_.GetServiceProxy() == nullptr);  // the test's time limit is below one wait a row
    }
    EXPECT_EQ(manager_->Loads().size(), 3u);
}

// Without a manager the field keeps its proxy, but no operation may call through it.
TEST_F(ConnectionTest, MissingManagerMeansNoServiceThoughTheFieldIsSet)
{
    const auto service = RunService();
    ASSERT_TRUE(proxy_.GetServiceProxy() != nullptr);
    FakeAbilityManager::Remove();
    EXPECT_TRUE(proxy_.GetServiceProxy() == nullptr);
    EXPECT_EQ(service->GetStrongCount(), 3);  // the test, the manager and the field's proxy
    EXPECT_EQ(proxy_.CallAuth(""), 1010310014);
    EXPECT_TRUE(service->Requests().empty());
    EXPECT_TRUE(manager_->Loads().empty());
}

TEST_F(ConnectionTest, ObjectOfAnotherInterfaceIsNoService)
{
    manager_->SetRunning(MakeRef<FakeRemoteObject>(nullptr, u"some.other.Interface"));
    EXPECT_EQ(proxy_.CallAuth(""), 1010310014);
}

// A report about another ability, in either direction, neither connects nor disconnects.
TEST_F(ConnectionTest, ReportsAboutOtherAbilitiesChangeNothing)
{
    const auto service = RunService();
    proxy_.GetServiceProxy();
    const auto stranger = MakeRef<FakeRemoteObject>();
    VeltraSaLoadCallback callback;
    callback.OnLoadSystemAbilityFail(66005);
    callback.OnLoadSystemAbilitySuccess(66005, stranger);
    EXPECT_EQ(stranger->DeathRecipients(), 0u);
    EXPECT_EQ(service->GetStrongCount(), 3);  // the test, the manager and the field's proxy
    callback.OnLoadSystemAbilityFail(66006);
    EXPECT_EQ(service->GetStrongCount(), 2);
}

const std::string CHECK_FAILED =
    "W GetServiceProxy: Check systemAbility not exist and try to release veltra_server proxy.";
const std::string TRY_LOAD = "I GetServiceProxy: Try load systemAbility.";

// Watchers of the log search for these texts. The line of a timeout is tested with the wait.
TEST_F(ConnectionTest, EachStepLogsFixedLines)
{
    ExpectLog({CHECK_FAILED, TRY_LOAD, "W GetServiceProxy: Failed to load systemAbility."},
              [this] { proxy_.GetServiceProxy(); });
    const auto service = MakeRef<FakeRemoteObject>();
    VeltraSaLoadCallback callback;
    const std::string loaded = "I OnLoadSystemAbilitySuccess: Load system ability successed!";
    ExpectLog({"I LoadSystemAbilitySuccess: Load systemAbility success\xef\xbc\x8c but remoteObject is null.", loaded},
              [&] { callback.OnLoadSystemAbilitySuccess(66006, nullptr); });
    ExpectLog({loaded}, [&] { callback.OnLoadSystemAbilitySuccess(66006, service); });
    ExpectLog({"I OnLoadSystemAbilitySuccess: system ability is not veltra_server:7"},
              [&] { callback.OnLoadSystemAbilitySuccess(7, service); });
    ExpectLog({"I OnRemoteDied: Remote systemAbility dead.", "I OnRemoteSaDead: OnRemoteSaDead"},
              [&] { service->Die(); });
    ExpectLog({"I OnLoadSystemAbilityFail: Load system ability failed!"},
              [&] { callback.OnLoadSystemAbilityFail(66006); });
    ExpectLog({"W OnLoadSystemAbilityFail: system ability is not veltra_server:7"},
              [&] { callback.OnLoadSystemAbilityFail(7); });

    // The report's own line may come before or after the waiter's.
    ReportSuccessOnLoad(66006, service);
    const LogCapture log;
    proxy_.GetServiceProxy();
    manager_->WaitForReports();
    std::vector<std::string> lines = log.Lines();
    std::erase(lines, loaded);
    EXPECT_EQ(lines,
              (std::vector<std::string>{CHECK_FAILED, TRY_LOAD, "I GetServiceProxy: Load systemAbility succeeded."}));
}

TEST(ConnectionStart, FirstCallsOfManyThreadsMakeOneProxy)
{
    FakeAbilityManager::Remove();
    std::vector<VeltraClientProxy*> seen(8);
    Threads callers(seen.size(), [&seen](size_t caller) {
        seen[caller] = &DelayedRefSingleton<VeltraClientProxy>::GetInstance();
        seen[caller]->CallAuth("");
    });
    callers.Join();
    for (const VeltraClientProxy* proxy : seen) {
        EXPECT_EQ(proxy, seen.front());
    }
}

// Calls, deaths and reconnections at once: every call ends with a code of its own, nothing is called after its end.
TEST_F(ConnectionTest, CallsRaceWithDeathsAndLoads)
{
    constexpr int ROUNDS = 200;
    std::atomic<bool> isOver{false};
    RunService();
    const Threads callers(4, [this, &isOver](size_t) {
        while (!isOver) {
            const int32_t result = proxy_.CallAuth("race");
            EXPECT_TRUE(result == 0 || result == 1010310014) << result;
        }
    });
    for (int i = 0; i < ROUNDS; ++i) {
        const auto service = MakeRef<FakeRemoteObject>();
        proxy_.LoadSystemAbilitySuccess(service);
        manager_->SetRunning(service);
        service->Die();
    }
    isOver = true;
}

}  // namespace
}  // namespace TAVO::Veltra
