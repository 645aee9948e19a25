// SPDX-License-Identifier: Apache-2.0
// What does not end the 10 s wait for a load; it is sat out once.
#include <chrono>

#include "client/client_test.h"
#include "support/log_capture.h"

namespace TAVO::Veltra {
namespace {

class LoadWaitTest : public ClientTest {};

TEST_F(LoadWaitTest, FailureAndSuccessWithoutObjectDoNotEndIt)
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

}  // namespace
}  // namespace TAVO::Veltra
