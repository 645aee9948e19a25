// SPDX-License-Identifier: Apache-2.0
// What the real service sends by itself reaches the game that asked for it, until one of the two ends.
//
// The operations that answer at once are in operations_test.cpp.
#include <algorithm>
#include <atomic>
#include <thread>

#include "system/notes.h"
#include "system/system_fixture.h"

namespace SystemTest {
namespace {

using namespace TAVO::Veltra;

// A level that is 0 and 4 in turns, each for longer than the second between two looks at the device, so that events keep
// coming; and batches of four samples.
constexpr char STORY[] = R"({
    "curves": {"tempLevel": {"points": [[0, 0], [1.2, 0], [1.3, 4], [2.5, 4]], "repeat": true}, "thermalMargin": 33},
    "events": [{"at": 20, "text": "levelStarted"}, {"at": 40, "text": "levelStarted"},
               {"at": 80, "text": "levelStarted"}, {"at": 160, "text": "levelStarted"}],
    "gpu": {"count": 4, "intervalSeconds": 1, "counters": {"gpuLoadPercent": 70}}})";
constexpr size_t SOME = 6;  // events, by which everybody else would have heard of them too

class Subscriptions : public SystemFixture {
protected:
    void Serve(const std::string& scenario)
    {
        WriteScenario(scenario);
        StartManager();
    }

    int32_t Register(int32_t key, const SharedNotes& notes)
    {
        return client_.RegisterGameCallback(std::make_unique<EventFunction>([key, notes](auto&) {
                                                notes->Add(std::to_string(key));
                                                return 0;
                                            }),
                                            key);
    }

    void ExpectNews(const SharedNotes& notes)
    {
        const size_t before = notes->Count();
        EXPECT_GE(notes->WaitFor(before + SOME).size(), before + SOME);
    }

    const SharedNotes notes_ = std::make_shared<Notes>();
};

TEST_F(Subscriptions, EachEventGoesThroughTheKeysInAscendingOrder)
{
    Serve(STORY);
    for (const int32_t key : {7, -3, 2}) {
        EXPECT_EQ(Register(key, notes_), 0);
    }
    const std::vector<std::string> heard = notes_->WaitFor(10 * SOME);
    ASSERT_GE(heard.size(), 10 * SOME);
    // Before the last key was there, events went to fewer.
    const auto first = std::find(heard.begin(), heard.end(), "2") - heard.begin() - 1;
    ASSERT_GE(first, 0);
    for (size_t i = static_cast<size_t>(first); i + 2 < heard.size(); i += 3) {
        EXPECT_EQ(heard[i] + ' ' + heard[i + 1] + ' ' + heard[i + 2], "-3 2 7");
    }
    for (const int32_t key : {-3, 2, 7}) {
        EXPECT_EQ(client_.UnRegisterGameCallback(key), 0);
    }
    EXPECT_EQ(client_.UnRegisterGameCallback(7), RESULT_NOT_REGISTERED);
}

TEST_F(Subscriptions, AnEventTellsTheDeviceStateOrItsOwnText)
{
    Serve(STORY);
    const auto check = [notes = notes_](const GameCallbackEventInfo& info) {
        EXPECT_TRUE(info.tempLevel >= 0 && info.tempLevel <= 5) << info.tempLevel;
        EXPECT_EQ(info.thermalMargin, 33);
        EXPECT_EQ(info.gpuLoadLevel, 0);
        EXPECT_EQ(info.resultCode, 0);
        notes->Add(info.eventText + std::to_string(info.tempLevel));
        return 0;
    };
    ASSERT_EQ(client_.RegisterGameCallback(std::make_unique<EventFunction>(check), 1), 0);
    const auto hasHeard = [this](const std::string& text) {
        return WaitFor([&] {
            const std::vector<std::string> heard = notes_->WaitFor(0);
            return std::any_of(heard.begin(), heard.end(), [&](const auto& note) { return note.find(text) == 0; });
        });
    };
    for (const char* text : {"deviceState0", "deviceState4", "levelStarted"}) {
        EXPECT_TRUE(hasHeard(text)) << text;
    }
}

// Whom the service knows is its own business: keys stay in the game.
TEST_F(Subscriptions, TheServiceIsAskedForTheFirstKeyAndAfterTheLast)
{
    StartManager();
    Child service = StartTestService();
    EXPECT_EQ(Register(1, notes_), 0);
    EXPECT_EQ(Register(2, notes_), 0);
    EXPECT_EQ(service.Ask("count"), "1 0");
    EXPECT_EQ(client_.UnRegisterGameCallback(1), 0);
    EXPECT_EQ(service.Ask("push events 7 zem.game.perf.iGpNapiEventCallback"), "0 0");
    EXPECT_EQ(notes_->WaitFor(1), std::vector<std::string>{"2"});
    EXPECT_EQ(service.Ask("count"), "1 0");
    EXPECT_EQ(client_.UnRegisterGameCallback(2), 0);
    EXPECT_EQ(service.Ask("count"), "1 1");
    EXPECT_EQ(Register(3, notes_), 0);
    EXPECT_EQ(service.Ask("count"), "2 1");
}

