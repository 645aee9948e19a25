// SPDX-License-Identifier: Apache-2.0
// What sits out the 10 s of a load or the 8 s of a call; the tests run beside each other, being processes.
#include <signal.h>
#include <time.h>

#include <filesystem>
#include <fstream>

#include "support/log_capture.h"
#include "system/system_fixture.h"

namespace SystemTest {
namespace {

using namespace TAVO::Veltra;
using namespace std::chrono_literals;

class LoadWait : public SystemFixture {
protected:
    void StartManagerOfAHeldService()
    {
        WriteAbility("system_test_service", {"when-told"});
        StartManager();
    }

    // The service does not go on from its start; the first call waits until its time-out, and without spinning.
    void ExpectVainWait()
    {
        StartManagerOfAHeldService();
        const Clock::time_point begin = Clock::now();
        const clock_t used = ::clock();
        EXPECT_EQ(client_.CallAuth("first"), RESULT_NO_SERVICE);
        EXPECT_GE(Clock::now() - begin, 10s);
        EXPECT_LT(Clock::now() - begin, 16s);
        EXPECT_LT(::clock() - used, 2 * CLOCKS_PER_SEC);
        EXPECT_EQ(log_.Count("Load systemAbility timeout."), 1);
        EXPECT_EQ(log_.Count("Try load systemAbility."), 1);
    }

    const LogCapture log_;
};

TEST_F(LoadWait, ServiceThatEndsBeforeItRegistersIsStartedAgain)
{
    ExpectVainWait();
    ASSERT_EQ(Started().size(), 1u);
    ::kill(Started()[0], SIGKILL);
    EXPECT_TRUE(ManagerTest::WaitUntilDead(Started()[0]));
    NotifyServices();
    EXPECT_TRUE(WaitFor([this] { return ServicePid() > 0; })) << "needs no further load";
    EXPECT_EQ(client_.CallAuth("second"), 0);
    EXPECT_EQ(log_.Count("Try load systemAbility."), 1);
    EXPECT_EQ(Starts(), 2);
}

// Only the callers of the first start wait; a broken installation must not freeze every call of a game for 10 s.
TEST_F(LoadWait, CallsFailAtOnceWhileTheServiceCannotBeStarted)
{
    const std::string program = PathOf("server");
    std::ofstream(program) << "#!/bin/sh\nexit 1\n";
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
    WriteAbility(program);
    StartManager();
    const Clock::time_point begin = Clock::now();
    EXPECT_EQ(client_.CallAuth("first"), RESULT_NO_SERVICE);
    EXPECT_GE(Clock::now() - begin, 10s);
    const Clock::time_point second = Clock::now();
    for (int call = 0; call < 20; ++call) {
        EXPECT_EQ(client_.CallAuth("refused"), RESULT_NO_SERVICE);
    }
    EXPECT_LT(Clock::now() - second, SOON);
    EXPECT_EQ(log_.Count("Failed to load systemAbility."), 20);
    std::filesystem::remove(program);
    std::filesystem::create_symlink(TestSupport::ProgramPath("veltra_server"), program);
    EXPECT_TRUE(IsServedAgain());
}

// After its callers have timed out, the service still starts and is used, with its death notice.
TEST_F(LoadWait, ServiceThatRegistersLateIsUsed)
{
    ExpectVainWait();
    const Clock::time_point begin = Clock::now();
    NotifyServices();
    EXPECT_TRUE(WaitFor([this] { return ServicePid() > 0; }));
    EXPECT_EQ(client_.CallAuth("second"), 0);
    EXPECT_LT(Clock::now() - begin, SOON);
    EXPECT_EQ(log_.Count("Try load systemAbility."), 1);
    EXPECT_EQ(Starts(), 1);
    // Only an object that a load has brought is watched for its death. The call above has not waited for that.
    EXPECT_TRUE(WaitFor([this] { return log_.Count("Load system ability successed!") == 1; }));
    KillService();
    EXPECT_TRUE(WaitFor([this] { return log_.Count("OnRemoteSaDead") == 1; }));
}

TEST_F(LoadWait, DeathOfTheManagerEndsTheWaitByItsDeadline)
{
    StartManagerOfAHeldService();
    Child caller = Child::Start({"system_test_client"});
    const Clock::time_point begin = Clock::now();
    caller.Pipe().Send("auth a");
    EXPECT_TRUE(WaitFor([this] { return Started().size() == 1; }));
    KillManager();
    EXPECT_EQ(caller.Pipe().Receive(), std::to_string(RESULT_NO_SERVICE));
    EXPECT_LT(Clock::now() - begin, 16s);
    ::kill(Started()[0], SIGKILL);
    WriteAbility("system_test_service", {"serve"});
    StartManager();
    EXPECT_TRUE(WaitFor([&caller] { return caller.Ask("auth b") == "0"; }));
}

TEST_F(LoadWait, WaitsOfTwoProcessesForALoadDoNotAddUp)
{
    StartManagerOfAHeldService();
    Child first = Child::Start({"system_test_client"});
    Child second = Child::Start({"system_test_client"});
    const Clock::time_point begin = Clock::now();
    first.Pipe().Send("auth a");
    second.Pipe().Send("auth b");
    EXPECT_EQ(first.Pipe().Receive(), std::to_string(RESULT_NO_SERVICE));
    EXPECT_EQ(second.Pipe().Receive(), std::to_string(RESULT_NO_SERVICE));
    EXPECT_GE(Clock::now() - begin, 10s);
    EXPECT_LT(Clock::now() - begin, 16s) << "one process's wait must not hold up another's";
    EXPECT_EQ(Starts(), 1);
}

}  // namespace
}  // namespace SystemTest
