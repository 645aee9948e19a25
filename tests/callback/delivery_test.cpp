// SPDX-License-Identifier: Apache-2.0
// Who gets what the service sends, in which order, and when a callback is destroyed: never while it runs.
#include <atomic>
#include <stdexcept>
#include <thread>
#include <tuple>

#include "callback/endpoints.h"
#include "support/notes.h"
#include "support/threads.h"

namespace TAVO::Veltra {
namespace {

using TestSupport::Noting;

const Items ZERO = {0};

class Delivery : public testing::Test {
protected:
    const TestSupport::SharedNotes notes_ = std::make_shared<TestSupport::Notes>();
};

TEST_F(Delivery, EventsReachAllByAscendingKeyWhateverTheyReturn)
{
    const auto endpoint = MakeRef<GameEventCallback>();
    EXPECT_EQ(Send(*endpoint, GAME_EVENT, {}).reply, ZERO);  // without a receiver
    endpoint->AddCallback(Noting<EventFunction>(notes_, "5", 7), 5);
    endpoint->AddCallback(Noting<EventFunction>(notes_, "-2", -1), -2);
    endpoint->AddCallback(std::make_unique<EventFunction>([](auto&) -> int32_t { throw std::runtime_error(""); }), 6);
    endpoint->AddCallback(Noting<EventFunction>(notes_, "9"), 9);
    EXPECT_EQ(Send(*endpoint, GAME_EVENT, {}).reply, ZERO);
    EXPECT_EQ(notes_->WaitFor(0), (std::vector<std::string>{"-2", "5", "9"}));
}

TEST_F(Delivery, TheTwoResourceCallbacksAreIndependent)
{
    sptr<ResourcePreDownloadCallback> endpoint = MakeRef<ResourcePreDownloadCallback>();
    EXPECT_EQ(endpoint->SetGetAppPrioritysCallback(Noting<PrioritysFunction>(notes_, "p", 4)), 0);
    EXPECT_EQ(Send(*endpoint, RESOURCE_INFOS, ResourceItems(1, 1)).reply, ZERO);
    EXPECT_EQ(Send(*endpoint, PRIORITYS, {0}).reply, Items{4});
    EXPECT_EQ(endpoint->SetQueryAppResourceInfoCallback(Noting<ResourceInfoFunction>(notes_, "i", 5)), 0);
    endpoint->SetGetAppPrioritysCallback(nullptr);
    EXPECT_EQ(Send(*endpoint, PRIORITYS, {0}).reply, ZERO);
    EXPECT_EQ(Send(*endpoint, RESOURCE_INFOS, ResourceItems(1, 1)).reply, Items{5});
    endpoint->SetQueryAppResourceInfoCallback(Noting<ResourceInfoFunction>(notes_, "j", 5));
    endpoint->SetGetAppPrioritysCallback(Noting<PrioritysFunction>(notes_, "q", 4));
    endpoint = nullptr;
    EXPECT_EQ(notes_->WaitFor(0), (std::vector<std::string>{"p", "~p", "i", "~i", "~q", "~j"}));
}

// A callback that blocks holds up its own slot only.
TEST_F(Delivery, ResourceAnswersOfOneKindDoNotWaitForTheOther)
{
    const auto endpoint = MakeRef<ResourcePreDownloadCallback>();
    endpoint->SetQueryAppResourceInfoCallback(std::make_unique<ResourceInfoFunction>([notes = notes_](auto&) {
        notes->Add("in");
        notes->WaitForOpening();
        return 1;
    }));
    std::thread blocked([&] { EXPECT_EQ(Send(*endpoint, RESOURCE_INFOS, {0}).reply, Items{1}); });
    EXPECT_EQ(notes_->WaitFor(1).size(), 1u);
    endpoint->SetGetAppPrioritysCallback(Noting<PrioritysFunction>(notes_, "p", 2));
    EXPECT_EQ(Send(*endpoint, PRIORITYS, {0}).reply, Items{2});
    notes_->Open();
    blocked.join();
}

// Callbacks are replaced and removed while they are being called.
constexpr int DELIVERIES = 2000;

// A guard in the body of a callback: notices overlapping calls and calls of a destroyed callback.
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

// Two threads deliver to all endpoints while the callbacks come and go.
TEST_F(Delivery, CallbackIsNeitherReplacedNorDestroyedWhileItRuns)
{
    const auto events = MakeRef<GameEventCallback>();
    const auto gpu = MakeRef<GpuCounterCallBack>();
    const auto resource = MakeRef<ResourcePreDownloadCallback>();
    const std::tuple<IPCObjectStub*, uint32_t, Items> requests[] = {
        {events.Get(), GAME_EVENT, {"x", 1}},
        {gpu.Get(), GPU_DATA, GpuItems(3, 3)},
        {resource.Get(), PRIORITYS, {1, "p"}},
        {resource.Get(), RESOURCE_INFOS, ResourceItems(2, 2)},
    };
    std::atomic<int> deliverersLeft{2};
    const TestSupport::Threads deliverers(2, [&](size_t) {
        for (int delivery = 0; delivery < DELIVERIES; ++delivery) {
            for (const auto& [endpoint, code, payload] : requests) {
                EXPECT_EQ(Send(*endpoint, code, payload), (Outcome{0, {0}}));
            }
        }
        --deliverersLeft;
    });
    for (int round = 0; deliverersLeft > 0; ++round) {
        events->AddCallback(Watched<EventFunction>(), round % 4);
        events->RemoveCallback((round + 2) % 4);
        events->HasCallBacks();
        gpu->SetProcessCallback(round % 3 == 2 ? nullptr : Watched<GpuFunction>());
        resource->SetGetAppPrioritysCallback(round % 3 == 2 ? nullptr : Watched<PrioritysFunction>());
        resource->SetQueryAppResourceInfoCallback(round % 3 == 1 ? nullptr : Watched<ResourceInfoFunction>());
    }
}

}  // namespace
}  // namespace TAVO::Veltra
