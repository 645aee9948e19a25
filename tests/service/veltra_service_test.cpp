// SPDX-License-Identifier: Apache-2.0
// What the service does with requests: it tells what it knows and says so where it does not serve.
#include "veltra_service.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "service/request_items.h"
#include "service/scratch_root.h"
#include "service_result.h"

namespace TAVO::Veltra {
namespace {

using Texts = std::map<std::string, std::string>;

TEST(VeltraService, OperationsThatItDoesNotOfferSaySoAndKeepNothing)
{
    VeltraService service(RecordedRoot("virtual"));
    std::vector<std::string> names = {"x"};
    EXPECT_EQ(service.RegisterCallBack(nullptr), SERVICE_NOT_SUPPORTED);
    EXPECT_EQ(service.UnRegisterCallBack(), SERVICE_NOT_SUPPORTED);
    EXPECT_EQ(service.StartGetGpuPerfInfo(1, nullptr), SERVICE_NOT_SUPPORTED);
    EXPECT_EQ(service.StopGetGpuPerfInfo(), SERVICE_NOT_SUPPORTED);
    EXPECT_EQ(service.QueryAppResourceInfos(names, nullptr), SERVICE_NOT_SUPPORTED);
    EXPECT_EQ(service.GetAppPrioritys(names, nullptr), SERVICE_NOT_SUPPORTED);
}

TEST(VeltraService, GameStateIsWhatTheGameReportedLastByWhicheverWay)
{
    VeltraService service(RecordedRoot("virtual"));
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
    VeltraService service(RecordedRoot("virtual"));
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
    VeltraService service(RecordedRoot("virtual"));
    using Types = std::map<std::string, bool>;
    EXPECT_EQ(service.SyncAppType("", 0), Types());
    ASSERT_EQ(service.UpdateGameInfo(1, "com.game", 60), 0);
    EXPECT_EQ(service.SyncAppType("", 0), (Types{{"com.game", true}}));
    EXPECT_EQ(service.SyncAppType("com.mail,com.game", 0), (Types{{"com.game", true}, {"com.mail", false}}));
    EXPECT_EQ(service.SyncAppType(",,com.game,,com.game,", 5), (Types{{"com.game", true}}));
    EXPECT_EQ(service.SyncAppType(",", 0), Types());
    std::string many;
    for (int i = 0; i < 1100; ++i) {
        many += std::to_string(i) + ',';
    }
    EXPECT_EQ(service.SyncAppType(many, 0).size(), 1000U);
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
        VeltraService service(row.root);
        Texts everything;
        Texts all = service.GetSystemFunctionStatus(everything);
        EXPECT_EQ(all.size(), 7U);
        EXPECT_EQ(all["deviceState"], row.deviceState);
        EXPECT_EQ(all["gpuState"], row.gpuState);
        EXPECT_EQ(all["gameState"], "supported");
        EXPECT_EQ(all["gpuCounters"], "unsupported");
        Texts some = {{"gameState", ""}, {"teleport", "x"}};
        EXPECT_EQ(service.GetSystemFunctionStatus(some), (Texts{{"gameState", "supported"}}));
    }
}

TEST(VeltraService, PlainReportsAreAccepted)
{
    VeltraService service(RecordedRoot("virtual"));
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
    Sent desktop(*sptr<VeltraService>(new VeltraService(RecordedRoot("desktop"))), ServerCode::GET_DEVICE_INFO,
                 {I32(0)});
    EXPECT_EQ(desktop.reply.ReadInt32(), 0);
    EXPECT_NE(desktop.reply.ReadString().find("hwmon amdgpu/temp1"), std::string::npos);
    Sent nothing(*sptr<VeltraService>(new VeltraService("/nonexistent")), ServerCode::GET_DEVICE_INFO, {I32(0)});
    EXPECT_EQ(Bytes(nothing.reply), Bytes(Items{I32(SERVICE_NO_SENSOR)}));
}

}  // namespace
}  // namespace TAVO::Veltra
