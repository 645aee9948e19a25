// SPDX-License-Identifier: Apache-2.0
// What the service does with requests: it tells what it knows and says so where it does not serve.
#include "veltra_service.h"

#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "service/push_receiver.h"
#include "service/request_items.h"
#include "service/scratch_root.h"
#include "service_result.h"
#include "support/process.h"

namespace TAVO::Veltra {
namespace {

using Texts = std::map<std::string, std::string>;

ServiceSetup MachineOf(const std::string& rootDir)
{
    ServiceSetup setup;
    setup.rootDir = rootDir;
    return setup;
}

sptr<VeltraService> Playing(const std::string& scenario, double speed = 1)
{
    const ScratchRoot root;
    root.Write("s.json", scenario);
    ServiceSetup setup;
    setup.scenario = std::make_shared<Scenario>(Scenario::Load(root.Path() + "/s.json", 0));
    setup.speed = speed;
    return new VeltraService(std::move(setup));
}

int32_t ResultOf(Sent sent)
{
    EXPECT_EQ(sent.status, 0);
    return sent.reply.ReadInt32();
}

TEST(VeltraService, WhatTheMachineDoesNotOfferIsRefused)
{
    const sptr<VeltraService> service(new VeltraService(MachineOf(RecordedRoot("virtual"))));
    PushReceiver counters(IGpuCounterNativeCallback::GetDescriptor());
    PushReceiver answers(IResourcePreDownloadNativeCallback::GetDescriptor());
    const struct {
        ServerCode code;
        Items items;
        int32_t result;
    } rows[] = {
        {ServerCode::UN_REGISTER_CALL_BACK, {}, SERVICE_NOT_SUBSCRIBED},
        {ServerCode::START_GET_GPU_PERF_INFO, {I32(1), Obj(counters.Object())}, SERVICE_NO_GPU_COUNTERS},
        {ServerCode::STOP_GET_GPU_PERF_INFO, {}, SERVICE_NOT_SUBSCRIBED},
        {ServerCode::QUERY_APP_RESOURCE_INFOS, {I32(1), Str("x"), Obj(answers.Object())}, SERVICE_NOT_SUPPORTED},
        {ServerCode::GET_APP_PRIORITYS, {I32(0), Obj(answers.Object())}, SERVICE_NOT_SUPPORTED},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(ResultOf(Sent(*service, row.code, row.items)), row.result) << static_cast<uint32_t>(row.code);
    }
    EXPECT_EQ(counters.Object()->DeathRecipients(), 0U);
}

TEST(VeltraService, ARegisteredClientIsToldTheStateUntilItUnregisters)
{
    const sptr<VeltraService> service(new VeltraService(MachineOf(RecordedRoot("virtual"))));
    PushReceiver first;
    PushReceiver second;
    const auto started = [](const std::string& push) {
        return push.substr(0, Push(IGpNapiEventCallback::GetDescriptor(), {Str("deviceState"), I32(2)}).size());
    };
    const std::string expected = Push(IGpNapiEventCallback::GetDescriptor(), {Str("deviceState"), I32(2)});
    EXPECT_EQ(ResultOf(Sent(*service, ServerCode::REGISTER_CALL_BACK, {Obj(first.Object())})), 0);
    ASSERT_GE(first.WaitFor(1).size(), 1U);
    EXPECT_EQ(started(first.WaitFor(1)[0]), expected);
    EXPECT_EQ(ResultOf(Sent(*service, ServerCode::REGISTER_CALL_BACK, {Obj(second.Object())})), 0);
    ASSERT_GE(second.WaitFor(1).size(), 1U);
    EXPECT_EQ(first.Object()->DeathRecipients(), 0U) << "two subscriptions of one process";
    EXPECT_EQ(ResultOf(Sent(*service, ServerCode::UN_REGISTER_CALL_BACK, {})), 0);
    EXPECT_EQ(second.Object()->DeathRecipients(), 0U);
    EXPECT_EQ(ResultOf(Sent(*service, ServerCode::UN_REGISTER_CALL_BACK, {})), SERVICE_NOT_SUBSCRIBED);
}

TEST(VeltraService, ADeadClientCannotSubscribeAndADyingOneIsForgotten)
{
    const sptr<VeltraService> service(new VeltraService(MachineOf(RecordedRoot("virtual"))));
    PushReceiver client;
    EXPECT_EQ(ResultOf(Sent(*service, ServerCode::REGISTER_CALL_BACK, {Obj(client.Object())})), 0);
    client.Object()->Die();
    EXPECT_EQ(ResultOf(Sent(*service, ServerCode::UN_REGISTER_CALL_BACK, {})), SERVICE_NOT_SUBSCRIBED);
    EXPECT_EQ(ResultOf(Sent(*service, ServerCode::REGISTER_CALL_BACK, {Obj(client.Object())})), SERVICE_NO_RESOURCES);
}

// The request has returned before its push goes out, however slow the client is.
TEST(VeltraService, NothingIsPushedFromARequest)
{
    const sptr<VeltraService> service(new VeltraService(MachineOf(RecordedRoot("virtual"))));
    PushReceiver client;
    client.Block();
    EXPECT_EQ(ResultOf(Sent(*service, ServerCode::REGISTER_CALL_BACK, {Obj(client.Object())})), 0);
    ASSERT_EQ(client.WaitFor(1).size(), 1U);
    EXPECT_EQ(ResultOf(Sent(*service, ServerCode::CALL_AUTH, {Str("")})), 0);
    EXPECT_EQ(ResultOf(Sent(*service, ServerCode::UN_REGISTER_CALL_BACK, {})), 0);
}

TEST(VeltraService, AScenarioSuppliesGpuCounters)
{
    const sptr<VeltraService> service =
        Playing(R"({"gpu": {"count": 2, "intervalSeconds": 0.5, "total": 4, "counters": {"fanPercent": 3}}})", 100);
    PushReceiver counters(IGpuCounterNativeCallback::GetDescriptor());
    EXPECT_EQ(ResultOf(Sent(*service, ServerCode::START_GET_GPU_PERF_INFO, {I32(0), Obj(counters.Object())})), 0);
    ASSERT_GE(counters.WaitFor(1).size(), 1U);
    EXPECT_EQ(counters.WaitFor(1)[0].size(),
              Push(IGpuCounterNativeCallback::GetDescriptor(), {I32(1), I32(2)}).size() + 2 * (4 + 84));
    EXPECT_EQ(ResultOf(Sent(*service, ServerCode::STOP_GET_GPU_PERF_INFO, {})), 0);
    EXPECT_EQ(counters.Object()->DeathRecipients(), 0U);
}

TEST(VeltraService, QueriesAreAnsweredFromTheCatalogue)
{
    ServiceSetup setup = MachineOf(RecordedRoot("virtual"));
    setup.catalogue = Catalogue::Load(VELTRA_SHARE "/catalogue.json");
    const sptr<VeltraService> service(new VeltraService(std::move(setup)));
    const std::u16string token = IResourcePreDownloadNativeCallback::GetDescriptor();
    PushReceiver answers(token);
    const Item object = Obj(answers.Object());
    const Item puzzle = Str("com.example.puzzle");
    const Item racer = Str("com.example.racer");
    EXPECT_EQ(ResultOf(Sent(*service, ServerCode::GET_APP_PRIORITYS, {I32(2), puzzle, racer, object})), 0);
    EXPECT_EQ(answers.WaitFor(1).back(), Push(token, {I32(2), racer, puzzle}));
    EXPECT_EQ(ResultOf(Sent(*service, ServerCode::QUERY_APP_RESOURCE_INFOS, {I32(1), puzzle, object})), 0);
    EXPECT_EQ(answers.WaitFor(2).back(), Push(token, {I32(1), I32(0)}));
    EXPECT_EQ(ResultOf(Sent(*service, ServerCode::QUERY_APP_RESOURCE_INFOS, {I32(1), racer, object})), 0);
    const std::string head = Push(token, {I32(1), I32(2), I32(1), racer, I32(1), I32(3), Str("tracks-alps")});
    EXPECT_EQ(answers.WaitFor(3).back().substr(0, head.size()), head);
}

TEST(VeltraService, AClientThatCallsAgainIsPushedToAgain)
{
    ServiceSetup setup = MachineOf(RecordedRoot("virtual"));
    setup.catalogue = Catalogue::Load(VELTRA_SHARE "/catalogue.json");
    const sptr<VeltraService> service(new VeltraService(std::move(setup)));
    PushReceiver answers(IResourcePreDownloadNativeCallback::GetDescriptor());
    answers.AnswerWith(IPC_TIMED_OUT);
    // A query that comes before the time-out is known is dropped with what waits; those after it get through.
    EXPECT_TRUE(TestSupport::WaitFor([&] {
        Sent(*service, ServerCode::GET_APP_PRIORITYS, {I32(0), Obj(answers.Object())});
        return answers.Count() >= 3;
    }));
}

TEST(VeltraService, AScenarioSpoilsRequestsAsItSays)
{
    const sptr<VeltraService> service = Playing(R"({"curves": {"tempLevel": 3}, "faults": [
        {"kind": "refuse", "operation": "CallAuth", "code": 77},
        {"kind": "refuse", "operation": "SyncAppType", "code": 78},
        {"kind": "shortReply", "operation": "QueryGameState"},
        {"kind": "badText", "text": "no JSON"}]})");
    EXPECT_EQ(ResultOf(Sent(*service, ServerCode::CALL_AUTH, {Str("")})), 77);
    EXPECT_EQ(Sent(*service, ServerCode::SYNC_APP_TYPE, {Str(""), I32(0)}).status, 78);
    EXPECT_EQ(Bytes(Sent(*service, ServerCode::QUERY_GAME_STATE, {}).reply), Bytes(Items{I32(0), I32(2)}));
    EXPECT_EQ(Bytes(Sent(*service, ServerCode::GET_DEVICE_INFO, {I32(0)}).reply), Bytes(Items{I32(0), Str("no JSON")}));
}

