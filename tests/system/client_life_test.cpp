// SPDX-License-Identifier: Apache-2.0
// A game may end in any way while it calls, and may use signals as it likes.
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "system/system_fixture.h"

namespace SystemTest {
namespace {

using namespace TAVO::Veltra;

class ClientEnd : public SystemFixture {
protected:
    struct Way {
        const char* command;
        const char* status;
    };
    static constexpr Way WAYS[] = {{"exit", "exit 4"}, {"_exit", "exit 5"}, {"abort", "signal 6"}};

    static void ExpectEnd(Child& client, const Way& way)
    {
        const Clock::time_point begin = Clock::now();
        client.Pipe().Say(way.command);
        EXPECT_EQ(client.WaitForExit(), way.status);
        EXPECT_LT(Clock::now() - begin, SOON);
    }
};

TEST_F(ClientEnd, CallsInFlightHoldUpNoEnd)
{
    constexpr int ROUNDS = 40;
    StartManager();
    Child service = StartTestService();
    for (const Way& way : WAYS) {
        for (int round = 0; round < ROUNDS; ++round) {
            SCOPED_TRACE(way.command + std::string(", round ") + std::to_string(round));
            Child client = Child::Start({"system_test_client"});
            for (const char* text : {"busy", "busy", "hang"}) {
                client.Pipe().Say(std::string("call-for-ever ") + text);
            }
            ASSERT_EQ(service.Pipe().Hear(), "hanging");
            ExpectEnd(client, way);
            // The handler of the dead is the service's own business, and holds a thread of it.
            service.Pipe().Say("release");
            ASSERT_EQ(client_.CallAuth("pid"), service.Pid());
        }
    }
}

// Events keep coming while the client ends.
TEST_F(ClientEnd, DeliveriesInProgressHoldUpNoEnd)
{
    constexpr int ROUNDS = 20;
    StartManager();
    Child service = StartTestService();
    for (const Way& way : WAYS) {
        for (int round = 0; round < ROUNDS; ++round) {
            SCOPED_TRACE(way.command + std::string(", round ") + std::to_string(round));
            Child client = Child::Start({"system_test_client"});
            ASSERT_EQ(client.Ask("subscribe counting"), "0");
            service.Pipe().Say("flood events");
            client.Pipe().Say("call-for-ever busy");
            ASSERT_EQ(client.Pipe().Hear(), "event");
            ExpectEnd(client, way);
            EXPECT_EQ(service.Pipe().Hear().value_or("nothing").find("flooded -1000"), 0u);
        }
    }
}

TEST_F(ClientEnd, ACallbackThatNeverReturnsHoldsUpNothing)
{
    StartManager();
    Child service = StartTestService();
    for (const char* how : {"blocking", "registering"}) {
        for (const Way& way : WAYS) {
            SCOPED_TRACE(how + std::string(", ") + way.command);
            Child client = Child::Start({"system_test_client"});
            ASSERT_EQ(client.Ask(std::string("subscribe ") + how), "0");
            service.Pipe().Say("push events 7 zem.game.perf.iGpNapiEventCallback");
            EXPECT_EQ(client.Pipe().Hear(), "called");
            EXPECT_EQ(client.Ask("auth beside"), "0");
            ExpectEnd(client, way);
            EXPECT_EQ(client.Pipe().Hear(), std::nullopt) << "it did register";
            EXPECT_EQ(service.Pipe().Hear().value_or("nothing").find("-1000"), 0u);
        }
    }
}

TEST_F(ClientEnd, AWaitForALoadHoldsUpNoEnd)
{
    WriteAbility("system_test_service", {"second", "silence", PathOf("started-once")});
    StartManager();
    for (const Way& way : WAYS) {
        Child client = Child::Start({"system_test_client"});
        client.Pipe().Say("call-for-ever load");
        EXPECT_TRUE(WaitFor([this] { return std::filesystem::exists(PathOf("started-once")); }));
        ExpectEnd(client, way);
    }
}

std::atomic<int> g_signals{0};

// Interrupts the calling thread a thousand times a second while it lives.
class Interruptions {
public:
    Interruptions()
    {
        sigevent event{};
        event.sigev_notify = SIGEV_THREAD_ID;
        event.sigev_signo = SIGUSR1;
        event._sigev_un._tid = ::gettid();
        EXPECT_EQ(::timer_create(CLOCK_MONOTONIC, &event, &timer_), 0);
        const itimerspec everyMillisecond{{0, 1000000}, {0, 1000000}};
        ::timer_settime(timer_, 0, &everyMillisecond, nullptr);
    }
    ~Interruptions() { ::timer_delete(timer_); }
    Interruptions(const Interruptions&) = delete;
    Interruptions& operator=(const Interruptions&) = delete;

private:
    timer_t timer_{};
};

class Signals : public SystemFixture {
protected:
    Signals()
    {
        struct sigaction action {};
        action.sa_handler = [](int) { ++g_signals; };  // without SA_RESTART
        ::sigaction(SIGUSR1, &action, nullptr);
        StartManager();
    }
};

TEST_F(Signals, InterruptNoCallNorLoad)
{
    constexpr int CALLERS = 4;
    constexpr int CALLS = 5000;
    std::atomic<int> lost{0};
    std::vector<std::thread> callers;
    for (int caller = 0; caller < CALLERS; ++caller) {
        callers.emplace_back([&lost, caller] {
            const Interruptions interruptions;
            VeltraClient client;
            for (int call = 0; call < CALLS; ++call) {
                const std::string name = "app" + std::to_string(caller) + "." + std::to_string(call);
                const std::map<std::string, bool> types = client.SyncAppType(name, 0);
                lost += types != std::map<std::string, bool>{{name, false}};
            }
        });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_EQ(lost, 0);
    EXPECT_GT(g_signals, 0);
}

// Large enough to be sent and received in many parts, while its thread is interrupted.
TEST_F(Signals, InterruptNoLargeMessage)
{
    Child service = StartTestService();
    const Interruptions interruptions;
    const std::string text = R"({"tempLevel":3})" + std::string(8 << 20, ' ');
    const int before = g_signals;
    for (int call = 0; call < 20 || g_signals < before + 20; ++call) {
        // Longer than what is believed: the code comes through and the text does not count.
        const GameCallbackEventInfo info = client_.GetDeviceInfo({{0, {{"code", "5"}, {"text", text}}}});
        ASSERT_EQ(info.resultCode, 5);
    }
}

}  // namespace
}  // namespace SystemTest
