// SPDX-License-Identifier: Apache-2.0
// What does not end the 10 s wait for a load. Each test sits it out once.
#include <chrono>

#include "client/client_test.h"
#include "support/log_capture.h"

namespace TAVO::Veltra {
namespace {

using Clock = std::chrono::steady_clock;

class LoadWaitTest : public ClientTest {
protected:
    void ExpectWaitToTheEnd()
    {
        const LogCapture log;
        const Clock::time_point start = Clock::now();
        EXPECT_TRUE(proxy_.GetServiceProxy() == nullptr);
        EXPECT_GE(Clock::now() - start, std::chrono::seconds(10));
        manager_->WaitForReports();
        const std::vector<LogLine> lines = log.Lines();
        ASSERT_FALSE(lines.empty());
        EXPECT_EQ(lines.back().level, SCRIVO_WARN);
        EXPECT_EQ(lines.back().format, "[%{public}s(%{public}s:%{public}d)]Load systemAbility timeout.");
    }
};

TEST_F(LoadWaitTest, FailureAndSuccessWithoutObjectDoNotEndIt)
{
    manager_->ScriptLoad(ABILITY_OK, [](ISystemAbilityLoadCallback& callback) {
        callback.OnLoadSystemAbilityFail(66006);
        callback.OnLoadSystemAbilitySuccess(66006, nullptr);
        callback.OnLoadSystemAbilitySuccess(66005, MakeRef<FakeRemoteObject>());
    });
    ExpectWaitToTheEnd();
}

// The failure wakes the waiter, which must still take the success that follows.
TEST_F(LoadWaitTest, SuccessAfterAFailureIsTaken)
{
    const auto service = MakeRef<FakeRemoteObject>();
    manager_->ScriptLoad(ABILITY_OK, [service](ISystemAbilityLoadCallback& callback) {
        callback.OnLoadSystemAbilityFail(66006);
        callback.OnLoadSystemAbilitySuccess(66006, service);
    });
    EXPECT_EQ(proxy_.CallAuth(""), 0);
}

// A late success of a load that was given up is still taken by whoever comes next.
TEST_F(LoadWaitTest, SilenceEndsItAndALateSuccessIsWelcome)
{
    manager_->ScriptLoad(ABILITY_OK);
    ExpectWaitToTheEnd();
    const auto service = MakeRef<FakeRemoteObject>();
    proxy_.LoadSystemAbilitySuccess(service);
    EXPECT_EQ(service->DeathRecipients(), 1u);
}

}  // namespace
}  // namespace TAVO::Veltra
