// SPDX-License-Identifier: Apache-2.0
// A tool reaches the running service by its control side, and games see what it simulates.
#include <json/json.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <string>

#include "control/control_proxies.h"
#include "control/control_stubs.h"
#include "support/game_callbacks.h"
#include "support/notes.h"
#include "system/system_fixture.h"
#include "tavo/isystem_ability_load_callback.h"
#include "tavo/system_ability_manager_client.h"

namespace SystemTest {
namespace {

using namespace TAVO::Veltra;
using TAVO::sptr;

// The service's own codes, as its documentation has them.
constexpr int32_t BAD_REQUEST = 1010310101;
constexpr int32_t NOT_SUPPORTED = 1010310102;

Json::Value Parsed(const std::string& text)
{
    Json::Value value;
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &value, nullptr)) << text;
    return value;
}

sptr<IVeltraControl> FindControl()
{
    const auto manager = TAVO::SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    return TAVO::iface_cast<IVeltraControl>(manager->CheckAbility(VELTRA_CONTROL_SA_ID));
}

class Control : public SystemFixture {
protected:
    // Starts manager and service; the control side follows the first call.
    void StartService(const std::vector<std::string>& arguments)
    {
        WriteAbility("veltra_server", arguments);
        StartManager();
        ASSERT_EQ(client_.CallAuth("start"), 0);
        ASSERT_TRUE(WaitFor([this] { return (control_ = FindControl()) != nullptr; }));
    }
    static std::string Machine(const char* name) { return std::string(VELTRA_TEST_ROOTS) + "/" + name; }

    Json::Value Describe()
    {
        std::string answer;
        EXPECT_EQ(control_->Describe(answer), 0);
        return Parsed(answer);
    }
    // What the service says of a command that it refuses.
    std::string Refusal(const std::string& command, int32_t code = BAD_REQUEST)
    {
        std::string answer;
        EXPECT_EQ(control_->Simulate(command, answer), code) << answer;
        return Parsed(answer)["error"].asString();
    }
    void Simulate(const std::string& command)
    {
        std::string answer;
        EXPECT_EQ(control_->Simulate(command, answer), 0) << answer;
        EXPECT_EQ(Parsed(answer)["schema"].asInt(), 1);
    }
    int Level() { return client_.GetDeviceInfo({}).tempLevel; }

    sptr<IVeltraControl> control_ = nullptr;
};

TEST_F(Control, DescribesTheServiceAndItsClients)
{
    StartService({"--root", Machine("desktop")});
    EXPECT_EQ(client_.UpdateGameInfo(1, "com.example.\"game\"\n", 0), 0);
    EXPECT_EQ(client_.RegisterGameCallback(std::make_unique<EventFunction>([](auto&) { return 0; }), 1), 0);
    const Json::Value report = Describe();
    EXPECT_EQ(report["schema"].asInt(), 1);
    EXPECT_EQ(report["service"]["pid"].asInt(), ServicePid());
    EXPECT_EQ(report["service"]["root"].asString(), Machine("desktop"));
    EXPECT_TRUE(report["service"]["simulationAllowed"].asBool());
    EXPECT_EQ(report["device"]["gpuInfo"]["gpuLoadLevel"].asInt(), 5);
    EXPECT_FALSE(report["simulation"]["active"].asBool());
    EXPECT_EQ(report["games"][0]["pid"].asInt(), getpid());
    EXPECT_EQ(report["games"][0]["bundle"].asString(), "com.example.\"game\"\n");
    EXPECT_EQ(report["subscriptions"][0]["subject"].asString(), "events");
    std::string answer;
    EXPECT_EQ(control_->Explain(answer), 0);
    EXPECT_NE(Parsed(answer)["text"].asString().find("temperature sensors"), std::string::npos);
}

// Collects what it is sent, and says how many records it got and lost, once both together are at least as many.
class CountingWatcher final : public VeltraWatcherStub {
public:
    int32_t OnRecords(const std::string& lines, uint64_t dropped) override
    {
        received += static_cast<uint64_t>(std::count(lines.begin(), lines.end(), '\n'));
        lost += dropped;
        return 0;
    }
    std::atomic<uint64_t> received{0};
    std::atomic<uint64_t> lost{0};
};