TEST(VeltraService, GameStateIsWhatTheGameReportedLastByWhicheverWay)
{
    VeltraService service(MachineOf(RecordedRoot("virtual")));
    GameState state{9, "before"};
    EXPECT_EQ(service.QueryGameState(state), 0);
    EXPECT_EQ(state.state, 2);
    EXPECT_EQ(state.bundleName, "");

    EXPECT_EQ(service.UpdateGameInfo(1, "com.game", 60), 0);
    EXPECT_EQ(service.QueryGameState(state), 0);
    EXPECT_EQ(state.state, 1);
    EXPECT_EQ(state.bundleName, "com.game");

    GameInfo info;
    info.int32Value = 7;
    service.ReportGameEvent(info);
    EXPECT_EQ(service.QueryGameState(state), 0);
    EXPECT_EQ(state.state, 7);
    EXPECT_EQ(state.bundleName, "com.game");
}

TEST(VeltraService, BundleNamesThatAreKeptAreBounded)
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
}

TEST(VeltraService, AppTypesTellWhichNamesAreGames)
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
    } rows[] = {
        {RecordedRoot("desktop"), "supported", "supported"},
        {RecordedRoot("virtual"), "supported", "unsupported"},
        {"/nonexistent", "unsupported", "unsupported"},
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
        EXPECT_EQ(all["gpuCounters"], "unsupported");
        EXPECT_EQ(all["resourcePreDownload"], "unsupported");
        Texts some = {{"gameState", ""}, {"teleport", "x"}};
        EXPECT_EQ(service.GetSystemFunctionStatus(some), (Texts{{"gameState", "supported"}}));
    }
}

