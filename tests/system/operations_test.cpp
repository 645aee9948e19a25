// SPDX-License-Identifier: Apache-2.0
// The first call starts the service, and every operation comes back with what the service says about this machine.
#include <algorithm>
#include <fstream>
#include <thread>

#include "ipc/server_codes.h"
#include "system/system_fixture.h"
#include "tavo/ipc_object_stub.h"
#include "tavo/message_parcel.h"
#include "tavo/system_ability_manager_client.h"

namespace SystemTest {
namespace {

using namespace TAVO::Veltra;

// The service's own codes, as its documentation has them.
constexpr int32_t BAD_REQUEST = 1010310101;

class Operations : public SystemFixture {
protected:
    Operations() { StartManager(); }

    bool IsGame(const std::string& name)
    {
        const std::map<std::string, bool> types = client_.SyncAppType(name, 0);
        return types.count(name) == 1 && types.at(name);
    }
};

TEST_F(Operations, EightFirstCallsAtOnceStartOneServiceAndAllAreServed)
{
    constexpr size_t CALLERS = 8;
    std::vector<int32_t> results(CALLERS, -1);
    std::vector<std::thread> callers;
    for (int32_t& result : results) {
        callers.emplace_back([&result] { result = VeltraClient().CallAuth("first"); });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_EQ(results, std::vector<int32_t>(CALLERS, 0));
    EXPECT_EQ(Starts(), 1);
    EXPECT_TRUE(IsAlive(ServicePid()));
}

TEST_F(Operations, ReportsAreTakenAndBadOnesRefused)
{
    EXPECT_EQ(client_.CallAuth(""), 0);
    EXPECT_EQ(client_.CallAuth(std::string(64 * 1024 + 1, 'a')), BAD_REQUEST);
    EXPECT_EQ(client_.UpdateGameInfo(1, std::string(257, 'a'), 0), BAD_REQUEST);
    EXPECT_EQ(client_.ReportRenderThread("render", "main", 17), 0);
    EXPECT_EQ(client_.ReportRenderThread("render", "main", 0), BAD_REQUEST);

    GameSceneBundle scene;
    scene.sceneId = 3;
    scene.sceneName = "harbour";
    scene.attributes = {{"weather", "rain"}};
    EXPECT_EQ(client_.NotifyGameEvent(scene), 0);
    for (int i = 0; i < 64; ++i) {
        scene.attributes["key" + std::to_string(i)] = "";
    }
    EXPECT_EQ(client_.NotifyGameEvent(scene), BAD_REQUEST);

    std::vector<AppResourceDownLoadResult> results(1000);
    results[7].resourceInfo.text2 = "textures";
    EXPECT_EQ(client_.NotifyAppResourceDownLoadResults(results), 0);
    results.emplace_back();
    EXPECT_EQ(client_.NotifyAppResourceDownLoadResults(results), RESULT_DOWNLOAD_RESULTS_REFUSED);
}

TEST_F(Operations, GamesAreKnownWhileTheyRun)
{
    EXPECT_EQ(client_.SyncAppType("", 0), (std::map<std::string, bool>{}));
    EXPECT_EQ(client_.UpdateGameInfo(1, "game.one", 0), 0);
    Child other = Child::Start({"system_test_client"});
    EXPECT_EQ(other.Ask("play game.two"), "0");
    EXPECT_EQ(client_.SyncAppType("game.one,game.two,game.three", 0),
              (std::map<std::string, bool>{{"game.one", true}, {"game.two", true}, {"game.three", false}}));
    EXPECT_EQ(client_.SyncAppType("", 0), (std::map<std::string, bool>{{"game.one", true}, {"game.two", true}}));
    EXPECT_EQ(client_.UpdateGameInfo(2, "", 0), 0);  // no game runs any more
    EXPECT_EQ(client_.SyncAppType("", 0), (std::map<std::string, bool>{{"game.two", true}}));
    other.Kill();
    EXPECT_EQ(other.WaitForExit(), "signal 9");
    EXPECT_EQ(client_.SyncAppType("game.two", 0), (std::map<std::string, bool>{{"game.two", false}}));
}

// Nothing comes back from an event, so that only its effect can tell.
TEST_F(Operations, AGameEventChangesWhatTheServiceKnows)
{
    GameInfo event;
    event.int32Value = 1;
    event.text1 = "game.event";
    event.text2 = event.text3 = event.text4 = event.text5 = event.text6 = "not the name";
    client_.ReportGameEvent(event);
    EXPECT_TRUE(WaitFor([this] { return IsGame("game.event"); }));
    event.int32Value = 2;
    client_.ReportGameEvent(event);
    EXPECT_TRUE(WaitFor([this] { return !IsGame("game.event"); }));
}

// What is kept for a client goes with its process, so the objects that it brings have to be its own.
TEST_F(SystemFixture, ACallbackObjectOfAThirdProcessIsRefused)
{
    constexpr int32_t OTHER_ID = 7;
    const auto manager = [] { return TAVO::SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager(); };
    std::ofstream(PathOf("abilities/7.json")) << R"({"id": 7, "program": "none", "external": true})";
    Child other = Child::Fork([&manager](TestSupport::LinePipe& parent) {
        parent.Hear();
        const TAVO::sptr<TAVO::IRemoteObject> object(new TAVO::IPCObjectStub(u"zem.game.perf.iGpNapiEventCallback"));
        parent.Say(std::to_string(manager()->AddAbility(OTHER_ID, object)));
        parent.Hear();
        return 0;
    });
    StartManager();
    EXPECT_EQ(other.Ask("register"), "0");
    EXPECT_EQ(client_.CallAuth("start"), 0);
    const auto subscribe = [&manager](const TAVO::sptr<TAVO::IRemoteObject>& object) {
        TAVO::MessageParcel data;
        TAVO::MessageParcel reply;
        TAVO::MessageOption option;
        data.WriteInterfaceToken(u"zem.game.perf.iVeltraServerInterface");
        data.WriteRemoteObject(object);
        const auto service = manager()->CheckAbility(VELTRA_SERVER_SA_ID);
        EXPECT_EQ(service->SendRequest(static_cast<uint32_t>(ServerCode::REGISTER_CALL_BACK), data, reply, option), 0);
        return reply.ReadInt32();
    };
    EXPECT_EQ(subscribe(manager()->CheckAbility(OTHER_ID)), BAD_REQUEST);
    EXPECT_EQ(subscribe(new TAVO::IPCObjectStub(u"zem.game.perf.iGpNapiEventCallback")), 0);
}

struct Machine {
    const char* name;
    std::map<std::string, std::string> functions;
    GameCallbackEventInfo state;
    const char* printed;
};

Machine Laptop()
{
    Machine machine{"laptop", {{"deviceState", "supported"}, {"gpuState", "supported"}}, {}, nullptr};
    machine.state.tempLevel = 2;
    machine.state.currentFrequency = 650;
    machine.state.thermalMargin = 12;
    machine.printed = "temperature level 2, GPU load level 0";
    return machine;
}

Machine Desktop()
{
    Machine machine{"desktop", {{"deviceState", "supported"}, {"gpuState", "supported"}}, {}, nullptr};
    machine.state.tempLevel = 0;
    machine.state.gpuLoadLevel = 5;
    machine.state.bandwidthLoadLevel = 2;
    machine.state.currentFrequency = 2450;
    machine.state.thermalMargin = 41;
    machine.printed = "temperature level 0, GPU load level 5";
    return machine;
}

Machine Virtual()
{
    Machine machine{"virtual", {{"deviceState", "supported"}, {"gpuState", "unsupported"}}, {}, nullptr};
    machine.state.tempLevel = 2;
    machine.printed = "temperature level 2, GPU load level 0";
    return machine;
}

void ExpectState(const GameCallbackEventInfo& info, const GameCallbackEventInfo& expected)
{
    EXPECT_EQ(info.resultCode, 0);
    EXPECT_EQ(info.tempLevel, expected.tempLevel);
    EXPECT_EQ(info.gpuLoadLevel, expected.gpuLoadLevel);
    EXPECT_EQ(info.bandwidthLoadLevel, expected.bandwidthLoadLevel);
    EXPECT_EQ(info.currentFrequency, expected.currentFrequency);
    EXPECT_EQ(info.thermalMargin, expected.thermalMargin);
    EXPECT_EQ(info.thermalTrend, 0);
    EXPECT_EQ(info.vertexLoadLevel, 0);
    EXPECT_EQ(info.eventText, "");
}

class OnMachine : public SystemFixture, public ::testing::WithParamInterface<Machine (*)()> {};

// The answers follow the machine's files, through service, transport, library and the smallest of programs.
TEST_P(OnMachine, TheStateIsTheOneOfItsFiles)
{
    const Machine machine = GetParam()();
    WriteRealAbility(machine.name);
    StartManager();
    Child example = Child::Start({"veltra_minimal"});
    EXPECT_EQ(example.Pipe().Hear(), machine.printed);
    EXPECT_EQ(example.WaitForExit(), "exit 0");

    ExpectState(client_.GetDeviceInfo({}), machine.state);
    GameCallbackEventInfo levelOnly;
    levelOnly.tempLevel = machine.state.tempLevel;
    ExpectState(client_.GetDeviceInfo({{-1, {}}}), levelOnly);
    GameCallbackEventInfo withoutGpu = levelOnly;
    withoutGpu.thermalMargin = machine.state.thermalMargin;
    ExpectState(client_.GetDeviceInfo({{1, {{"any", "thing"}}}}), withoutGpu);
    EXPECT_EQ(client_.GetDeviceInfo(std::vector<QueryDeviceStateDetail>(65)).resultCode, BAD_REQUEST);

    std::map<std::string, std::string> query = {{"deviceState", ""}, {"gpuState", ""}, {"no such function", ""}};
    EXPECT_EQ(client_.GetSystemFunctionStatus(query), machine.functions);
    query.clear();
    EXPECT_EQ(client_.GetSystemFunctionStatus(query).size(), 7u);
    EXPECT_EQ(Starts(), 1);
}

INSTANTIATE_TEST_SUITE_P(Recorded, OnMachine, ::testing::Values(&Laptop, &Desktop, &Virtual),
                         [](const auto& machine) { return std::string(machine.param().name); });

class Programs : public ::testing::TestWithParam<const char*> {};

TEST_P(Programs, SayHowTheyAreUsed)
{
    const std::string program = GetParam();
    const std::string quoted = TestSupport::ProgramPath(program);
    Child help = Child::Start({program, "--help"});
    EXPECT_EQ(help.Pipe().Hear().value_or("").find("usage: " + program + " ["), 0u);
    EXPECT_EQ(help.WaitForExit(), "exit 0");
    Child version = Child::Start({program, "--version"});
    const std::string line = version.Pipe().Hear().value_or("");
    EXPECT_EQ(line.find(program + " "), 0u) << line;
    EXPECT_TRUE(::isdigit(line.back())) << line;
    EXPECT_EQ(version.WaitForExit(), "exit 0");
    for (const char* wrong : {"--no-such-option", "word"}) {
        Child refused = Child::Start({"/bin/sh", "-c", "exec \"$0\" \"$1\" 2>&1 >/dev/null", quoted, wrong});
        const std::string why = refused.Pipe().Hear().value_or("");
        EXPECT_NE(why.find(wrong + (wrong[0] == '-' ? 2 : 0)), std::string::npos) << why;
        EXPECT_EQ(refused.WaitForExit(), "exit 2");
    }
}

INSTANTIATE_TEST_SUITE_P(All, Programs, ::testing::Values("tavo_manager", "veltra_server"),
                         [](const auto& program) { return std::string(program.param); });

}  // namespace
}  // namespace SystemTest
