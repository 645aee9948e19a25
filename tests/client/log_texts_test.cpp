// SPDX-License-Identifier: Apache-2.0
// The lines that the client logs itself, word for word: watchers of the log search for these texts.
#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "client/client_test.h"
#include "client/veltra_custom_proxy.h"
#include "client/veltra_sa_load_callback.h"
#include "support/game_callbacks.h"
#include "support/log_capture.h"

namespace TAVO::Veltra {
namespace {

constexpr char SCENE_RESULT[] = "ret is %{public}d, result is %{public}d";
const Line CHECK_FAILED = Warn("Check systemAbility not exist and try to release veltra_server proxy.");
const Line TRY_LOAD = Info("Try load systemAbility.");
const Line NO_MANAGER = Error("Get SystemAbilityManager failed.");

class LogTextsTest : public ClientTest {};

TEST_F(LogTextsTest, Connection)
{
    ExpectLines({"GetServiceProxy"}, {CHECK_FAILED, TRY_LOAD, Warn("Failed to load systemAbility.")},
                [this] { proxy_.GetServiceProxy(); });

    const auto service = MakeRef<FakeRemoteObject>();
    VeltraSaLoadCallback callback;
    const Line loaded = Info("Load system ability successed!");
    ExpectLines({"LoadSystemAbilitySuccess", "OnLoadSystemAbilitySuccess"},
                {Info("Load systemAbility success\xef\xbc\x8c but remoteObject is null."), loaded},
                [&] { callback.OnLoadSystemAbilitySuccess(66006, nullptr); });
    ExpectLines({"OnLoadSystemAbilitySuccess"}, {loaded}, [&] { callback.OnLoadSystemAbilitySuccess(66006, service); });
    ExpectLines({"OnLoadSystemAbilitySuccess"}, {Info("system ability is not veltra_server:%d", {"7"})},
                [&] { callback.OnLoadSystemAbilitySuccess(7, service); });
    ExpectLines({"OnRemoteDied", "OnRemoteSaDead"}, {Info("Remote systemAbility dead."), Info("OnRemoteSaDead")},
                [&] { service->Die(); });
    ExpectLines({"OnLoadSystemAbilityFail"}, {Info("Load system ability failed!")},
                [&] { callback.OnLoadSystemAbilityFail(66006); });
    ExpectLines({"OnLoadSystemAbilityFail"}, {Warn("system ability is not veltra_server:%d", {"7"})},
                [&] { callback.OnLoadSystemAbilityFail(7); });

    // The time-out line stands with the test of the wait. The report's own line may come before or after the waiter's.
    ReportSuccessOnLoad(66006, MakeRef<FakeRemoteObject>());
    const Line waiter[] = {CHECK_FAILED, TRY_LOAD, Info("Load systemAbility succeeded.")};
    size_t said = 0;
    const LogCapture log;
    proxy_.GetServiceProxy();
    manager_->WaitForReports();
    for (const LogLine& line : log.Lines()) {
        if (line.text.find("[(GetServiceProxy:") == 0) {
            ASSERT_LT(said, std::size(waiter));
            EXPECT_EQ(line.level, waiter[said].level);
            EXPECT_EQ(line.format, "[%{public}s(%{public}s:%{public}d)]" + waiter[said++].text);
        }
    }
    EXPECT_EQ(said, std::size(waiter));
}

TEST_F(LogTextsTest, ConnectionWithoutAManager)
{
    FakeAbilityManager::Remove();
    ExpectLines({"GetServiceProxy"}, {NO_MANAGER}, [this] { proxy_.GetServiceProxy(); });
}

TEST_F(LogTextsTest, Operations)
{
    RunAnswering(5);
    GameSceneBundle bundle;
    ExpectLines({"NotifyGameEvent"},
                {Info(SCENE_RESULT, {"0", "5"}), Debug("serviceProxy NotifyGameEvent ret=[%{public}d]", {"5"})},
                [&] { proxy_.NotifyGameEvent(bundle); });
    std::vector<AppResourceDownLoadResult> results;
    ExpectLines({"NotifyAppResourceDownLoadResults"},
                {Error("NotifyAppResourceDownLoadResults failed! [%{public}d] ret!", {"5"})},
                [&] { proxy_.NotifyAppResourceDownLoadResults(results); });
    FakeAbilityManager::Remove();
    ExpectLines({"GetServiceProxy", "NotifyAppResourceDownLoadResults"},
                {NO_MANAGER, Error("get veltraServerProxy failed!")},
                [&] { proxy_.NotifyAppResourceDownLoadResults(results); });
    // The others say nothing of their own about a missing service, nor about a document.
    ExpectLines({"GetServiceProxy"}, {NO_MANAGER, NO_MANAGER, NO_MANAGER}, [&] {
        proxy_.CallAuth("");
        proxy_.ReportRenderThread("", "", 0);
        proxy_.GetDeviceInfo({});
    });
    GameCallbackEventInfo info;
    ExpectLines({""}, {}, [&] { proxy_.AssembleDeviceStateResponse("[", info); });
}

// The service proxy says that it unregistered and stopped before it knows; the client speaks afterwards.
TEST_F(LogTextsTest, GameEventRegistration)
{
    const auto callback = [] { return std::make_unique<EventFunction>([](auto&) { return 0; }); };
    const Line unregistered = Info("UnRegisterCallBack success!");
    RunAnswering(0);
    ExpectLines({"UnRegisterGameCallback"}, {Warn("not register!")}, [this] { proxy_.UnRegisterGameCallback(1); });
    ExpectLines({"RegisterGameCallback"}, {Info("register callback success!")},
                [&] { proxy_.RegisterGameCallback(callback(), 1); });
    const Line joins = Warn("already register to SA, try to add callback list");
    ExpectLines({"RegisterGameCallback"}, {joins}, [&] { proxy_.RegisterGameCallback(callback(), 2); });
    ExpectLines({"RegisterGameCallback", "AddCallback"}, {joins, Warn("the callback from framework is nullptr")},
                [this] { proxy_.RegisterGameCallback(nullptr, 3); });
    ExpectLines({""}, {}, [this] { proxy_.UnRegisterGameCallback(1); });
    ExpectLines({"UnRegisterCallBack", "UnRegisterGameCallback"}, {unregistered, unregistered},
                [this] { proxy_.UnRegisterGameCallback(2); });

    proxy_.RegisterGameCallback(callback(), 1);
    RunAnswering(9);
    ExpectLines({"UnRegisterCallBack", "UnRegisterGameCallback"}, {unregistered, Warn("unregister failed!")},
                [this] { proxy_.UnRegisterGameCallback(1); });
    ExpectLines({""}, {}, [&] { proxy_.RegisterGameCallback(callback(), 1); });

    RunService([&](uint32_t, MessageParcel&, MessageParcel& reply) {  // the game registers twice at once
        RunAnswering(0);
        proxy_.RegisterGameCallback(callback(), 2);
        reply.WriteInt32(9);
        return 0;
    });
    proxy_.RegisterGameCallback(callback(), 1);
    ExpectLines({"UnRegisterGameCallback"}, {Warn("callbackPtr_ is nullptr!")},
                [this] { proxy_.UnRegisterGameCallback(1); });
}

TEST_F(LogTextsTest, OtherSubscriptions)
{
    std::vector<std::string> names = {"app"};
    RunAnswering(0);
    ExpectLines({"StopGetGpuPerfInfo"}, {Info("StopGetGpuPerfInfo success!")}, [&] {
        proxy_.StartGetGpuPerfInfo(1, nullptr);
        proxy_.StopGetGpuPerfInfo();
        proxy_.QueryAppResourceInfos(names, nullptr);
        proxy_.GetAppPrioritys(names, nullptr);
    });
    RunAnswering(9);
    ExpectLines({"StartGetGpuPerfInfo"}, {Info("serviceProxy StartGetGpuPerfInfo[%{public}d] ret!", {"9"})},
                [this] { proxy_.StartGetGpuPerfInfo(1, nullptr); });
    ExpectLines({"StopGetGpuPerfInfo"},
                {Info("StopGetGpuPerfInfo success!"), Info("serviceProxy StopGetGpuPerfInfo[%{public}d] ret!", {"9"})},
                [this] { proxy_.StopGetGpuPerfInfo(); });
    ExpectLines({"QueryAppResourceInfos"}, {Error("serviceProxy QueryAppResourceInfos ret=[%{public}d]", {"9"})},
                [&] { proxy_.QueryAppResourceInfos(names, nullptr); });
    ExpectLines({"GetAppPrioritys"}, {Error("GetAppPrioritys failed! [%{public}d] ret!", {"9"})},
                [&] { proxy_.GetAppPrioritys(names, nullptr); });

    FakeAbilityManager::Remove();
    ExpectLines({"GetServiceProxy", "GetAppPrioritys"}, {NO_MANAGER, Error("get veltraServerProxy failed!")},
                [&] { proxy_.GetAppPrioritys(names, nullptr); });
    ExpectLines({"GetServiceProxy"}, {NO_MANAGER, NO_MANAGER, NO_MANAGER, NO_MANAGER}, [&] {
        proxy_.RegisterGameCallback(nullptr, 1);
        proxy_.StartGetGpuPerfInfo(1, nullptr);
        proxy_.StopGetGpuPerfInfo();
        proxy_.QueryAppResourceInfos(names, nullptr);
    });
}

TEST_F(LogTextsTest, GameState)
{
    VeltraCustomProxy custom;
    GameState state;
    const Line noGame = Info("No games exists.");
    ExpectLines({"GetServiceProxy", "QueryGameState"}, {CHECK_FAILED, noGame}, [&] { custom.QueryGameState(state); });
    FakeAbilityManager::Remove();
    ExpectLines({"GetServiceProxy", "QueryGameState"}, {NO_MANAGER, noGame}, [&] { custom.QueryGameState(state); });
}

}  // namespace
}  // namespace TAVO::Veltra
