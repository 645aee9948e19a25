// SPDX-License-Identifier: Apache-2.0
// Calls, kills and restarts leave no descriptor and no thread behind, in any of the three processes.
#include <unistd.h>

#include "system/storm.h"

namespace SystemTest {
namespace {

// So many of the platform's workers stay once they were needed; a busy process has all of them, a new one has one.
constexpr size_t KEPT_WORKERS = 4;
// The service keeps so many of its own once it has pushed to many clients at the same time.
constexpr size_t KEPT_DELIVERERS = 16;

struct Held {
    size_t descriptors;
    size_t threads;
};

Held HeldBy(pid_t pid)
{
    return {TestSupport::CountDescriptors(pid), TestSupport::CountThreads(pid)};
}

class Leak : public StormFixture {
protected:
    static void ExpectBackTo(const Held& base, pid_t pid, const char* who, size_t keptThreads = KEPT_WORKERS)
    {
        SCOPED_TRACE(who);
        EXPECT_TRUE(WaitFor([&] { return HeldBy(pid).descriptors <= base.descriptors; }))
            << HeldBy(pid).descriptors << " descriptors, " << base.descriptors << " at first";
        EXPECT_TRUE(WaitFor([&] { return HeldBy(pid).threads < base.threads + keptThreads; }))
            << HeldBy(pid).threads << " threads, " << base.threads << " at first";
    }
};

TEST_F(Leak, RepeatedKillsLeakNoDescriptorAndNoThread)
{
    StartStory();
    Rage(5);  // what is made at the first use stays
    const Held client = HeldBy(::getpid());
    const Held manager = HeldBy(Manager().Pid());
    Rage(100);
    ExpectBackTo(client, ::getpid(), "client");
    ExpectBackTo(manager, Manager().Pid(), "manager");
}

TEST_F(Leak, EndedClientsLeakNoDescriptorAndNoThread)
{
    constexpr int CLIENTS = 50;
    StartManager();
    ASSERT_TRUE(IsServedAgain());
    Child warm = Child::Start({"system_test_client"});
    EXPECT_EQ(warm.Ask("play game.warm"), "0");
    EXPECT_EQ(warm.Ask("subscribe silently"), "0");
    const auto isWarmAlone = [this] { return client_.SyncAppType("", 0).size() == 1; };
    // The first death notice starts the thread that delivers them, which stays.
    Child::Start({"system_test_client"}).Ask("play game.first");
    EXPECT_TRUE(WaitFor(isWarmAlone));
    const Held service = HeldBy(ServicePid());
    const Held manager = HeldBy(Manager().Pid());
    for (int round = 0; round < 2; ++round) {
        std::vector<Child> clients;
        for (int i = 0; i < CLIENTS; ++i) {
            clients.push_back(Child::Start({"system_test_client"}));
            clients.back().Pipe().Send("play game." + std::to_string(i));
            clients.back().Pipe().Send(i % 2 == 0 ? "subscribe silently" : "auth unsubscribed");
        }
        for (Child& client : clients) {
            EXPECT_EQ(client.Pipe().Receive(), "0");
            EXPECT_EQ(client.Pipe().Receive(), "0");
        }
        EXPECT_EQ(client_.SyncAppType("", 0).size(), size_t{CLIENTS} + 1);
        clients.clear();  // killed
        EXPECT_TRUE(WaitFor(isWarmAlone));
    }
    ExpectBackTo(service, ServicePid(), "service", KEPT_WORKERS + KEPT_DELIVERERS);
    ExpectBackTo(manager, Manager().Pid(), "manager");
    EXPECT_EQ(warm.Ask("auth warm"), "0");
}

}  // namespace
}  // namespace SystemTest