TEST_F(Subscriptions, GpuBatchesComeUntilTheyAreStopped)
{
    Serve(STORY);
    const auto start = [this](const std::string& name) {
        const auto count = [notes = notes_, name, last = std::make_shared<int64_t>(-1)](auto& infos) {
            EXPECT_EQ(infos.size(), 4u);
            for (const GpuPerfInfo& info : infos) {
                EXPECT_GT(info.long2, std::exchange(*last, info.long2)) << "samples are counted";
                EXPECT_EQ(info.uint1, 70u);
                EXPECT_EQ(info.uint10, 1u);
            }
            notes->Add(name);
            return 0;
        };
        return client_.StartGetGpuPerfInfo(0, Living<GpuFunction>(notes_, name, count));
    };
    const auto hears = [this](const std::string& note) {
        return WaitFor([&] {
            const std::vector<std::string> heard = notes_->WaitFor(0);
            return std::count(heard.begin(), heard.end(), note) > 0;
        });
    };
    EXPECT_EQ(client_.StopGetGpuPerfInfo(), RESULT_GPU_REFUSED) << "there is nothing to stop";
    ASSERT_EQ(start("first"), 0);
    EXPECT_TRUE(hears("first"));
    ASSERT_EQ(start("second"), 0);
    EXPECT_TRUE(hears("~first")) << "the one that was replaced is kept";
    EXPECT_TRUE(hears("second"));
    EXPECT_EQ(client_.StopGetGpuPerfInfo(), 0);
    EXPECT_TRUE(hears("~second")) << "the stream is still held";
    EXPECT_EQ(notes_->WaitFor(0).back(), "~second");
    EXPECT_EQ(client_.StopGetGpuPerfInfo(), RESULT_GPU_REFUSED);
}

TEST_F(Subscriptions, QueriesAreAnsweredFromTheCatalogue)
{
    using Names = std::vector<std::string>;
    Serve(STORY);
    const auto askPrioritys = [this](Names names) {
        return client_.GetAppPrioritys(names,
                                       Living<PrioritysFunction>(notes_, "prioritys", [notes = notes_](Names& list) {
                                           for (const std::string& text : list) {
                                               notes->Add(text);
                                           }
                                           return 0;
                                       }));
    };
    ASSERT_EQ(askPrioritys({"com.example.puzzle", "com.other", "com.example.racer"}), 0);
    EXPECT_EQ(notes_->WaitFor(3), (Names{"com.example.racer", "com.example.puzzle", "~prioritys"}));
    ASSERT_EQ(askPrioritys({}), 0);  // all
    EXPECT_EQ(notes_->WaitFor(6).size(), 6u);

    const auto askInfos = [this](const Names& names) {
        return client_.QueryAppResourceInfos(
            names, Living<ResourceInfoFunction>(notes_, "infos", [notes = notes_](const AppResourceInfos& infos) {
                for (const AppResourceInfo& info : infos.resourceInfos) {
                    notes->Add(info.text1 + ' ' + info.text2 + ' ' + std::to_string(info.long1) + ' ' +
                               std::to_string(info.int3));
                }
                return 0;
            }));
    };
    ASSERT_EQ(askInfos({"com.example.racer"}), 0);
    const Names heard = notes_->WaitFor(8);
    ASSERT_EQ(heard.size(), 8u);
    EXPECT_EQ(heard[6], "com.example.racer tracks-alps 734003200 80");
    EXPECT_EQ(heard[7], "com.example.racer voices-fr 52428800 80");
    EXPECT_EQ(askInfos({}), RESULT_NO_BUNDLE_NAMES);
    EXPECT_TRUE(WaitFor([this] { return notes_->Count() == 10; })) << "the object of the query before is kept";
}

// The service's own code, and what the game is told; a callback that was refused is destroyed.
TEST_F(Subscriptions, RefusalsHaveTheirCodesAndCallNobody)
{
    Serve(R"({"faults": [{"kind": "refuse", "code": 77}]})");
    const auto life = [this] { return Life(notes_, "refused"); };
    std::vector<std::string> names = {"com.example.racer"};
    std::vector<AppResourceDownLoadResult> results(1);
    EXPECT_EQ(client_.RegisterGameCallback(std::make_unique<EventFunction>([l = life()](auto&) { return 0; }), 1),
              RESULT_NOT_REGISTERED);
    EXPECT_EQ(client_.StartGetGpuPerfInfo(0, std::make_unique<GpuFunction>([l = life()](auto&) { return 0; })),
              RESULT_GPU_REFUSED);
    EXPECT_EQ(
        client_.QueryAppResourceInfos(names, std::make_unique<ResourceInfoFunction>([l = life()](auto&) { return 0; })),
        77);
    EXPECT_EQ(client_.GetAppPrioritys(names, std::make_unique<PrioritysFunction>([l = life()](auto&) { return 0; })),
              RESULT_PRIORITIES_REFUSED);
    // The service may have the way to it for a moment longer.
    EXPECT_EQ(notes_->WaitFor(4), std::vector<std::string>(4, "~refused"));
    EXPECT_EQ(client_.UnRegisterGameCallback(1), RESULT_NOT_REGISTERED);
    EXPECT_EQ(client_.StopGetGpuPerfInfo(), RESULT_GPU_REFUSED);
    EXPECT_EQ(client_.NotifyAppResourceDownLoadResults(results), RESULT_DOWNLOAD_RESULTS_REFUSED);
    EXPECT_EQ(client_.CallAuth(""), 77);
    GameState state{5, "mine"};
    EXPECT_EQ(client_.QueryGameState(state), 77);
    EXPECT_EQ(state.state, 5);
}

