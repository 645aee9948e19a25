// SPDX-License-Identifier: Apache-2.0
// Calls, kills and restarts leave no descriptor and no thread behind, in any of the three processes.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <initializer_list>
#include <memory>
#include <thread>

#include "support/game_callbacks.h"
#include "system/system_fixture.h"
#include "tavo/ipc_status.h"

namespace SystemTest {
namespace {

using namespace TAVO::Veltra;

// So many of the platform's workers stay once they were needed; a busy process has all of them, a new one has one.
constexpr size_t KEPT_WORKERS = 4;
// The service keeps so many of its own once it has told many clients something at once.
constexpr size_t KEPT_DELIVERERS = 16;

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

    static void ExpectBackTo(const Held& base, pid_t pid, const char* who, size_t keptThreads = KEPT_WORKERS)
    {
        SCOPED_TRACE(who);
        EXPECT_TRUE(WaitFor([&] { return HeldBy(pid).descriptors <= base.descriptors; }))
            << HeldBy(pid).descriptors << " descriptors, " << base.descriptors << " at first";
        EXPECT_TRUE(WaitFor([&] { return HeldBy(pid).threads < base.threads + keptThreads; }))
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

// Callers in threads of their own, who keep a result that no caller may be told. Only one of them subscribes and
// unsubscribes, since subscribers take turns.
class Storm {
public:
    explicit Storm(size_t callers)
    {
        for (size_t i = 0; i < callers; ++i) {
            threads_.emplace_back([this, i] {
                do {
                    Call();
                    if (i == 0) {
                        Subscribe();
                    }
                } while (!isOver_);
            });
        }
    }
    ~Storm()
    {
        isOver_ = true;
        for (std::thread& thread : threads_) {
            thread.join();
        }
        EXPECT_EQ(wrong_, 0) << "no caller may be told this";
    }
    Storm(const Storm&) = delete;
    Storm& operator=(const Storm&) = delete;

    int Served() const { return served_; }

private:
    void Expect(int32_t result, std::initializer_list<int32_t> codes)
    {
        if (std::find(codes.begin(), codes.end(), result) == codes.end()) {
            wrong_ = result;
        }
    }

    void Call()
    {
        VeltraClient client;
        const int32_t result = client.CallAuth("storm");
        served_ += result == 0;
        Expect(result, {0, RESULT_NO_SERVICE});
        // This operation alone tells how the request was lost.
        Expect(client.ReportRenderThread("a", "b", 1),
               {0, RESULT_RENDER_NO_SERVICE, TAVO::IPC_DEAD_OBJECT, TAVO::IPC_BROKEN});
        Expect(client.GetDeviceInfo({}).resultCode, {0, RESULT_NO_SERVICE});
        Expect(static_cast<int32_t>(client.SyncAppType("game", 0).size()), {0, 1});
        std::vector<std::string> names = {"com.example.racer"};
        auto callback = std::make_unique<PrioritysFunction>([](auto&) { return 0; });
        Expect(client.GetAppPrioritys(names, std::move(callback)), {0, RESULT_NO_SERVICE, RESULT_PRIORITIES_REFUSED});
    }

    void Subscribe()
    {
        VeltraClient client;
        auto events = std::make_unique<EventFunction>([](auto&) { return 0; });
        Expect(client.RegisterGameCallback(std::move(events), 1), {0, RESULT_NO_SERVICE, RESULT_NOT_REGISTERED});
        auto samples = std::make_unique<GpuFunction>([](auto&) { return 0; });
        Expect(client.StartGetGpuPerfInfo(0, std::move(samples)), {0, RESULT_NO_SERVICE, RESULT_GPU_REFUSED});
        Expect(client.StopGetGpuPerfInfo(), {0, RESULT_NO_SERVICE, RESULT_GPU_REFUSED});
        Expect(client.UnRegisterGameCallback(1),
               {0, RESULT_NO_SERVICE, RESULT_NOT_REGISTERED, RESULT_UNREGISTER_REFUSED});
    }

    std::atomic<bool> isOver_{false};
    std::atomic<int32_t> wrong_{0};  // a result
    std::atomic<int> served_{0};
    std::vector<std::thread> threads_;
};

TEST_F(Leak, NothingIsLeftOfAStormOfKills)
{
    constexpr size_t CALLERS = 8;
    constexpr std::chrono::seconds DURATION{8};
    WriteScenario(R"({"curves": {"tempLevel": {"points": [[0, 0], [1.2, 0], [1.3, 4], [2.5, 4]], "repeat": true}},
                      "gpu": {"count": 9, "intervalSeconds": 0.1, "counters": {"gpuLoadPercent": 70}}})");
    StartManager();
    ASSERT_TRUE(IsServedAgain());
    const auto rage = [this](Clock::duration duration) {
        const Clock::time_point end = Clock::now() + duration;
        Storm storm(CALLERS);
        int kills = 0;
        do {
            const int before = storm.Served();
            EXPECT_TRUE(WaitFor([&] { return storm.Served() >= before + static_cast<int>(CALLERS); }));
            KillService();
            ++kills;
        } while (Clock::now() < end && !HasFailure());
        return kills;
    };
    rage(std::chrono::seconds(1));  // what is made at the first use stays
    ASSERT_TRUE(IsServedAgain());
    const Held client = HeldBy(::getpid());
    const Held manager = HeldBy(Manager().Pid());
    EXPECT_GT(rage(DURATION), 20);
    ASSERT_TRUE(IsServedAgain());
    ExpectBackTo(client, ::getpid(), "client");
    ExpectBackTo(manager, Manager().Pid(), "manager");
}

TEST_F(Leak, NothingIsLeftOfClientsThatEnded)
{
    constexpr int CLIENTS = 50;
    StartManager();
    ASSERT_TRUE(IsServedAgain());
    Child warm = Child::Start({"system_test_client"});
    EXPECT_EQ(warm.Ask("play game.warm"), "0");
    EXPECT_EQ(warm.Ask("subscribe silently"), "0");
    const Held service = HeldBy(ServicePid());
    const Held manager = HeldBy(Manager().Pid());
    for (int round = 0; round < 2; ++round) {
        std::vector<Child> clients;
        for (int i = 0; i < CLIENTS; ++i) {
            clients.push_back(Child::Start({"system_test_client"}));
            clients.back().Pipe().Say("play game." + std::to_string(i));
            clients.back().Pipe().Say(i % 2 == 0 ? "subscribe silently" : "auth unsubscribed");
        }
        for (Child& client : clients) {
            EXPECT_EQ(client.Pipe().Hear(), "0");
            EXPECT_EQ(client.Pipe().Hear(), "0");
        }
        EXPECT_EQ(client_.SyncAppType("", 0).size(), size_t{CLIENTS} + 1);
        clients.clear();  // killed
        EXPECT_TRUE(WaitFor([this] { return client_.SyncAppType("", 0).size() == 1; }));
    }
    ExpectBackTo(service, ServicePid(), "service", KEPT_WORKERS + KEPT_DELIVERERS);
    ExpectBackTo(manager, Manager().Pid(), "manager");
    EXPECT_EQ(warm.Ask("auth warm"), "0");
}

}  // namespace
}  // namespace SystemTest
