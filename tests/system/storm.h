// SPDX-License-Identifier: Apache-2.0
// Callers in threads of their own while the service is killed again and again: no caller may get a wrong result.
#ifndef VELTRA_TESTS_SYSTEM_STORM_H
#define VELTRA_TESTS_SYSTEM_STORM_H

#include <algorithm>
#include <atomic>
#include <initializer_list>
#include <memory>
#include <string>

#include "support/game_callbacks.h"
#include "system/system_fixture.h"
#include "tavo/ipc_status.h"

namespace SystemTest {

// Of the eight callers only the first subscribes and unsubscribes, since subscribers take turns.
class StormFixture : public SystemFixture {
protected:
    static constexpr int CALLERS = 8;

    void Rage(int kills)
    {
        std::atomic<bool> isOver{false};
        Threads callers(CALLERS, [this, &isOver](size_t caller) {
            VeltraClient client;
            do {
                Call(client, "caller" + std::to_string(caller));
                if (caller == 0) {
                    Subscribe(client);
                }
            } while (!isOver);
        });
        for (int kill = 0; kill < kills && !HasFailure(); ++kill) {
            const int before = served_;
            EXPECT_TRUE(WaitFor([&] { return served_ >= before + CALLERS; }));
            KillService();
        }
        isOver = true;
        callers.Join();
        EXPECT_EQ(wrong_, 0) << "no caller may be told this";
        EXPECT_TRUE(IsServedAgain());
    }

private:
    void Expect(int32_t result, std::initializer_list<int32_t> codes)
    {
        if (std::find(codes.begin(), codes.end(), result) == codes.end()) {
            wrong_ = result;
        }
    }

    void Call(VeltraClient& client, const std::string& name)
    {
        using namespace TAVO::Veltra;
        const int32_t result = client.CallAuth("storm");
        served_ += result == 0;
        Expect(result, {0, RESULT_NO_SERVICE});
        // Only the result of this operation shows how the request was lost.
        Expect(client.ReportRenderThread("a", "b", 1),
               {0, RESULT_RENDER_NO_SERVICE, TAVO::IPC_DEAD_OBJECT, TAVO::IPC_BROKEN});
        Expect(client.GetDeviceInfo({}).resultCode, {0, RESULT_NO_SERVICE});
        const std::map<std::string, bool> types = client.SyncAppType(name, 0);
        Expect(types.empty() || types == std::map<std::string, bool>{{name, false}} ? 0 : 1, {0});
        std::vector<std::string> names = {"com.example.racer"};
        Expect(client.GetAppPrioritys(names, std::make_unique<PrioritysFunction>([](auto&) { return 0; })),
               {0, RESULT_NO_SERVICE, RESULT_PRIORITIES_REFUSED});
    }

    void Subscribe(VeltraClient& client)
    {
        using namespace TAVO::Veltra;
        Expect(client.RegisterGameCallback(std::make_unique<EventFunction>([](auto&) { return 0; }), 1),
               {0, RESULT_NO_SERVICE, RESULT_NOT_REGISTERED});
        Expect(client.StartGetGpuPerfInfo(0, std::make_unique<GpuFunction>([](auto&) { return 0; })),
               {0, RESULT_NO_SERVICE, RESULT_GPU_REFUSED});
        Expect(client.StopGetGpuPerfInfo(), {0, RESULT_NO_SERVICE, RESULT_GPU_REFUSED});
        Expect(client.UnRegisterGameCallback(1),
               {0, RESULT_NO_SERVICE, RESULT_NOT_REGISTERED, RESULT_UNREGISTER_REFUSED});
    }

    std::atomic<int32_t> wrong_{0};  // a result
    std::atomic<int> served_{0};
};

}  // namespace SystemTest

#endif
