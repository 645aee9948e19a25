// SPDX-License-Identifier: Apache-2.0
// Who gets what the service sends, in which order, and when a callback is destroyed.
#include <stdexcept>
#include <thread>

#include "callback/endpoints.h"
#include "support/notes.h"

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
    EXPECT_EQ(Send(*endpoint, GAME_EVENT, {}).reply, ZERO);  // to nobody
    endpoint->AddCallback(Noting<EventFunction>(notes_, "5", 7), 5);
    endpoint->AddCallback(Noting<EventFunction>(notes_, "-2", -1), -2);
    endpoint->AddCallback(std::make_unique<EventFunction>([](auto&) -> int32_t { throw std::runtime_error(""); }), 6);
    endpoint->AddCallback(Noting<EventFunction>(notes_, "9"), 9);
    EXPECT_EQ(Send(*endpoint, GAME_EVENT, {}).reply, ZERO);
    EXPECT_EQ(notes_->WaitFor(0), (std::vector<std::string>{"-2", "5", "9"}));
}

TEST_F(Delivery, TheTwoResourceSlotsKnowNothingOfEachOther)
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

}  // namespace
}  // namespace TAVO::Veltra
