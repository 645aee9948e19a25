// SPDX-License-Identifier: Apache-2.0
// Every line that the library logs, word for word: watchers of the log search for these texts.
#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "client/client_test.h"
#include "client/veltra_custom_proxy.h"
#include "client/veltra_sa_load_callback.h"
#include "ipc/server_operations.h"
#include "support/game_callbacks.h"
#include "support/log_capture.h"
#include "support/log_lines.h"

namespace TAVO::Veltra {
namespace {

struct RequestTexts {
    const char* operation;
    const char* remoteNull;  // null: not tested, a dead object to the sending
    const char* sendFailed;  // null: no line of its own
    const char* tokenRefused = "write descriptor fail";
};

const RequestTexts REQUEST_TEXTS[] = {
    {"RegisterCallBack", "UnRegisterCallBack Remote is null",
     "function RegisterCallBack call failed! errCode:%{public}d"},
    {"UnRegisterCallBack", "UnRegisterCallBack Remote is null",
     "function UnRegisterCallBack call failed! errCode:%{public}d"},
    {"UpdateGameInfo", "Remote is null", "function UpdateGameInfo call failed! errCode:%{public}d"},
    {"CallAuth", "Remote is null", "function CallAuth call failed! errCode:%{public}d"},
    {"ReportGameEvent", nullptr, "Veltra ReportGameEvent call remote failed. ret[%{public}d]"},
    {"SyncAppType", nullptr, "Veltra SyncAppType call remote failed. ret[%{public}d]"},
    {"ReportRenderThread", nullptr, "Veltra ReportGameRenderThread call remote failed. ret[%{public}d]"},
    {"RegisterCallbackForGraphic", "RegisterCallBackForGraphic Remote is null",
     "function RegisterCallBackForGraphic call failed! errCode:%{public}d"},
    {"StartGetGpuPerfInfo", "StartGetGpuPerfInfo Remote is null",
     "function StartGetGpuPerfInfo call failed! errCode:%{public}d"},
    {"StopGetGpuPerfInfo", "StopGetGpuPerfInfo Remote is null",
     "function StopGetGpuPerfInfo call failed! errCode:%{public}d"},
    {"GetSystemFunctionStatus", "GetSystemFunctionStatus Remote is null",
     "function GetSystemFunctionStatus call failed! errCode:%{public}d"},
    {"QueryGameState", "[Proxy] Remote is null", "[Proxy] send request failed! errCode:%{public}d",
     "[Proxy]write descriptor fail"},
    {"NotifyGameEvent", "StopGetGpuPerfInfo Remote is null", nullptr, "Write interface token error!"},
    {"GetDeviceInfo", "GetDeviceInfo Remote is null", "function GetDeviceInfo call failed! errCode:%{public}d"},
    {"QueryAppResourceInfos", "QueryAppResourceInfos Remote is null",
     "function QueryAppResourceInfos call failed! errCode:%{public}d"},
    {"GetAppPrioritys", "GetAppPrioritys Remote is null", "function GetAppPrioritys call failed! errCode:%{public}d",
     "GetAppPrioritys write descriptor fail"},
    {"NotifyAppResourceDownLoadResults", "NotifyAppResourceDownLoadResults Remote is null",
     "function NotifyAppResourceDownLoadResults call failed! errCode:%{public}d",
     "NotifyAppResourceDownLoadResults write descriptor fail"},
};

struct ReplyTexts {
    const char* operation;
    Items reply;
    int status;
    std::vector<Line> lines;
};

// What is not named here says nothing.
const ReplyTexts REPLY_TEXTS[] = {
    {"RegisterCallBack", {1}, 0, {}},
    {"UnRegisterCallBack", {1}, 0, {Info("UnRegisterCallBack success!")}},
    {"UpdateGameInfo",
     {5},
     0,
     {Info("function UpdateGameInfo call reply:%{public}d", "function UpdateGameInfo call reply:5")}},
    {"CallAuth", {5}, 0, {Info("function callAuth reply:%{public}d", "function callAuth reply:5")}},
    {"SyncAppType", {1000}, 0, {}},
    {"SyncAppType",
     {1001},
     0,
     {Warn("[SyncTask]sync app type count over max. count[%{public}d] will be set max[%{public}d]",
           "[SyncTask]sync app type count over max. count[1001] will be set max[1000]")}},
    {"GetSystemFunctionStatus", {150}, 0, {}},
    {"StartGetGpuPerfInfo", {1}, 0, {}},
    {"StopGetGpuPerfInfo", {1}, 0, {Info("StopGetGpuPerfInfo success!")}},
    {"QueryGameState",
     {0, 3, std::string("com.game")},
     0,
     {Info("[Proxy] state:%{public}d, bundleName:%{public}s", "[Proxy] state:3, bundleName:com.game")}},
    {"QueryGameState",
     {9},
     0,
     {Error("[Proxy] call sa failed! retCode:%{public}d", "[Proxy] call sa failed! retCode:0")}},
    {"NotifyGameEvent", {5}, 0, {Info("ret is %{public}d, result is %{public}d", "ret is 0, result is 5")}},
    {"NotifyGameEvent", {5}, -32, {Info("ret is %{public}d, result is %{public}d", "ret is -32, result is 5")}},
    {"GetDeviceInfo",
     {0, std::string("{}")},
     0,
     {Info("GetDeviceInfo success, result=%{public}s", "GetDeviceInfo success, result={}")}},
    {"GetDeviceInfo",
     {5},
     0,
     {Error("proxy GetDeviceInfo failed! retCode:%{public}d", "proxy GetDeviceInfo failed! retCode:5")}},
    {"QueryAppResourceInfos", {5}, 0, {}},
    {"GetAppPrioritys", {5}, 0, {}},
    {"NotifyAppResourceDownLoadResults", {5}, 0, {}},
};

void Call(const std::string& operation, VeltraServerProxy& proxy)
{
    const auto& operations = ServerOperations();
    const auto found = std::find_if(operations.begin(), operations.end(),
                                    [&](const ServerOperation& candidate) { return candidate.name == operation; });
    ASSERT_NE(found, operations.end());
    found->call(proxy);
}

TEST(LogTexts, RequestsThatCannotBeSent)
{
    ASSERT_EQ(std::size(REQUEST_TEXTS), ServerOperations().size());
    const size_t limit = Parcel::DefaultCapacityLimit();
    for (const RequestTexts& texts : REQUEST_TEXTS) {
        SCOPED_TRACE(texts.operation);
        VeltraServerProxy unplugged(nullptr);
        VeltraServerProxy failing(FakeRemoteObject::FailingWith(-32));
        ExpectLines(
            {texts.operation},
            {texts.remoteNull != nullptr ? Error(texts.remoteNull) : ErrorWith(texts.sendFailed, IPC_DEAD_OBJECT)},
            [&] { Call(texts.operation, unplugged); });
        if (texts.sendFailed != nullptr) {
            ExpectLines({texts.operation}, {ErrorWith(texts.sendFailed, -32)}, [&] { Call(texts.operation, failing); });
        }
        ExpectLines({texts.operation}, {Error(texts.tokenRefused)}, [&] {
            Parcel::SetDefaultCapacityLimit(0);
            Call(texts.operation, failing);
            Parcel::SetDefaultCapacityLimit(limit);
        });
    }
    VeltraServerProxy working(MakeRef<FakeRemoteObject>());
    ExpectLines({"QueryAppResourceInfos"}, {Error("bundleNames size cannot be 0")},
                [&] { working.QueryAppResourceInfos({}, nullptr); });
}

TEST(LogTexts, Replies)
{
    for (const ReplyTexts& texts : REPLY_TEXTS) {
        SCOPED_TRACE(texts.operation);
        VeltraServerProxy proxy(MakeRef<FakeRemoteObject>([&](uint32_t, MessageParcel&, MessageParcel& reply) {
            WriteItems(reply, texts.reply);
            return texts.status;
        }));
        ExpectLines({texts.operation}, texts.lines, [&] { Call(texts.operation, proxy); });
    }
}

class LogTextsTest : public ClientTest {
protected:
    void RunAnswering(int32_t result)
    {
        RunService([result](uint32_t, MessageParcel&, MessageParcel& reply) {
            reply.WriteInt32(result);
            return 0;
        });
    }

