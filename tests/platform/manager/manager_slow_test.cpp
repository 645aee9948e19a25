// SPDX-License-Identifier: Apache-2.0
// What takes as long as the manager waits for a service.
#include "platform/manager/ability_client.h"
#include "platform/manager/manager_fixture.h"

namespace ManagerTest {
namespace {

using ManagerSlow = ManagerFixture;

TEST_F(ManagerSlow, ServiceThatDoesNotRegisterIsEndedAndItsLoadsFail)
{
    WriteAbility(ID, "when-told");
    TestSupport::Child manager = StartManager();
    const auto begin = TestSupport::Clock::now();
    EXPECT_EQ(Load(ID), "failed");
    EXPECT_GE(TestSupport::Clock::now() - begin, std::chrono::seconds(20));
    ASSERT_FALSE(Started().empty());
    EXPECT_TRUE(WaitUntilDead(Started().front()));
}

}  // namespace
}  // namespace ManagerTest
