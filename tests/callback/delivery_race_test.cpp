// SPDX-License-Identifier: Apache-2.0
// Callbacks are replaced and removed while they are being called: none runs twice at once or after its end.
#include <atomic>

#include "callback/endpoints.h"
#include "support/threads.h"

namespace TAVO::Veltra {
namespace {

constexpr int DELIVERIES = 2000;

// Stands in a callback's body: notices a second call beside the first and a call into a destroyed callback.
class Sentinel {
public:
    ~Sentinel() { EXPECT_FALSE(isRunning_); }

    int32_t Run()
    {
        EXPECT_FALSE(isRunning_);
        isRunning_ = true;
        ++calls_;  // not atomic: the endpoint's mutex keeps calls apart
        isRunning_ = false;
        return 0;
    }

private:
    bool isRunning_ = false;
    int calls_ = 0;
};

template <typename Callback>
std::unique_ptr<Callback> Watched()
{
    return std::make_unique<Callback>([sentinel = std::make_shared<Sentinel>()](auto&) { return sentinel->Run(); });
}

// Two threads deliver, and `change` is called with rising numbers until they are done.
void ChangeDuringDeliveries(IPCObjectStub& endpoint, const std::vector<std::pair<uint32_t, Items>>& requests,
                            const std::function<void(int round)>& change)
{
    std::atomic<int> deliverersLeft{2};
    const TestSupport::Threads deliverers(2, [&](size_t) {
        for (int delivery = 0; delivery < DELIVERIES; ++delivery) {
            for (const auto& [code, payload] : requests) {
                EXPECT_EQ(Send(endpoint, code, payload), (Outcome{0, {0}}));
            }
        }
        --deliverersLeft;
    });
    for (int round = 0; deliverersLeft > 0; ++round) {
        change(round);
    }
}

TEST(DeliveryRace, EventCallbacksComeAndGo)
{
    const auto endpoint = MakeRef<GameEventCallback>();
    ChangeDuringDeliveries(*endpoint, {{GAME_EVENT, {"x", 1}}}, [&](int round) {
        endpoint->AddCallback(Watched<EventFunction>(), round % 4);
        endpoint->RemoveCallback((round + 2) % 4);
        endpoint->HasCallBacks();
    });
}

TEST(DeliveryRace, GpuCallbackIsReplaced)
{
    const auto endpoint = MakeRef<GpuCounterCallBack>();
    ChangeDuringDeliveries(*endpoint, {{GPU_DATA, GpuItems(3, 3)}}, [&](int round) {
        endpoint->SetProcessCallback(round % 3 == 2 ? nullptr : Watched<GpuFunction>());
    });
}

TEST(DeliveryRace, ResourceCallbacksAreReplaced)
{
    const auto endpoint = MakeRef<ResourcePreDownloadCallback>();
    ChangeDuringDeliveries(*endpoint, {{PRIORITYS, {1, "p"}}, {RESOURCE_INFOS, ResourceItems(2, 2)}}, [&](int round) {
        endpoint->SetGetAppPrioritysCallback(round % 3 == 2 ? nullptr : Watched<PrioritysFunction>());
        endpoint->SetQueryAppResourceInfoCallback(round % 3 == 1 ? nullptr : Watched<ResourceInfoFunction>());
    });
}

}  // namespace
}  // namespace TAVO::Veltra