// A stopped watcher loses records and receives their number; games are not delayed.
TEST_F(Control, AStoppedWatcherDelaysNoGame)
{
    constexpr uint64_t CALLS = 20000;
    Child watcher = Child::Fork([](TestSupport::LinePipe& parent) {
        parent.Receive();
        const sptr<CountingWatcher> counts(new CountingWatcher());
        std::string answer;
        parent.Send(std::to_string(FindControl()->Watch(R"({"pushes": false, "device": false})", counts, answer)));
        parent.Receive();
        WaitFor([&counts] { return counts->received + counts->lost >= CALLS; });
        parent.Send(std::to_string(counts->received + counts->lost) + (counts->lost > 0 ? " with losses" : ""));
        return 0;
    });
    StartService({"--root", Machine("desktop")});
    ASSERT_EQ(watcher.Ask("watch"), "0");
    EXPECT_EQ(Describe()["watchers"].asInt(), 1);
    watcher.Stop();
    const std::string text(1000, 'x');
    const auto begin = Clock::now();
    for (uint64_t i = 0; i < CALLS; ++i) {
        ASSERT_EQ(client_.CallAuth(text), 0);
    }
    EXPECT_LT(Clock::now() - begin, TestSupport::TIMEOUT);
    EXPECT_EQ(Describe()["calls"]["CallAuth"]["count"].asUInt64(), CALLS + 1);  // with that of before the watch
    watcher.Continue();
    EXPECT_EQ(watcher.Ask("count"), std::to_string(CALLS) + " with losses");
    watcher.Kill();
    EXPECT_TRUE(WaitFor([this] { return Describe()["watchers"].asInt() == 0; }));
}

// The control side alone cannot be started, so a load is refused at once.
TEST_F(Control, ALoadIsRefusedAtOnceUntilTheServiceRuns)
{
    class Callback : public TAVO::SystemAbilityLoadCallbackStub {};
    WriteRealAbility("desktop");
    StartManager();
    const auto manager = TAVO::SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    EXPECT_EQ(manager->LoadAbility(VELTRA_CONTROL_SA_ID, new Callback()), TAVO::ABILITY_CANNOT_START);
    EXPECT_EQ(client_.CallAuth("start"), 0);
    EXPECT_TRUE(WaitFor([&] { return manager->CheckAbility(VELTRA_CONTROL_SA_ID) != nullptr; }));
    EXPECT_EQ(manager->LoadAbility(VELTRA_CONTROL_SA_ID, new Callback()), TAVO::ABILITY_OK);
}

TEST_F(Control, GamesSeeWhatIsSimulatedUntilItIsOff)
{
    StartService({"--root", Machine("desktop")});
    const int real = Level();
    Simulate(R"({"do": "set", "values": {"tempLevel": 3, "gpuLoadPercent": 80}})");
    EXPECT_EQ(Level(), 3);
    Json::Value report = Describe();
    EXPECT_EQ(report["device"]["tempLevelFrom"].asString(), "simulation");
    EXPECT_EQ(report["device"]["sources"]["gpuLoadPercent"].asString(), "simulation");
    EXPECT_EQ(report["device"]["gpuInfo"]["currentFrequency"].asInt(), 2450) << "the rest is the real device";
    EXPECT_EQ(report["simulation"]["values"]["tempLevel"].asInt(), 3);
    std::string answer;
    EXPECT_EQ(control_->Explain(answer), 0);
    EXPECT_NE(Parsed(answer)["text"].asString().find("simulated on top of what follows: {"), std::string::npos);
    Simulate(R"({"do": "release", "keys": ["tempLevel"]})");
    EXPECT_EQ(Level(), real);

    Simulate(
        "{\"do\": \"load\", \"scenario\": {\"name\": \"hot\",\n // a comment\n"
        "\"curves\": {\"tempLevel\": {\"points\": [[10, 1], [20, 5]]}}}}");
    Simulate(R"({"do": "pause"})");
    EXPECT_EQ(Level(), 1);
    Simulate(R"({"do": "seek", "seconds": 20})");
    EXPECT_EQ(Level(), 5);
    report = Describe();
    EXPECT_EQ(report["simulation"]["scenario"].asString(), "hot");
    EXPECT_EQ(report["simulation"]["timeSeconds"].asDouble(), 20);
    EXPECT_EQ(report["device"]["sources"]["tempLevel"].asString(), "simulation hot");
    Simulate(R"({"do": "set", "values": {"tempLevel": 2}})");
    EXPECT_EQ(Level(), 2) << "a set value comes before the scenario";
    Simulate(R"({"do": "off"})");
    EXPECT_EQ(Level(), real);
    EXPECT_FALSE(Describe()["simulation"]["active"].asBool());
}

