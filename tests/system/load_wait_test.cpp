// SPDX-License-Identifier: Apache-2.0
// What sits out the 10 s of a load or the 8 s of a call; the tests run beside each other, being processes.
#include <signal.h>
#include <time.h>

#include <algorithm>
#include <fstream>

#include "support/log_capture.h"
#include "system/system_fixture.h"

namespace SystemTest {
namespace {

using namespace TAVO::Veltra;
using namespace std::chrono_literals;

class LoadWait : public SystemFixture {
protected:
    // The first start of the service fails by `how`; the first call waits for it in vain, and without spinning.
    void ExpectVainWait(const std::string& how)
    {
        WriteAbility("system_test_service", {"second", how, PathOf("started-once")});
        StartManager();
        const Clock::time_point begin = Clock::now();
        const clock_t used = ::clock();
        EXPECT_EQ(client_.CallAuth("first"), RESULT_NO_SERVICE);
        EXPECT_GE(Clock::now() - begin, 10s);
        EXPECT_LT(Clock::now() - begin, 16s);
        EXPECT_LT(::clock() - used, 2 * CLOCKS_PER_SEC);
        EXPECT_EQ(CountLines("Load systemAbility timeout."), 1);
        EXPECT_EQ(CountLines("Try load systemAbility."), 1);
    }

    // At once, since the second start serves.
    void ExpectNextCallToLoad()
    {
        const Clock::time_point begin = Clock::now();
        EXPECT_EQ(client_.CallAuth("second"), 0);
        EXPECT_LT(Clock::now() - begin, SOON);
        EXPECT_EQ(CountLines("Try load systemAbility."), 2);
        EXPECT_EQ(CountLines("Load systemAbility succeeded."), 1);
        EXPECT_EQ(CountLines("Load systemAbility timeout."), 1);
        EXPECT_EQ(Starts(), 2);
    }

    pid_t StartedPid() const
    {
        pid_t pid = 0;
        std::ifstream(PathOf("66006.started")) >> pid;
        return pid;
    }

    long CountLines(const std::string& text) const
    {
        const std::vector<LogLine> lines = log_.Lines();
        return std::count_if(lines.begin(), lines.end(),
                             [&text](const LogLine& line) { return line.text.find(text) != std::string::npos; });
    }

private:
    const LogCapture log_;
};

// Told of the failure at once, the caller waits all the same, so that callers do not load in a loop.
TEST_F(LoadWait, AStartThatFailsIsSatOutAndTheNextCallLoadsAgain)
{
    ExpectVainWait("exit");
    ExpectNextCallToLoad();
}

TEST_F(LoadWait, AServiceThatNeverRegistersIsGivenUpAndTheNextCallLoadsAgain)
{
    ExpectVainWait("silence");
    // The manager still waits for it; its end makes room for another start.
    const pid_t pid = StartedPid();
    ASSERT_GT(pid, 0);
    ::kill(pid, SIGKILL);
    EXPECT_TRUE(WaitFor([pid] { return !IsAlive(pid); }));
    ExpectNextCallToLoad();
}

// Given up by its callers, the service comes up all the same and is taken, with all that belongs to a load.
TEST_F(LoadWait, AServiceThatIsLateIsTakenWhenItComes)
{
    ExpectVainWait("late");
    std::ofstream{PathOf("started-once.go")};
    const Clock::time_point begin = Clock::now();
    EXPECT_TRUE(WaitFor([this] { return ServicePid() > 0; }));
    EXPECT_EQ(client_.CallAuth("second"), 0);
    EXPECT_LT(Clock::now() - begin, SOON);
    EXPECT_EQ(CountLines("Try load systemAbility."), 1);
    EXPECT_EQ(Starts(), 1);
    // Only an object that a load has brought is watched for its death.
    KillService();
    EXPECT_TRUE(WaitFor([this] { return CountLines("OnRemoteSaDead") == 1; }));
}

// The answers differ from call to call, so that a late one would show.
TEST_F(LoadWait, AServiceThatHangsCostsEightSecondsAndNoLaterCall)
{
    StartManager();
    Child service = StartTestService();
    EXPECT_EQ(client_.SyncAppType("2", 2).size(), 2u);
    service.Stop();
    const Clock::time_point begin = Clock::now();
    EXPECT_EQ(client_.SyncAppType("999", 999).size(), 0u);
    EXPECT_GE(Clock::now() - begin, 8s);
    EXPECT_LT(Clock::now() - begin, 14s);
    service.Continue();
    for (int call = 0; call < 1000; ++call) {
        const int32_t count = call % 50;
        ASSERT_EQ(client_.SyncAppType(std::to_string(count), count).size(), static_cast<size_t>(count));
    }
    EXPECT_EQ(client_.CallAuth("pid"), service.Pid());
}

TEST_F(LoadWait, CallsThatWaitForTheSameFailureEndTogetherOrInTheirTurn)
{
    WriteAbility("system_test_service", {"second", "silence", PathOf("started-once")});
    StartManager();
    Child first = Child::Start({"system_test_client"});
    Child second = Child::Start({"system_test_client"});
    const Clock::time_point begin = Clock::now();
    first.Pipe().Say("auth a");
    second.Pipe().Say("auth b");
    EXPECT_EQ(first.Pipe().Hear(), std::to_string(RESULT_NO_SERVICE));
    EXPECT_EQ(second.Pipe().Hear(), std::to_string(RESULT_NO_SERVICE));
    EXPECT_GE(Clock::now() - begin, 10s);
    EXPECT_LT(Clock::now() - begin, 16s) << "one process's wait must not hold up another's";
    EXPECT_EQ(Starts(), 1);
}

}  // namespace
}  // namespace SystemTest
