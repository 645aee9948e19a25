// SPDX-License-Identifier: Apache-2.0
// A service that dies costs its callers an error, soon, and the next call finds or starts another one.
#include <signal.h>

#include "system/storm.h"

namespace SystemTest {
namespace {

using namespace TAVO::Veltra;

TEST_F(SystemFixture, DeathInAHandlerFailsThatCallAndTheNextStartsTheService)
{
    StartManager();
    Child service = StartTestService();
    const Clock::time_point begin = Clock::now();
    EXPECT_EQ(client_.CallAuth("pid"), service.Pid());
    EXPECT_EQ(client_.CallAuth("die"), RESULT_NO_SERVICE);
    EXPECT_EQ(service.WaitForExit(), "signal 9");
    EXPECT_EQ(Starts(), 0);
    EXPECT_TRUE(IsServedAgain());
    EXPECT_LT(Clock::now() - begin, SOON);
    EXPECT_EQ(Starts(), 1) << "the service of the ability file";
}

// Its Marshalling is called when the service has been found and before anything is sent.
class FatalScene : public GameSceneBundle {
public:
    explicit FatalScene(pid_t victim) : victim_(victim) {}
    bool Marshalling(TAVO::Parcel& parcel) const override
    {
        ::kill(victim_, SIGKILL);
        isDead_ = WaitFor([this] { return !IsAlive(victim_); });
        return GameSceneBundle::Marshalling(parcel);
    }
    bool IsDead() const { return isDead_; }

private:
    const pid_t victim_;
    mutable bool isDead_ = false;
};

TEST_F(SystemFixture, DeathBeforeTheRequestIsSentFailsThatRequestOnly)
{
    StartManager();
    ASSERT_EQ(client_.CallAuth("first"), 0);
    for (int round = 0; round < 5; ++round) {
        SCOPED_TRACE(round);
        const pid_t pid = ServicePid();
        ASSERT_GT(pid, 0);
        FatalScene scene(pid);
        const Clock::time_point begin = Clock::now();
        EXPECT_EQ(client_.NotifyGameEvent(scene), 0) << "a scene that got lost is no failure";
        EXPECT_TRUE(scene.IsDead());
        EXPECT_TRUE(IsServedAgain());
        EXPECT_LT(Clock::now() - begin, SOON);
        EXPECT_EQ(Starts(), round + 2);
    }
}

// Calls that fail are part of it; calls that hang, or that get another's answer, are not.
TEST_F(StormFixture, CallsDuringRepeatedKillsReturnADefinedResult)
{
    StartStory();
    Rage(20);
    EXPECT_EQ(Starts(), 21);
}

}  // namespace
}  // namespace SystemTest
