// SPDX-License-Identifier: Apache-2.0
// The child of a fork has no service, is told so at once, and does its parent no harm.
#include <atomic>
#include <cstring>
#include <thread>

#include "system/system_fixture.h"
#include "tavo/scrivo_print.h"

namespace SystemTest {
namespace {

using namespace TAVO::Veltra;
using TestSupport::LinePipe;

// What the child of a process that used the library tries; the number of the first thing that did not fail as it should.
int UseDeadLibrary()
{
    VeltraClient client;
    if (client.CallAuth("child") != RESULT_NO_SERVICE || client.UpdateGameInfo(1, "", 0) != RESULT_NO_SERVICE) {
        return 1;
    }
    if (client.ReportRenderThread("", "", 1) != RESULT_RENDER_NO_SERVICE) {
        return 2;
    }
    if (!client.SyncAppType("", 0).empty()) {
        return 3;
    }
    std::map<std::string, std::string> query;
    if (!client.GetSystemFunctionStatus(query).empty()) {
        return 4;
    }
    if (client.GetDeviceInfo({}).resultCode != RESULT_NO_SERVICE) {
        return 5;
    }
    GameInfo event;
    client.ReportGameEvent(event);
    GameSceneBundle scene;
    std::vector<AppResourceDownLoadResult> results;
    if (client.NotifyGameEvent(scene) != RESULT_NO_SERVICE ||
        client.NotifyAppResourceDownLoadResults(results) != RESULT_NO_SERVICE) {
        return 6;
    }
    return 0;
}

void ExpectChildWithoutService()
{
    Child child = Child::Fork([](LinePipe&) { return UseDeadLibrary(); });
    EXPECT_EQ(child.WaitForExit(SOON), "exit 0");
}

class ClientFork : public SystemFixture {};

TEST_F(ClientFork, TheParentsCallsGoOnCorrectly)
{
    constexpr int FORKS = 200;
    constexpr int CALLERS = 3;
    StartManager();
    ASSERT_EQ(client_.CallAuth("first"), 0);
    std::atomic<bool> isOver{false};
    std::atomic<int> wrong{0};
    std::vector<std::thread> callers;
    for (int caller = 0; caller < CALLERS; ++caller) {
        callers.emplace_back([&, caller] {
            VeltraClient client;
            for (int call = 0; !isOver; ++call) {
                const std::string name = "app" + std::to_string(caller) + "." + std::to_string(call);
                wrong += client.SyncAppType(name, 0) != std::map<std::string, bool>{{name, false}};
            }
        });
    }
    for (int round = 0; round < FORKS && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        ExpectChildWithoutService();
    }
    isOver = true;
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(client_.CallAuth("last"), 0);
    EXPECT_EQ(Starts(), 1);
}

// Holds the thread that is about to load the service where it is, with the library's lock.
class HeldInLoad {
public:
    HeldInLoad() { TAVO::SetScrivoHook(&Hook, this); }
    ~HeldInLoad() { TAVO::SetScrivoHook(nullptr, nullptr); }
    HeldInLoad(const HeldInLoad&) = delete;
    HeldInLoad& operator=(const HeldInLoad&) = delete;

    bool Await() const
    {
        return WaitFor([this] { return isHeld_.load(); });
    }
    void Release() { mayGo_ = true; }

private:
    static void Hook(const TAVO::ScrivoRecord& record, void* context)
    {
        auto* const self = static_cast<HeldInLoad*>(context);
        if (std::strstr(record.text, "Try load systemAbility.") != nullptr) {
            self->isHeld_ = true;
            WaitFor([self] { return self->mayGo_.load(); });
        }
    }

    std::atomic<bool> isHeld_{false};
    std::atomic<bool> mayGo_{false};
};

TEST_F(ClientFork, TheLibrarysLockHeldByAnotherThreadHurtsNoChild)
{
    StartManager();
    HeldInLoad held;
    int32_t result = -1;
    std::thread caller([&result] { result = VeltraClient().CallAuth("loads"); });
    EXPECT_TRUE(held.Await());
    for (int round = 0; round < 10; ++round) {
        ExpectChildWithoutService();
    }
    held.Release();
    caller.join();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(Starts(), 1);
}

TEST_F(ClientFork, ACallInFlightStaysTheParents)
{
    StartManager();
    Child service = StartTestService();
    int32_t result = -1;
    std::thread caller([&result] { result = VeltraClient().CallAuth("hang"); });
    EXPECT_EQ(service.Pipe().Hear(), "hanging");
    ExpectChildWithoutService();
    service.Pipe().Say("release");
    caller.join();
    EXPECT_EQ(result, 0);
}

// A game that forks before its first call gives its child a library of its own.
TEST_F(ClientFork, AForkBeforeTheFirstCallLeavesBothWithAService)
{
    StartManager();
    Child child = Child::Fork([](LinePipe& parent) {
        parent.Hear();
        return VeltraClient().CallAuth("child") == 0 ? 0 : 1;
    });
    EXPECT_EQ(client_.CallAuth("parent"), 0);
    child.Pipe().Say("go");
    EXPECT_EQ(child.WaitForExit(), "exit 0");
    EXPECT_EQ(client_.CallAuth("parent"), 0);
    EXPECT_EQ(Starts(), 1);
}

}  // namespace
}  // namespace SystemTest