    const Line checkFailed_ = Warn("Check systemAbility not exist and try to release veltra_server proxy.");
    const Line tryLoad_ = Info("Try load systemAbility.");
};

TEST_F(LogTextsTest, Connection)
{
    ExpectLines({"GetServiceProxy"}, {checkFailed_, tryLoad_, Warn("Failed to load systemAbility.")},
                [this] { proxy_.GetServiceProxy(); });

    const auto service = MakeRef<FakeRemoteObject>();
    VeltraSaLoadCallback callback;
    ExpectLines({"LoadSystemAbilitySuccess", "OnLoadSystemAbilitySuccess"},
                {Info("Load systemAbility success\xef\xbc\x8c but remoteObject is null."),
                 Info("Load system ability successed!")},
                [&] { callback.OnLoadSystemAbilitySuccess(66006, nullptr); });
    ExpectLines({"OnLoadSystemAbilitySuccess"}, {Info("Load system ability successed!")},
                [&] { callback.OnLoadSystemAbilitySuccess(66006, service); });
    ExpectLines({"OnLoadSystemAbilitySuccess"},
                {Info("system ability is not veltra_server:%d", "system ability is not veltra_server:7")},
                [&] { callback.OnLoadSystemAbilitySuccess(7, service); });
    ExpectLines({"OnRemoteDied", "OnRemoteSaDead"}, {Info("Remote systemAbility dead."), Info("OnRemoteSaDead")},
                [&] { service->Die(); });
    ExpectLines({"OnLoadSystemAbilityFail"}, {Info("Load system ability failed!")},
                [&] { callback.OnLoadSystemAbilityFail(66006); });
    ExpectLines({"OnLoadSystemAbilityFail"},
                {Warn("system ability is not veltra_server:%d", "system ability is not veltra_server:7")},
                [&] { callback.OnLoadSystemAbilityFail(7); });

    FakeAbilityManager::Remove();
    ExpectLines({"GetServiceProxy"}, {Error("Get SystemAbilityManager failed.")}, [this] { proxy_.GetServiceProxy(); });
}

// The time-out line stands with the tests of the wait. The report's own line may come before or after the waiter's.
TEST_F(LogTextsTest, LoadThatSucceeds)
{
    ReportSuccessOnLoad(66006, MakeRef<FakeRemoteObject>());
    const LogCapture log;
    proxy_.GetServiceProxy();
    manager_->WaitForReports();
    const std::vector<LogLine> lines = log.Lines();
    const auto said = [&lines](int level, const std::string& text) {
        return std::count_if(lines.begin(), lines.end(),
                             [&](const LogLine& line) { return line.level == level && line.format == PREFIX + text; });
    };
    EXPECT_EQ(said(SCRIVO_WARN, checkFailed_.text), 1);
    EXPECT_EQ(said(SCRIVO_INFO, tryLoad_.text), 1);
    EXPECT_EQ(said(SCRIVO_INFO, "Load systemAbility succeeded."), 1);
}

TEST_F(LogTextsTest, Operations)
{
    RunAnswering(5);
    GameSceneBundle bundle;
    ExpectLines(
        {"NotifyGameEvent"},
        {Info("ret is %{public}d, result is %{public}d", "ret is 0, result is 5"),
         {SCRIVO_DEBUG, "serviceProxy NotifyGameEvent ret=[%{public}d]", "serviceProxy NotifyGameEvent ret=[5]"}},
        [&] { proxy_.NotifyGameEvent(bundle); });
    std::vector<AppResourceDownLoadResult> results;
    ExpectLines({"NotifyAppResourceDownLoadResults"},
                {Error("NotifyAppResourceDownLoadResults failed! [%{public}d] ret!",
                       "NotifyAppResourceDownLoadResults failed! [5] ret!")},
                [&] { proxy_.NotifyAppResourceDownLoadResults(results); });
    FakeAbilityManager::Remove();
    const Line noManager = Error("Get SystemAbilityManager failed.");
    ExpectLines({"GetServiceProxy", "NotifyAppResourceDownLoadResults"},
                {noManager, Error("get veltraServerProxy failed!")},
                [&] { proxy_.NotifyAppResourceDownLoadResults(results); });
    // The others say nothing of their own about a missing service, nor about a document.
    ExpectLines({"GetServiceProxy"}, {noManager, noManager, noManager}, [&] {
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
    ExpectLines({"RegisterGameCallback"}, {Warn("already register to SA, try to add callback list")},
                [&] { proxy_.RegisterGameCallback(callback(), 2); });
    ExpectLines(
        {"RegisterGameCallback", "AddCallback"},
        {Warn("already register to SA, try to add callback list"), Warn("the callback from framework is nullptr")},
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
    ExpectLines({"StartGetGpuPerfInfo"},
                {Info("serviceProxy StartGetGpuPerfInfo[%{public}d] ret!", "serviceProxy StartGetGpuPerfInfo[9] ret!")},
                [this] { proxy_.StartGetGpuPerfInfo(1, nullptr); });
    ExpectLines({"StopGetGpuPerfInfo"},
                {Info("StopGetGpuPerfInfo success!"),
                 Info("serviceProxy StopGetGpuPerfInfo[%{public}d] ret!", "serviceProxy StopGetGpuPerfInfo[9] ret!")},
                [this] { proxy_.StopGetGpuPerfInfo(); });
    ExpectLines(
        {"QueryAppResourceInfos"},
        {Error("serviceProxy QueryAppResourceInfos ret=[%{public}d]", "serviceProxy QueryAppResourceInfos ret=[9]")},
        [&] { proxy_.QueryAppResourceInfos(names, nullptr); });
    ExpectLines({"GetAppPrioritys"},
                {Error("GetAppPrioritys failed! [%{public}d] ret!", "GetAppPrioritys failed! [9] ret!")},
                [&] { proxy_.GetAppPrioritys(names, nullptr); });

    FakeAbilityManager::Remove();
    const Line noManager = Error("Get SystemAbilityManager failed.");
    ExpectLines({"GetServiceProxy", "GetAppPrioritys"}, {noManager, Error("get veltraServerProxy failed!")},
                [&] { proxy_.GetAppPrioritys(names, nullptr); });
    ExpectLines({"GetServiceProxy"}, {noManager, noManager, noManager, noManager}, [&] {
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
    ExpectLines({"GetServiceProxy", "QueryGameState"}, {checkFailed_, noGame}, [&] { custom.QueryGameState(state); });
    FakeAbilityManager::Remove();
    ExpectLines({"GetServiceProxy", "QueryGameState"}, {Error("Get SystemAbilityManager failed."), noGame},
                [&] { custom.QueryGameState(state); });
}

}  // namespace
}  // namespace TAVO::Veltra