TEST_F(Control, SubscribersGetSimulatedEventsAndCounters)
{
    StartService({"--root", Machine("virtual")});
    TestSupport::Notes events;
    const auto note = [&events](const GameCallbackEventInfo& info) {
        events.Add(info.eventText + " " + std::to_string(info.tempLevel));
        return 0;
    };
    EXPECT_EQ(client_.RegisterGameCallback(std::make_unique<EventFunction>(note), 1), 0);
    EXPECT_EQ(events.WaitFor(1), std::vector<std::string>{"deviceState -1"});
    Simulate(R"({"do": "set", "values": {"tempLevel": 4}})");
    EXPECT_EQ(events.WaitFor(2).back(), "deviceState 4");
    Simulate(R"({"do": "event", "text": "levelStarted"})");
    EXPECT_EQ(events.WaitFor(3).back(), "levelStarted 4");

    TestSupport::Notes loads;
    const auto start = [this, &loads] {
        const auto noteLoad = [&loads](const std::vector<GpuPerfInfo>& samples) {
            loads.Add(std::to_string(samples.at(0).uint1));
            return 0;
        };
        return client_.StartGetGpuPerfInfo(50, std::make_unique<GpuFunction>(noteLoad));
    };
    EXPECT_EQ(start(), RESULT_GPU_REFUSED) << "the machine has no GPU";
    Simulate(R"({"do": "load", "scenario": {"gpu": {"counters": {"gpuLoadPercent": 70}}}})");
    EXPECT_EQ(start(), 0);
    EXPECT_EQ(loads.WaitFor(1).at(0), "70");
    EXPECT_GE(Describe()["pushes"]["gameEvent"]["sent"].asInt(), 3);
}

TEST_F(Control, SwitchingOffReleasesRequestsThatAFaultKeepsWaiting)
{
    StartService({"--root", Machine("desktop")});
    for (const char* kind : {"hang", "lateReply"}) {
        Simulate(R"({"do": "fault", "operation": "CallAuth", "seconds": 3600, "kind": ")" + std::string(kind) +
                 R"("})");
        std::atomic<pid_t> thread{0};
        std::atomic<int32_t> result{-1};
        Threads game(1, [&](size_t) {
            thread = ::gettid();
            result = VeltraClient().CallAuth("");
        });
        EXPECT_TRUE(WaitFor([&thread] { return thread != 0 && IsAsleep(thread); }));
        EXPECT_EQ(result, -1) << kind;
        const auto begin = Clock::now();
        Simulate(R"({"do": "off"})");
        game.Join();
        EXPECT_EQ(result, 0) << kind;
        EXPECT_LT(Clock::now() - begin, SOON);
    }
}

TEST_F(Control, MistakesInCommandsAreNamedAndChangeNothing)
{
    StartService({"--root", Machine("desktop")});
    const std::pair<const char*, const char*> rows[] = {
        {"", "command: Syntax error: "},
        {"[]", "command: is not an object (line 1)"},
        {R"({"do": "explode"})", R"(command: do: there is no "explode" (line 1))"},
        {R"({"do": "set", "values": {"tempLvl": 3}})", "command: values.tempLvl: there is no such value (line 1)"},
        {R"({"do": "set", "values": {"tempLevel": 6}})", "command: values.tempLevel: 6 is not from 0 to 5 (line 1)"},
        {R"({"do": "seek", "seconds": 1})", "command: no scenario is loaded; load one first (line 1)"},
        {"{\"do\": \"load\", \"scenario\": {\n\"curves\": {\n\"tempLevel\": 9}}}",
         "command: scenario.curves.tempLevel: 9 is not from 0 to 5 (line 3)"},
        {R"({"do": "fault", "kind": "none"})", R"(command: kind: there is no "none" (line 1))"},
    };
    for (const auto& [command, error] : rows) {
        EXPECT_EQ(Refusal(command).substr(0, std::string(error).size()), error);
    }
    EXPECT_NE(Refusal(std::string(100000, '[')).find("nested too deep"), std::string::npos);
    EXPECT_FALSE(Describe()["simulation"]["active"].asBool());
}

TEST_F(Control, NoSimulationIsAllowedWhereTheServiceWasStartedSo)
{
    StartService({"--root", Machine("desktop"), "--no-simulation"});
    const int real = Level();
    EXPECT_NE(Refusal(R"({"do": "set", "values": {"tempLevel": 5}})", NOT_SUPPORTED).find("--no-simulation"),
              std::string::npos);
    EXPECT_EQ(Level(), real);
    EXPECT_FALSE(Describe()["service"]["simulationAllowed"].asBool());
}

}  // namespace
}  // namespace SystemTest
