// SPDX-License-Identifier: Apache-2.0
// A game may end in any way while it calls, and may fork.
#include <atomic>
#include <cstring>
#include <functional>
#include <thread>

#include "system/system_fixture.h"
#include "tavo/scrivo_print.h"

namespace SystemTest {
namespace {

using namespace TAVO::Veltra;

class ClientEnd : public SystemFixture {
protected:
    // So often for each way to end: a client that has been brought by `begin` into the state it is to end in.
    void ExpectSoonEnds(int rounds, const std::function<void(Child& client)>& begin,
                        const std::function<void(Child& client)>& afterwards = nullptr)
    {
        const std::pair<const char*, const char*> ways[] = {
            {"exit", "exit 4"}, {"_exit", "exit 5"}, {"abort", "signal 6"}};
        for (const auto& [command, status] : ways) {
            for (int round = 0; round < rounds && !HasFailure(); ++round) {
                SCOPED_TRACE(command + std::string(", round ") + std::to_string(round));
                Child client = Child::Start({"system_test_client"});
                begin(client);
                const Clock::time_point end = Clock::now();
                client.Pipe().Send(command);
                EXPECT_EQ(client.WaitForExit(), status);
                EXPECT_LT(Clock::now() - end, SOON);
                if (afterwards) {
                    afterwards(client);
                }
            }
        }
    }
};

TEST_F(ClientEnd, ExitDoesNotWaitForCallsInFlight)
{
    StartManager();
    Child service = StartTestService();
    const auto call = [&service](Child& client) {
        for (const char* text : {"busy", "busy", "hang"}) {
            client.Pipe().Send(std::string("call-for-ever ") + text);
        }
        EXPECT_EQ(service.Pipe().Receive(), "hanging");
    };
    ExpectSoonEnds(40, call, [&](Child&) {
        // The handler of the dead is the service's own business, and holds a thread of it.
        service.Pipe().Send("release");
        EXPECT_EQ(client_.CallAuth("pid"), service.Pid());
    });
}

// Events keep coming while the client ends.
TEST_F(ClientEnd, ExitDoesNotWaitForEvents)
{
    StartManager();
    Child service = StartTestService();
    const auto subscribe = [&service](Child& client) {
        EXPECT_EQ(client.Ask("subscribe counting"), "0");
        service.Pipe().Send("flood events");
        client.Pipe().Send("call-for-ever busy");
        EXPECT_EQ(client.Pipe().Receive(), "event");
    };
    ExpectSoonEnds(20, subscribe,
                   [&](Child&) { EXPECT_EQ(service.Pipe().Receive().value_or("nothing").find("flooded -1000"), 0u); });
}

TEST_F(ClientEnd, ExitDoesNotWaitForABlockedCallback)
{
    StartManager();
    Child service = StartTestService();
    for (const char* how : {"blocking", "registering"}) {
        const auto block = [&](Child& client) {
            EXPECT_EQ(client.Ask(std::string("subscribe ") + how), "0");
            service.Pipe().Send("push events");
            EXPECT_EQ(client.Pipe().Receive(), "called");
            EXPECT_EQ(client.Ask("auth beside"), "0");
        };
        ExpectSoonEnds(1, block, [&](Child& client) {
            EXPECT_EQ(client.Pipe().Receive(), std::nullopt) << "it did register";
            EXPECT_EQ(service.Pipe().Receive().value_or("nothing").find("-1000"), 0u);
        });
    }
}

TEST_F(ClientEnd, ExitDoesNotWaitForPendingLoad)
{
    WriteAbility("system_test_service", {"when-told"});
    StartManager();
    ExpectSoonEnds(1, [this](Child& client) {
        client.Pipe().Send("call-for-ever load");
        EXPECT_TRUE(WaitFor([this] { return !Started().empty(); }));
    });
}

// What the child of a process that used the library tries; the number of those that did not fail as they should.
int UseDeadLibrary()
{
    VeltraClient client;
    std::map<std::string, std::string> query;
    GameSceneBundle scene;
    std::vector<AppResourceDownLoadResult> results;
    GameInfo event;
    client.ReportGameEvent(event);
    return (client.CallAuth("child") != RESULT_NO_SERVICE) + (client.UpdateGameInfo(1, "", 0) != RESULT_NO_SERVICE) +
           (client.ReportRenderThread("", "", 1) != RESULT_RENDER_NO_SERVICE) + !client.SyncAppType("", 0).empty() +
           !client.GetSystemFunctionStatus(query).empty() + (client.GetDeviceInfo({}).resultCode != RESULT_NO_SERVICE) +
           (client.NotifyGameEvent(scene) != RESULT_NO_SERVICE) +
           (client.NotifyAppResourceDownLoadResults(results) != RESULT_NO_SERVICE);
}

void ExpectChildWithoutService()
{
    Child child = Child::Fork([](TestSupport::LinePipe&) { return UseDeadLibrary(); });
    EXPECT_EQ(child.WaitForExit(SOON), "exit 0");
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

// The child of a fork has no service, gets that result at once, and does its parent no harm.
TEST_F(SystemFixture, ForkedChildFailsAtOnceAlthoughAThreadHeldTheLock)
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

}  // namespace
}  // namespace SystemTest
