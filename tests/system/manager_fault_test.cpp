// SPDX-License-Identifier: Apache-2.0
// A manager that hangs, dies or was never there: calls end soon, and work again when it is back.
#include <signal.h>
#include <unistd.h>

#include "support/log_capture.h"
#include "system/system_fixture.h"

namespace SystemTest {
namespace {

using namespace TAVO::Veltra;
using TestSupport::ProcessorTime;

class ManagerFault : public SystemFixture {
protected:
    // Calls of every kind, none of which may find a service or wait for one.
    void ExpectNoServiceAtOnce()
    {
        constexpr int ROUNDS = 10;
        const Clock::time_point begin = Clock::now();
        for (int round = 0; round < ROUNDS; ++round) {
            EXPECT_EQ(client_.CallAuth("absent"), RESULT_NO_SERVICE);
            EXPECT_EQ(client_.ReportRenderThread("a", "b", 1), RESULT_RENDER_NO_SERVICE);
            EXPECT_EQ(client_.SyncAppType("a", 0).size(), 0u);
            const GameCallbackEventInfo info = client_.GetDeviceInfo({});
            EXPECT_EQ(info.resultCode, RESULT_NO_SERVICE);
            EXPECT_EQ(info.tempLevel, -1);
            GameInfo event;
            client_.ReportGameEvent(event);
        }
        EXPECT_LT(Clock::now() - begin, SOON) << "50 calls that wait 2 s each would take 100 s";
    }
};

TEST_F(ManagerFault, CallsFailAtOnceWithoutAManager)
{
    const LogCapture log;
    ExpectNoServiceAtOnce();
    EXPECT_EQ(log.Count("Try load systemAbility."), 0);
    EXPECT_GT(log.Count("no ability manager at " + PathOf("manager") + ": No such file"), 0);
    StartManager();
    EXPECT_TRUE(IsServedAgain());
}

TEST_F(ManagerFault, OneCallWaitsForAHungManagerAndTheNextFailAtOnce)
{
    StartManager();
    Manager().Stop();
    const Clock::time_point begin = Clock::now();
    const Clock::duration used = ProcessorTime(::getpid());
    EXPECT_EQ(client_.CallAuth("first"), RESULT_NO_SERVICE);
    EXPECT_LT(Clock::now() - begin, SOON);
    EXPECT_LT(ProcessorTime(::getpid()) - used, std::chrono::seconds(1)) << "a wait that spins";
    ExpectNoServiceAtOnce();
    Manager().Continue();
    EXPECT_TRUE(IsServedAgain());
    EXPECT_EQ(Starts(), 1);
}

TEST_F(ManagerFault, HungManagerDelaysNoCallToARunningService)
{
    StartManager();
    ASSERT_EQ(client_.CallAuth("loads"), 0);
    ASSERT_EQ(client_.CallAuth("checks"), 0);  // what a check found is remembered, and what a load found is not
    const pid_t pid = ServicePid();
    ASSERT_GT(pid, 0);
    Manager().Stop();
    const Clock::time_point begin = Clock::now();
    Threads callers(4, [](size_t) {
        VeltraClient client;
        for (int call = 0; call < 50; ++call) {
            EXPECT_EQ(client.CallAuth("cached"), 0);
        }
    });
    callers.Join();
    EXPECT_LT(Clock::now() - begin, SOON);

    // The service has ended too: the manager is called once, and then counts as absent.
    ::kill(pid, SIGKILL);
    EXPECT_TRUE(WaitFor([pid] { return !IsAlive(pid); }));
    // Until the death is noticed, a call fails while it is sent, which has another code.
    EXPECT_TRUE(WaitFor([this] { return client_.ReportRenderThread("a", "b", 1) == RESULT_RENDER_NO_SERVICE; }));
    ExpectNoServiceAtOnce();
    Manager().Continue();
    EXPECT_TRUE(IsServedAgain());
    EXPECT_EQ(Starts(), 2);
}

TEST_F(ManagerFault, RestartedManagerFindsTheRunningService)
{
    StartManager();
    ASSERT_EQ(client_.CallAuth("first"), 0);
    ASSERT_EQ(client_.UpdateGameInfo(1, "game.kept", 0), 0);
    const pid_t pid = ServicePid();
    for (int round = 0; round < 5; ++round) {
        SCOPED_TRACE(round);
        KillManager();
        // Until the death is noticed, calls still reach the service.
        EXPECT_TRUE(WaitFor([this] { return client_.CallAuth("orphan") == RESULT_NO_SERVICE; }));
        ExpectNoServiceAtOnce();
        StartManager();
        EXPECT_TRUE(IsServedAgain());
        EXPECT_EQ(ServicePid(), pid);
        EXPECT_EQ(Starts(), 0);
        EXPECT_EQ(client_.SyncAppType("", 0), (std::map<std::string, bool>{{"game.kept", true}}));
    }
}

}  // namespace
}  // namespace SystemTest
