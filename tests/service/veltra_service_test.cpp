// SPDX-License-Identifier: Apache-2.0
// What the service does with requests: it answers what it knows and refuses what it does not serve.
#include "veltra_service.h"

#include <sys/resource.h>
#include <unistd.h>

#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "service/push_receiver.h"
#include "service/sent_request.h"
#include "service_result.h"
#include "support/log_capture.h"
#include "support/process.h"
#include "support/scratch_dir.h"

namespace TAVO::Veltra {
namespace {

using Texts = std::map<std::string, std::string>;

ServiceSetup MachineOf(const std::string& rootDir)
{
    ServiceSetup setup;
    setup.rootDir = rootDir;
    return setup;
}

std::string RecordedRoot(const std::string& machine)
{
    return VELTRA_TEST_ROOTS "/" + machine;
}

sptr<VeltraService> OnMachine(const std::string& name)
{
    return new VeltraService(MachineOf(RecordedRoot(name)));
}

int32_t ResultOf(VeltraService& service, ServerCode code, const Items& items)
{
    Sent sent(service, code, items);
    EXPECT_EQ(sent.status, 0);
    return sent.reply.ReadInt32();
}

TEST(VeltraService, OperationsThatTheMachineDoesNotOfferAreRefused)
{
    const sptr<VeltraService> service = OnMachine("virtual");
    PushReceiver counters(IGpuCounterNativeCallback::GetDescriptor());
    PushReceiver answers(IResourcePreDownloadNativeCallback::GetDescriptor());
    const struct {
        ServerCode code;
        Items items;
        int32_t result;
    } rows[] = {
        {ServerCode::UN_REGISTER_CALL_BACK, {}, SERVICE_NOT_SUBSCRIBED},
        {ServerCode::START_GET_GPU_PERF_INFO, {1, counters.Object()}, SERVICE_NO_GPU_COUNTERS},
        {ServerCode::STOP_GET_GPU_PERF_INFO, {}, SERVICE_NOT_SUBSCRIBED},
        {ServerCode::QUERY_APP_RESOURCE_INFOS, {1, "x", answers.Object()}, SERVICE_NOT_SUPPORTED},
        {ServerCode::GET_APP_PRIORITYS, {0, answers.Object()}, SERVICE_NOT_SUPPORTED},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(ResultOf(*service, row.code, row.items), row.result) << static_cast<uint32_t>(row.code);
    }
    EXPECT_EQ(counters.Object()->DeathRecipients(), 0U);
}

TEST(VeltraService, OneSubscriptionOfAProcessIsKeptUntilItEnds)
{
    const sptr<VeltraService> service = OnMachine("virtual");
    PushReceiver first;
    PushReceiver second;
    const std::string state = Push(IGpNapiEventCallback::GetDescriptor(), {"deviceState", -1});
    EXPECT_EQ(ResultOf(*service, ServerCode::REGISTER_CALL_BACK, {first.Object()}), 0);
    ASSERT_GE(first.WaitFor(1).size(), 1U);
    EXPECT_EQ(first.WaitFor(1)[0].substr(0, state.size()), state);
    EXPECT_EQ(ResultOf(*service, ServerCode::REGISTER_CALL_BACK, {second.Object()}), 0);
    EXPECT_EQ(first.Object()->DeathRecipients(), 0U) << "two subscriptions of one process";
    EXPECT_EQ(ResultOf(*service, ServerCode::UN_REGISTER_CALL_BACK, {}), 0);
    EXPECT_EQ(second.Object()->DeathRecipients(), 0U);
    EXPECT_EQ(ResultOf(*service, ServerCode::UN_REGISTER_CALL_BACK, {}), SERVICE_NOT_SUBSCRIBED);
    EXPECT_EQ(ResultOf(*service, ServerCode::REGISTER_CALL_BACK, {first.Object()}), 0);
    first.Object()->Die();
    EXPECT_EQ(ResultOf(*service, ServerCode::UN_REGISTER_CALL_BACK, {}), SERVICE_NOT_SUBSCRIBED);
    EXPECT_EQ(ResultOf(*service, ServerCode::REGISTER_CALL_BACK, {first.Object()}), SERVICE_NO_RESOURCES);
}

// The request has returned before its push goes out, however slow the client is.
TEST(VeltraService, NothingIsPushedFromARequest)
{
    const sptr<VeltraService> service = OnMachine("virtual");
    PushReceiver client;
    client.Block();
    EXPECT_EQ(ResultOf(*service, ServerCode::REGISTER_CALL_BACK, {client.Object()}), 0);
    ASSERT_EQ(client.WaitFor(1).size(), 1U);
    EXPECT_EQ(ResultOf(*service, ServerCode::CALL_AUTH, {""}), 0);
    EXPECT_EQ(ResultOf(*service, ServerCode::UN_REGISTER_CALL_BACK, {}), 0);
}

TEST(VeltraService, AClientThatCallsAgainIsPushedToAgain)
{
    ServiceSetup setup = MachineOf(RecordedRoot("virtual"));
    setup.catalogue = Catalogue::Load(VELTRA_SHARE "/catalogue.json");
    const sptr<VeltraService> service(new VeltraService(std::move(setup)));
    PushReceiver answers(IResourcePreDownloadNativeCallback::GetDescriptor());
    answers.AnswerWith(IPC_TIMED_OUT);
    // A query that comes before the time-out is known is dropped with the queued ones; later ones arrive.
    EXPECT_TRUE(TestSupport::WaitFor([&] {
        Sent(*service, ServerCode::GET_APP_PRIORITYS, {0, answers.Object()});
        return answers.Count() >= 3;
    }));
}

// A slip in a user's configuration must not cost every game the service.
TEST(VeltraService, ConfigurationFileWithAMistakeIsLoggedAndIgnored)
{
    const ScratchDir root;
    ServiceSetup setup = MachineOf(RecordedRoot("laptop"));
    setup.lateConfigFiles = [&root] {
        return std::vector<std::string>{root.Write("good.json", R"({"sensors": {"exclude": ["*"]}})"),
                                        root.Write("bad.json", "{\n\"sensor\": {}}")};
    };
    const sptr<VeltraService> service(new VeltraService(std::move(setup)));
    const LogCapture log;
    for (int query = 0; query < 2; ++query) {
        Sent sent(*service, ServerCode::GET_DEVICE_INFO, {0});
        EXPECT_EQ(sent.reply.ReadInt32(), 0);
        EXPECT_NE(sent.reply.ReadString().find(R"("tempLevel":-1)"), std::string::npos) << "the other file counts";
    }
    EXPECT_EQ(log.Count("bad.json: sensor: there is no such key (line 2)"), 1);
}

TEST(VeltraService, RequestsWithoutFreeDescriptorsDoNotSpoilLaterOnes)
{
    const ScratchDir root;
    const std::string config = root.Write("c.json", R"({"sensors": {"exclude": ["*"]}})");
    ServiceSetup setup = MachineOf(RecordedRoot("laptop"));
    // The sanitizer of undefined behaviour needs a descriptor to check the first object of each type.
    setup.lateConfigFiles = [&] { return std::vector{config, root.Path() + "/missing"}; };
    VeltraService(setup).GetDeviceInfo({});
    for (const bool hasConfig : {true, false}) {
        setup.lateConfigFiles = [&] { return hasConfig ? std::vector{config} : std::vector<std::string>(); };
        VeltraService service(setup);
        rlimit limit{};
        ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
        const rlimit none{0, limit.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
        EXPECT_EQ(service.GetDeviceInfo({}).retCode, SERVICE_NO_SENSOR);
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
        const std::string level = hasConfig ? R"("tempLevel":-1)" : R"("tempLevel":2)";
        const std::string text = service.GetDeviceInfo({}).result;
        EXPECT_NE(text.find(level), std::string::npos) << text;
    }
}

TEST(VeltraService, AScenarioSpoilsRequestsAsItSays)
{
    const ScratchDir root;
    const std::string file = root.Write("s.json", R"({"curves": {"tempLevel": 3}, "faults": [
        {"kind": "refuse", "operation": "CallAuth", "code": 77},
        {"kind": "refuse", "operation": "SyncAppType", "code": 78},
        {"kind": "shortReply", "operation": "QueryGameState"},
        {"kind": "badText", "text": "no JSON"}]})");
    ServiceSetup setup;
    setup.scenario = std::make_shared<Scenario>(Scenario::Load(file, 0));
    const sptr<VeltraService> service(new VeltraService(std::move(setup)));
    EXPECT_EQ(ResultOf(*service, ServerCode::CALL_AUTH, {""}), 77);
    EXPECT_EQ(Sent(*service, ServerCode::SYNC_APP_TYPE, {"", 0}).status, 78);
    EXPECT_EQ(Bytes(Sent(*service, ServerCode::QUERY_GAME_STATE, {}).reply), Bytes(Items{0, 2}));
    EXPECT_EQ(Bytes(Sent(*service, ServerCode::GET_DEVICE_INFO, {0}).reply), Bytes(Items{0, "no JSON"}));
}

TEST(VeltraService, TheStateHasTheCallersOwnUseOfTheGpu)
{
    const ScratchDir root;
    root.Write("proc/" + std::to_string(getpid()) + "/fdinfo/5", "drm-driver:\txe\ndrm-total-vram0:\t8 KiB\n");
    VeltraService service(MachineOf(root.Path()));
    const std::string text = service.GetDeviceInfo({}).result;
    EXPECT_NE(text.find("\"gameGpuMemoryBytes\":8192"), std::string::npos) << text;
}

TEST(VeltraService, BundleNamesAndThreadsHaveTheirBounds)
{
    VeltraService service(MachineOf(RecordedRoot("virtual")));
    const std::string longest(VeltraService::MAX_BUNDLE_NAME_BYTES, 'x');
    EXPECT_EQ(service.UpdateGameInfo(1, longest, 0), 0);
    EXPECT_EQ(service.UpdateGameInfo(3, longest + "x", 0), SERVICE_BAD_REQUEST);
    GameInfo info;
    info.int32Value = 4;
    info.text1 = longest + "x";
    service.ReportGameEvent(info);
    GameState state;
    service.QueryGameState(state);
    EXPECT_EQ(state.state, 1);
    EXPECT_EQ(state.bundleName, longest);
    EXPECT_EQ(service.ReportRenderThread("com.game", "render", 1), 0);
    EXPECT_EQ(service.ReportRenderThread("com.game", "render", 0), SERVICE_BAD_REQUEST);
}

TEST(VeltraService, AppTypesListWhichNamesAreGames)
{
    VeltraService service(MachineOf(RecordedRoot("virtual")));
    using Types = std::map<std::string, bool>;
    EXPECT_EQ(service.SyncAppType("", 0), Types());
    ASSERT_EQ(service.UpdateGameInfo(1, "com.game", 60), 0);
    EXPECT_EQ(service.SyncAppType("", 0), (Types{{"com.game", true}}));
    EXPECT_EQ(service.SyncAppType("com.mail,com.game", 0), (Types{{"com.game", true}, {"com.mail", false}}));
    EXPECT_EQ(service.SyncAppType(",,com.game,,com.game,", 5), (Types{{"com.game", true}}));
    EXPECT_EQ(service.SyncAppType(",", 0), Types());
    std::string many;
    std::set<std::string> games;
    for (int i = 0; i < 1100; ++i) {
        many += std::to_string(i) + ',';
        games.insert(std::to_string(i));
    }
    EXPECT_EQ(service.SyncAppType(many, 0).size(), 1000U);
    EXPECT_EQ(VeltraService::AppTypes(games, "").size(), 1000U) << "clients read no more";
}

TEST(VeltraService, FunctionStatusFollowsTheMachine)
{
    const struct {
        std::string root;
        const char* deviceState;
        const char* gpuState;
        const char* gpuCounters;
    } rows[] = {
        {RecordedRoot("desktop"), "supported", "supported", "supported"},
        {RecordedRoot("server"), "supported", "unsupported", "unsupported"},
        {RecordedRoot("virtual"), "supported", "unsupported", "unsupported"},
        {"/nonexistent", "unsupported", "unsupported", "unsupported"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.root);
        VeltraService service(MachineOf(row.root));
        Texts everything;
        Texts all = service.GetSystemFunctionStatus(everything);
        EXPECT_EQ(all.size(), 7U);
        EXPECT_EQ(all["deviceState"], row.deviceState);
        EXPECT_EQ(all["gpuState"], row.gpuState);
        EXPECT_EQ(all["gameState"], "supported");
        EXPECT_EQ(all["gameEvents"], "supported");
        EXPECT_EQ(all["gpuCounters"], row.gpuCounters);
        EXPECT_EQ(all["resourcePreDownload"], "unsupported");
        Texts some = {{"gameState", ""}, {"teleport", "x"}};
        EXPECT_EQ(service.GetSystemFunctionStatus(some), (Texts{{"gameState", "supported"}}));
    }
    const ScratchDir root;
    VeltraService service(MachineOf(root.Path()));
    Texts counters = {{"gpuCounters", ""}};
    EXPECT_EQ(service.GetSystemFunctionStatus(counters), (Texts{{"gpuCounters", "unsupported"}}));
    root.Write("sys/class/drm/card0/device/gpu_busy_percent", "37\n");
    EXPECT_EQ(service.GetSystemFunctionStatus(counters), (Texts{{"gpuCounters", "supported"}})) << "plugged in";
}

}  // namespace
}  // namespace TAVO::Veltra