TEST_F(Subscriptions, TheGameStateIsTheReportedOneAndAskingStartsNothing)
{
    WriteScenario(STORY);
    StartManager();
    const auto expectState = [this](int32_t state, const std::string& name) {
        GameState answer{77, "mine"};
        EXPECT_EQ(client_.QueryGameState(answer), 0);
        EXPECT_EQ(answer.state, state);
        EXPECT_EQ(answer.bundleName, name);
    };
    expectState(2, "mine");
    EXPECT_EQ(Starts(), 0);
    Child other = Child::Start({"system_test_client"});
    EXPECT_EQ(other.Ask("play game.other"), "0");
    expectState(1, "game.other");
    EXPECT_EQ(client_.UpdateGameInfo(4, "game.own", 0), 0);
    expectState(4, "game.own");
    EXPECT_EQ(client_.UpdateGameInfo(2, "", 0), 0);
    expectState(1, "game.other");
    KillService();
    expectState(2, "mine");
    EXPECT_EQ(Starts(), 1);
}

// Registered with a service that is no more, a game hears nothing until it unregisters and registers again.
TEST_F(Subscriptions, AfterARestartTheGameHasToRegisterAnew)
{
    Serve(STORY);
    ASSERT_EQ(Register(1, notes_), 0);
    ExpectNews(notes_);
    KillService();
    ASSERT_EQ(Register(2, notes_), 0);
    EXPECT_EQ(Starts(), 1) << "a key that is only added asks nobody";
    ASSERT_EQ(client_.CallAuth("loads"), 0);
    EXPECT_EQ(Starts(), 2);
    const size_t before = notes_->Count();

    // By the time that somebody else has heard a lot, this game would have heard something.
    Child other = Child::Start({"system_test_client"});
    EXPECT_EQ(other.Ask("subscribe counting"), "0");
    for (size_t i = 0; i < SOME; ++i) {
        EXPECT_EQ(other.Pipe().Hear(), "event");
    }
    EXPECT_EQ(notes_->Count(), before);

    EXPECT_EQ(client_.UnRegisterGameCallback(1), 0);
    EXPECT_EQ(client_.UnRegisterGameCallback(2), RESULT_UNREGISTER_REFUSED);
    EXPECT_EQ(client_.StopGetGpuPerfInfo(), RESULT_GPU_REFUSED);
    EXPECT_EQ(Register(1, notes_), 0);
    ExpectNews(notes_);
    EXPECT_EQ(client_.UnRegisterGameCallback(1), 0);
}

TEST_F(Subscriptions, AGameThatIsKilledInItsCallbackTakesNothingFromTheOthers)
{
    Serve(STORY);
    ASSERT_EQ(Register(1, notes_), 0);
    for (int round = 0; round < 5; ++round) {
        Child victim = Child::Start({"system_test_client"});
        EXPECT_EQ(victim.Ask("subscribe blocking"), "0");
        EXPECT_EQ(victim.Pipe().Hear(), "called");
        ExpectNews(notes_);
        victim.Kill();
        EXPECT_EQ(victim.WaitForExit(), "signal 9");
        ExpectNews(notes_);
    }
    EXPECT_EQ(Starts(), 1);
}

// The largest list that is taken at all. Smaller calls do not queue up behind it.
TEST_F(Subscriptions, TheLargestBatchArrivesWholeBesideOtherCalls)
{
    constexpr size_t SAMPLES = 524288;
    Serve(R"({"curves": {"tempLevel": 1},
              "gpu": {"count": 524288, "total": 524288, "intervalSeconds": 5, "counters": {"gpuLoadPercent": 70}}})");
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
    std::vector<std::thread> callers;
    for (int i = 0; i < 4; ++i) {
        callers.emplace_back([&isOver] {
            while (!isOver) {
                const Clock::time_point begin = Clock::now();
                EXPECT_EQ(VeltraClient().CallAuth("small"), 0);
                EXPECT_LT(Clock::now() - begin, SOON);
            }
        });
    }
    EXPECT_EQ(notes_->WaitFor(1), std::vector<std::string>{std::to_string(SAMPLES)});
    isOver = true;
    for (std::thread& caller : callers) {
        caller.join();
    }
}

}  // namespace
}  // namespace SystemTest
