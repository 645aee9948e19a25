// SPDX-License-Identifier: Apache-2.0
// Who gets what the service sends, in which order, and when a callback is destroyed.
#include <future>
#include <stdexcept>
#include <thread>

#include "callback/endpoints.h"

namespace TAVO::Veltra {
namespace {

constexpr std::chrono::seconds LONG_ENOUGH{20};
const Items ZERO = {0};

// A callback that notes `name` in `order` when called, and ~name when destroyed.
template <typename Callback, typename Argument>
std::unique_ptr<Callback> Noting(std::vector<std::string>& order, const std::string& name, int32_t result = 0)
{
    const std::shared_ptr<void> life(nullptr, [&order, name](void*) { order.push_back("~" + name); });
    return std::make_unique<Callback>([&order, name, result, life](Argument) {
        order.push_back(name);
        return result;
    });
}

class EventDelivery : public testing::Test {
protected:
    std::unique_ptr<EventFunction> Event(const std::string& name, int32_t result = 0)
    {
        return Noting<EventFunction, const GameCallbackEventInfo&>(order_, name, result);
    }
    void ExpectOrder(const std::vector<std::string>& expected)
    {
        EXPECT_EQ(order_, expected);
        order_.clear();
    }

    std::vector<std::string> order_;
    sptr<GameEventCallback> endpoint_ = MakeRef<GameEventCallback>();
};

TEST_F(EventDelivery, ReachesAllByAscendingKeyWhateverTheyReturn)
{
    EXPECT_EQ(Send(*endpoint_, GAME_EVENT, {}).reply, ZERO);  // to nobody
    endpoint_->AddCallback(Event("5", 7), 5);
    endpoint_->AddCallback(Event("-2", -1), -2);
    endpoint_->AddCallback(std::make_unique<EventFunction>([](auto&) -> int32_t { throw std::runtime_error(""); }), 6);
    endpoint_->AddCallback(Event("9"), 9);
    EXPECT_EQ(Send(*endpoint_, GAME_EVENT, {}).reply, ZERO);
    ExpectOrder({"-2", "5", "9"});
}

TEST_F(EventDelivery, KeysReplaceAddAndRemoveCallbacks)
{
    EXPECT_EQ(endpoint_->AddCallback(nullptr, 1), 0);
    EXPECT_FALSE(endpoint_->HasCallBacks());
    endpoint_->AddCallback(Event("first"), 1);
    EXPECT_EQ(endpoint_->AddCallback(Event("second"), 1), 0);
    ExpectOrder({"~first"});
    endpoint_->AddCallback(nullptr, 1);
    EXPECT_EQ(endpoint_->RemoveCallback(2), 0);
    Send(*endpoint_, GAME_EVENT, {});
    ExpectOrder({"second"});
    EXPECT_EQ(endpoint_->RemoveCallback(1), 0);
    ExpectOrder({"~second"});
    EXPECT_FALSE(endpoint_->HasCallBacks());
    endpoint_->AddCallback(Event("last"), 3);
    EXPECT_TRUE(endpoint_->HasCallBacks());
    endpoint_ = nullptr;
    ExpectOrder({"~last"});
}

TEST(GpuDelivery, OneCallbackAtATimeOrNone)
{
    std::vector<std::string> order;
    const auto sample = [&order](const std::string& name, int32_t result) {
        return Noting<GpuFunction, std::vector<GpuPerfInfo>&>(order, name, result);
    };
    sptr<GpuCounterCallBack> endpoint = MakeRef<GpuCounterCallBack>();
    EXPECT_EQ(Send(*endpoint, GPU_DATA, GpuItems(1, 1)).reply, ZERO);
    EXPECT_EQ(endpoint->SetProcessCallback(sample("a", 3)), 0);
    EXPECT_EQ(endpoint->SetProcessCallback(sample("b", 4)), 0);
    EXPECT_EQ(Send(*endpoint, GPU_DATA, GpuItems(1, 1)).reply, Items{4});
    endpoint->SetProcessCallback(nullptr);
    EXPECT_EQ(Send(*endpoint, GPU_DATA, GpuItems(1, 1)).reply, ZERO);
    endpoint->SetProcessCallback(sample("c", 5));
    endpoint = nullptr;
    EXPECT_EQ(order, (std::vector<std::string>{"~a", "b", "~b", "~c"}));
}

TEST(ResourceDelivery, TwoSlotsThatKnowNothingOfEachOther)
{
    std::vector<std::string> order;
    const auto prioritys = [&order](const std::string& name) {
        return Noting<PrioritysFunction, std::vector<std::string>&>(order, name, 4);
    };
    const auto infos = [&order](const std::string& name) {
        return Noting<ResourceInfoFunction, const AppResourceInfos&>(order, name, 5);
    };
    sptr<ResourcePreDownloadCallback> endpoint = MakeRef<ResourcePreDownloadCallback>();
    EXPECT_EQ(endpoint->SetGetAppPrioritysCallback(prioritys("p")), 0);
    EXPECT_EQ(Send(*endpoint, RESOURCE_INFOS, ResourceItems(1, 1)).reply, ZERO);
    EXPECT_EQ(Send(*endpoint, PRIORITYS, {0}).reply, Items{4});
    EXPECT_EQ(endpoint->SetQueryAppResourceInfoCallback(infos("i")), 0);
    endpoint->SetGetAppPrioritysCallback(nullptr);
    EXPECT_EQ(Send(*endpoint, PRIORITYS, {0}).reply, ZERO);
    EXPECT_EQ(Send(*endpoint, RESOURCE_INFOS, ResourceItems(1, 1)).reply, Items{5});
    endpoint->SetQueryAppResourceInfoCallback(infos("j"));
    endpoint->SetGetAppPrioritysCallback(prioritys("q"));
    endpoint = nullptr;
    EXPECT_EQ(order, (std::vector<std::string>{"p", "~p", "i", "~i", "~q", "~j"}));
}

// A callback that blocks holds up its own slot only.
TEST(ResourceDelivery, AnswersOfOneKindDoNotWaitForTheOther)
{
    std::promise<void> entered;
    std::promise<void> leave;
    const auto endpoint = MakeRef<ResourcePreDownloadCallback>();
    endpoint->SetQueryAppResourceInfoCallback(std::make_unique<ResourceInfoFunction>([&](auto&) {
        entered.set_value();
        EXPECT_EQ(leave.get_future().wait_for(LONG_ENOUGH), std::future_status::ready);
        return 1;
    }));
    std::thread blocked([&] { EXPECT_EQ(Send(*endpoint, RESOURCE_INFOS, {0}).reply, Items{1}); });
    entered.get_future().wait();
    endpoint->SetGetAppPrioritysCallback(std::make_unique<PrioritysFunction>([](auto&) { return 2; }));
    EXPECT_EQ(Send(*endpoint, PRIORITYS, {0}).reply, Items{2});
    leave.set_value();
    blocked.join();
}

}  // namespace
}  // namespace TAVO::Veltra
