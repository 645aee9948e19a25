// SPDX-License-Identifier: Apache-2.0
// Calls, kills and restarts leave no descriptor and no thread behind, in any of the three processes.
#include <unistd.h>

#include "system/system_fixture.h"

namespace SystemTest {
namespace {

using namespace TAVO::Veltra;

// So many of the platform's workers stay once they were needed; a busy process has all of them, a new one has one.
constexpr size_t KEPT_WORKERS = 4;

struct Held {
    size_t descriptors;
    size_t threads;
};

Held HeldBy(pid_t pid)
{
    return {TestSupport::CountDescriptors(pid), TestSupport::CountThreads(pid)};
}

class Leak : public SystemFixture {
protected:
    void CallEverything()
    {
        EXPECT_EQ(client_.CallAuth("one of many"), 0);
        EXPECT_EQ(client_.UpdateGameInfo(1, "game.one", 0), 0);
        EXPECT_EQ(client_.SyncAppType("game.one", 0).size(), 1u);
        EXPECT_EQ(client_.GetDeviceInfo({}).tempLevel, 2);
        GameInfo event;
        event.int32Value = 1;
        client_.ReportGameEvent(event);
    }

    static void ExpectBackTo(const Held& base, pid_t pid, const char* who)
    {
        SCOPED_TRACE(who);
        EXPECT_TRUE(WaitFor([&] { return HeldBy(pid).descriptors <= base.descriptors; }))
            << HeldBy(pid).descriptors << " descriptors, " << base.descriptors << " at first";
        EXPECT_TRUE(WaitFor([&] { return HeldBy(pid).threads < base.threads + KEPT_WORKERS; }))
            << HeldBy(pid).threads << " threads, " << base.threads << " at first";
    }
};

TEST_F(Leak, NothingIsLeftOfAThousandCallsAndTwentyKills)
{
    constexpr int KILLS = 20;
    constexpr int ROUNDS = 10;  // of five calls, in each life of the service
    StartManager();
    // One life first, since what is made at the first use stays.
    ASSERT_TRUE(IsServedAgain());
    for (int round = 0; round < ROUNDS; ++round) {
        CallEverything();
    }
    const Held client = HeldBy(::getpid());
    const Held service = HeldBy(ServicePid());
    const Held manager = HeldBy(Manager().Pid());
    for (int kill = 0; kill < KILLS; ++kill) {
        SCOPED_TRACE(kill);
        KillService();
        ASSERT_TRUE(IsServedAgain());
        for (int round = 0; round < ROUNDS; ++round) {
            CallEverything();
        }
    }
    EXPECT_EQ(Starts(), KILLS + 1);
    ExpectBackTo(client, ::getpid(), "client");
    ExpectBackTo(service, ServicePid(), "service");
    ExpectBackTo(manager, Manager().Pid(), "manager");
}

TEST_F(Leak, NothingIsLeftOfClientsThatEnded)
{
    constexpr int CLIENTS = 50;
    StartManager();
    ASSERT_TRUE(IsServedAgain());
    Child warm = Child::Start({"system_test_client"});
    EXPECT_EQ(warm.Ask("play game.warm"), "0");
    const Held service = HeldBy(ServicePid());
    const Held manager = HeldBy(Manager().Pid());
    for (int round = 0; round < 2; ++round) {
        std::vector<Child> clients;
        for (int i = 0; i < CLIENTS; ++i) {
            clients.push_back(Child::Start({"system_test_client"}));
            clients.back().Pipe().Say("play game." + std::to_string(i));
        }
        for (Child& client : clients) {
            EXPECT_EQ(client.Pipe().Hear(), "0");
        }
        EXPECT_EQ(client_.SyncAppType("", 0).size(), size_t{CLIENTS} + 1);
        clients.clear();  // killed
        EXPECT_TRUE(WaitFor([this] { return client_.SyncAppType("", 0).size() == 1; }));
    }
    ExpectBackTo(service, ServicePid(), "service");
    ExpectBackTo(manager, Manager().Pid(), "manager");
    EXPECT_EQ(warm.Ask("auth warm"), "0");
}

}  // namespace
}  // namespace SystemTest
