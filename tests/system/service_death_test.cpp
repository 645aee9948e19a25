// SPDX-License-Identifier: Apache-2.0
// A service that dies costs its callers an error, soon, and the next call finds or starts another one.
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "system/system_fixture.h"

namespace SystemTest {
namespace {

using namespace TAVO::Veltra;

class ServiceDeath : public SystemFixture {
protected:
    ServiceDeath() { StartManager(); }

    // Calls that hang in the handlers of `service`, one in each thread; the results come with the join.
    std::vector<std::thread> HangIn(Child& service, std::vector<int32_t>& results)
    {
        std::vector<std::thread> callers;
        for (int32_t& result : results) {
            callers.emplace_back([&result] { result = VeltraClient().CallAuth("hang"); });
        }
        for (size_t i = 0; i < results.size(); ++i) {
            EXPECT_EQ(service.Pipe().Hear(), "hanging");
        }
        return callers;
    }
};

TEST_F(ServiceDeath, KilledWhileIdleItIsStartedAgain)
{
    ASSERT_EQ(client_.CallAuth("first"), 0);
    for (int round = 1; round <= 10; ++round) {
        SCOPED_TRACE(round);
        const pid_t before = ServicePid();
        KillService();
        const Clock::time_point begin = Clock::now();
        EXPECT_TRUE(IsServedAgain());
        EXPECT_LT(Clock::now() - begin, SOON);
        EXPECT_NE(ServicePid(), before);
        EXPECT_EQ(Starts(), round + 1);
        // Nothing of the dead one is left.
        EXPECT_EQ(client_.SyncAppType("", 0), (std::map<std::string, bool>{}));
        EXPECT_EQ(client_.UpdateGameInfo(1, "game.one", 0), 0);
    }
}

TEST_F(ServiceDeath, InItsHandlerFailsThatCallAndTheNextLoadsAgain)
{
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

TEST_F(ServiceDeath, WakesEveryCaller)
{
    constexpr size_t CALLERS = 8;
    Child service = StartTestService();
    std::vector<int32_t> results(CALLERS, 0);
    std::vector<std::thread> callers = HangIn(service, results);
    const Clock::time_point begin = Clock::now();
    service.Kill();
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_LT(Clock::now() - begin, SOON);
    EXPECT_EQ(results, std::vector<int32_t>(CALLERS, RESULT_NO_SERVICE));
    EXPECT_TRUE(IsServedAgain());
}

// The sockets stay open in the child, so that only the process itself tells of the death.
TEST_F(ServiceDeath, IsSeenWhileAForkedChildHoldsTheSockets)
{
    Child service = StartTestService();
    std::vector<int32_t> results(1, 0);
    std::vector<std::thread> callers = HangIn(service, results);
    const pid_t child = std::stoi(service.Ask("fork"));
    const Clock::time_point begin = Clock::now();
    service.Kill();
    callers[0].join();
    EXPECT_EQ(results[0], RESULT_NO_SERVICE);
    EXPECT_EQ(service.WaitForExit(), "signal 9");
    EXPECT_TRUE(IsServedAgain());
    EXPECT_LT(Clock::now() - begin, SOON);
    EXPECT_TRUE(IsAlive(child)) << "the child was to hold the sockets";
    ::kill(child, SIGKILL);
}

// Its encoding is asked for when the service has been found and before anything is sent.
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

TEST_F(ServiceDeath, BetweenCheckAndRequestLosesTheRequestOnly)
{
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

// The request is larger than a socket takes, so that the caller is in the middle of sending when its reader dies.
TEST_F(ServiceDeath, UnderALargeRequestRaisesNoSignal)
{
    constexpr int32_t TOO_LONG = 1010310101;  // what the real service, loaded anew, says to such a text
    ::signal(SIGPIPE, SIG_DFL);
    int broken = 0;
    for (int round = 0; round < 5; ++round) {
        SCOPED_TRACE(round);
        if (round > 0) {
            KillService();
        }
        Child service = StartTestService();
        EXPECT_TRUE(WaitFor([&] { return client_.CallAuth("pid") == service.Pid(); }));
        service.Stop();
        std::atomic<pid_t> callerThread{0};
        int32_t result = 0;
        std::thread caller([&] {
            const std::string text(16 << 20, 'a');
            callerThread = ::gettid();
            result = VeltraClient().CallAuth(text);
        });
        EXPECT_TRUE(WaitFor([&] { return callerThread != 0 && IsAsleep(callerThread); }));
        service.Kill();
        caller.join();
        EXPECT_TRUE(result == RESULT_NO_SERVICE || result == TOO_LONG) << result;
        broken += result == RESULT_NO_SERVICE;
        ASSERT_TRUE(IsServedAgain());
    }
    EXPECT_GT(broken, 0) << "no call was under way when its reader died";
    struct sigaction action {};
    ::sigaction(SIGPIPE, nullptr, &action);
    EXPECT_EQ(action.sa_handler, SIG_DFL);
}

// Calls that fail are part of it; calls that hang, or that get another's answer, are not.
TEST_F(ServiceDeath, AStormOfKillsLeavesEveryCallerWithADefinedResult)
{
    constexpr int CALLERS = 8;
    constexpr int KILLS = 20;
    ASSERT_EQ(client_.CallAuth("first"), 0);
    std::atomic<bool> isOver{false};
    std::atomic<int> wrong{0};
    std::atomic<int> served{0};
    std::vector<std::thread> callers;
    for (int caller = 0; caller < CALLERS; ++caller) {
        callers.emplace_back([&, name = "caller" + std::to_string(caller)] {
            VeltraClient client;
            while (!isOver) {
                const int32_t result = client.CallAuth(name);
                wrong += result != 0 && result != RESULT_NO_SERVICE;
                const std::map<std::string, bool> types = client.SyncAppType(name, 0);
                wrong += !types.empty() && types != std::map<std::string, bool>{{name, false}};
                served += result == 0;
            }
        });
    }
    for (int round = 0; round < KILLS; ++round) {
        KillService();
        const int before = served;
        EXPECT_TRUE(WaitFor([&] { return served >= before + CALLERS; }));
    }
    isOver = true;
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(Starts(), KILLS + 1);
}

}  // namespace
}  // namespace SystemTest
