// SPDX-License-Identifier: Apache-2.0
// Events and samples of the real service reach the game that subscribed, until one of the two ends.
#include <atomic>

#include "support/notes.h"
#include "system/system_fixture.h"

namespace SystemTest {
namespace {

using namespace TAVO::Veltra;
using TestSupport::Living;
using TestSupport::Notes;
using TestSupport::Noting;
using TestSupport::SharedNotes;

constexpr size_t SOME = 6;  // events, after which every other subscriber would have received them too

class Subscriptions : public SystemFixture {
protected:
    int32_t Register(int32_t key) { return client_.RegisterGameCallback(Noting<EventFunction>(notes_, "event"), key); }

    void ExpectNews()
    {
        const size_t before = notes_->Count();
        EXPECT_GE(notes_->WaitFor(before + SOME).size(), before + SOME);
    }

    const SharedNotes notes_ = std::make_shared<Notes>();
};

// Both sides release a callback that is replaced or stopped.
TEST_F(Subscriptions, GpuSamplesAreSentUntilTheyAreStopped)
{
    StartStory();
    ASSERT_EQ(client_.StartGetGpuPerfInfo(0, Noting<GpuFunction>(notes_, "first")), 0);
    EXPECT_TRUE(notes_->WaitForNote("first"));
    ASSERT_EQ(client_.StartGetGpuPerfInfo(0, Noting<GpuFunction>(notes_, "second")), 0);
    EXPECT_TRUE(notes_->WaitForNote("~first"));
    EXPECT_TRUE(notes_->WaitForNote("second"));
    EXPECT_EQ(client_.StopGetGpuPerfInfo(), 0);
    EXPECT_TRUE(notes_->WaitForNote("~second"));
    EXPECT_EQ(notes_->WaitFor(0).back(), "~second");
    EXPECT_EQ(client_.StopGetGpuPerfInfo(), RESULT_GPU_REFUSED);
}

TEST_F(Subscriptions, GamesAreKnownWhileTheyRun)
{
    using Types = std::map<std::string, bool>;
    StartStory();
    const auto isState = [this](int32_t state, const std::string& name) {
        GameState answer{77, "mine"};
        EXPECT_EQ(client_.QueryGameState(answer), 0);
        return answer.state == state && answer.bundleName == name;
    };
    EXPECT_TRUE(isState(2, "mine"));
    EXPECT_EQ(Starts(), 0);
    Child other = Child::Start({"system_test_client"});
    EXPECT_EQ(other.Ask("play game.other"), "0");
    EXPECT_TRUE(isState(1, "game.other"));
    EXPECT_EQ(client_.UpdateGameInfo(4, "game.own", 0), 0);
    EXPECT_TRUE(isState(4, "game.own"));
    EXPECT_EQ(client_.SyncAppType("game.own,game.other,none", 0),
              (Types{{"game.own", true}, {"game.other", true}, {"none", false}}));
    // An event has no reply: only its effect shows that it was handled.
    GameInfo event;
    event.int32Value = 7;
    event.text2 = event.text3 = event.text4 = event.text5 = event.text6 = "not the name";
    client_.ReportGameEvent(event);
    EXPECT_TRUE(WaitFor([&] { return isState(7, "game.own"); }));
    EXPECT_EQ(client_.UpdateGameInfo(2, "", 0), 0);  // no game runs here any more
    EXPECT_EQ(client_.SyncAppType("", 0), (Types{{"game.other", true}}));
    other.Kill();
    EXPECT_EQ(other.WaitForExit(), "signal 9");
    EXPECT_EQ(client_.SyncAppType("game.other", 0), (Types{{"game.other", false}}));
    KillService();
    EXPECT_TRUE(isState(2, "mine"));
    EXPECT_EQ(Starts(), 1);
}

// Registered with a service that has ended, a game receives nothing until it unregisters and registers again.
TEST_F(Subscriptions, RestartOfTheServiceEndsSubscriptions)
{
    StartStory();
    ASSERT_EQ(Register(1), 0);
    ExpectNews();
    KillService();
    ASSERT_EQ(Register(2), 0);
    EXPECT_EQ(Starts(), 1) << "a key that is only added asks nobody";
    ASSERT_EQ(client_.CallAuth("loads"), 0);
    EXPECT_EQ(Starts(), 2);
    const size_t before = notes_->Count();

    // By the time that another game has received many events, this one would have received some.
    Child other = Child::Start({"system_test_client"});
    EXPECT_EQ(other.Ask("subscribe counting"), "0");
    for (size_t i = 0; i < SOME; ++i) {
        EXPECT_EQ(other.Pipe().Receive(), "event");
    }
    EXPECT_EQ(notes_->Count(), before);

    EXPECT_EQ(client_.UnRegisterGameCallback(1), 0);
    EXPECT_EQ(client_.UnRegisterGameCallback(2), RESULT_UNREGISTER_REFUSED);
    EXPECT_EQ(client_.StopGetGpuPerfInfo(), RESULT_GPU_REFUSED);
    EXPECT_EQ(Register(1), 0);
    ExpectNews();
    EXPECT_EQ(client_.UnRegisterGameCallback(1), 0);
}

// The largest list that is taken at all. Smaller calls do not queue up behind it.
TEST_F(Subscriptions, LargestBatchOfSamplesDelaysNoOtherCall)
{
    constexpr size_t SAMPLES = 524288;
    WriteScenario(R"({"curves": {"tempLevel": 1},
        "gpu": {"count": 524288, "total": 524288, "intervalSeconds": 5, "counters": {"gpuLoadPercent": 70}}})");
    StartManager();
    const auto check = [notes = notes_](std::vector<GpuPerfInfo>& infos) {
        size_t wrong = 0;
        for (size_t i = 0; i < infos.size(); ++i) {
            wrong += infos[i].long2 != static_cast<int64_t>(i) || infos[i].uint1 != 70 || infos[i].uint10 != 1;
        }
        EXPECT_EQ(wrong, 0u);
        notes->Add(std::to_string(infos.size()));
        return 0;
    };
    ASSERT_EQ(client_.StartGetGpuPerfInfo(0, std::make_unique<GpuFunction>(check)), 0);
    std::atomic<bool> isOver{false};
    Threads callers(4, [&isOver](size_t) {
        while (!isOver) {
            const Clock::time_point begin = Clock::now();
            EXPECT_EQ(VeltraClient().CallAuth("small"), 0);
            EXPECT_LT(Clock::now() - begin, SOON);
        }
    });
    EXPECT_EQ(notes_->WaitFor(1), std::vector<std::string>{std::to_string(SAMPLES)});
    isOver = true;
}

}  // namespace
}  // namespace SystemTest