TEST(VeltraService, PlainReportsAreAccepted)
{
    VeltraService service(MachineOf(RecordedRoot("virtual")));
    GameSceneBundle bundle;
    std::vector<AppResourceDownLoadResult> results(2);
    EXPECT_EQ(service.CallAuth("com.game"), 0);
    EXPECT_EQ(service.NotifyGameEvent(bundle), 0);
    EXPECT_EQ(service.NotifyAppResourceDownLoadResults(results), 0);
    EXPECT_EQ(service.ReportRenderThread("com.game", "render", 4711), 0);
    EXPECT_EQ(service.ReportRenderThread("com.game", "render", 0), SERVICE_BAD_REQUEST);
}

TEST(VeltraService, DeviceInfoComesFromItsRoot)
{
    Sent desktop(*sptr<VeltraService>(new VeltraService(MachineOf(RecordedRoot("desktop")))),
                 ServerCode::GET_DEVICE_INFO, {I32(0)});
    EXPECT_EQ(desktop.reply.ReadInt32(), 0);
    EXPECT_NE(desktop.reply.ReadString().find("hwmon amdgpu/temp1"), std::string::npos);
    Sent nothing(*sptr<VeltraService>(new VeltraService(MachineOf("/nonexistent"))), ServerCode::GET_DEVICE_INFO,
                 {I32(0)});
    EXPECT_EQ(Bytes(nothing.reply), Bytes(Items{I32(SERVICE_NO_SENSOR)}));
}

}  // namespace
}  // namespace TAVO::Veltra
