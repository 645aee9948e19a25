// SPDX-License-Identifier: Apache-2.0
#include "support/server_operations.h"

#include <limits>

#include "support/callback_stubs.h"

namespace TAVO::Veltra {
namespace {

constexpr int32_t MIN32 = std::numeric_limits<int32_t>::min();
constexpr int64_t MIN64 = std::numeric_limits<int64_t>::min();
constexpr int64_t BIG = 0x0102030405060708;

int32_t ReportGameEvent(VeltraServerProxy& proxy)
{
    GameInfo info{MIN32, BIG, "one", "two", std::string("th\0ree", 6), "four", "", "six"};
    proxy.ReportGameEvent(info);
    return 0;
}

int32_t NotifyGameEvent(VeltraServerProxy& proxy)
{
    GameSceneBundle bundle;
    bundle.sceneId = 11;
    bundle.sceneName = "lobby";
    bundle.attributes = {{"b", "2"}, {"a", "1"}};
    return proxy.NotifyGameEvent(bundle);
}

int32_t NotifyResults(VeltraServerProxy& proxy)
{
    AppResourceDownLoadResult result{"r1", "r2", MIN64, 2, 3, 4, 5, 6, {}};
    result.resourceInfo.text1 = result.resourceInfo.text4 = "unsent";
    result.resourceInfo.int1 = 21;
    result.resourceInfo.int2 = 22;
    result.resourceInfo.text2 = "t2";
    result.resourceInfo.text3 = "t3";
    result.resourceInfo.long1 = BIG;
    result.resourceInfo.int3 = 23;
    std::vector<AppResourceDownLoadResult> results(2, result);
    return proxy.NotifyAppResourceDownLoadResults(results);
}

int32_t GetFunctionStatus(VeltraServerProxy& proxy)
{
    std::map<std::string, std::string> query = {{"b", ""}, {"a", "1"}};
    return proxy.GetSystemFunctionStatus(query).empty() ? 0 : 1;
}

int32_t QueryGameState(VeltraServerProxy& proxy)
{
    GameState state;
    return proxy.QueryGameState(state);
}

std::vector<ServerOperation> MakeOperations()
{
    using enum Report;
    const sptr<IGpNapiEventCallback> event = MakeRef<SilentEventCallback>();
    const sptr<IGpuCounterNativeCallback> gpu = MakeRef<SilentGpuCallback>();
    const sptr<IResourcePreDownloadNativeCallback> resource = MakeRef<SilentResourceCallback>();
    const sptr<IGameGraphicCallback> graphic = MakeRef<SilentGraphicCallback>();
    const Items report = {MIN32, BIG, "one", "two", std::string("th\0ree", 6), "", "six", "four"};
    const Items result = {"r1", "r2", MIN64, int64_t{2}, int64_t{3}, 4, 5, int64_t{6}, 21, 22, "t2", "t3", 23, BIG};
    const auto registerGraphic = [graphic](auto& proxy) {
        proxy.RegisterCallbackForGraphic("g", 4, graphic);
        return 0;
    };
    const auto reportThread = [](auto& proxy) { return proxy.ReportRenderThread("one", "two", 3); };
    const auto startGpu = [gpu](auto& proxy) { return proxy.StartGetGpuPerfInfo(5, gpu); };
    const auto queryInfos = [resource](auto& proxy) { return proxy.QueryAppResourceInfos({"y", "x"}, resource); };
    const auto getPrioritys = [resource](auto& proxy) {
        std::vector<std::string> none;
        return proxy.GetAppPrioritys(none, resource);
    };
    const auto getDeviceInfo = [](auto& proxy) {
        return proxy.GetDeviceInfo({{6, {{"b", "2"}, {"a", "1"}}}, {7, {}}}).retCode;
    };
    const auto registerEvent = [event](auto& proxy) { return proxy.RegisterCallBack(event); };
    const auto update = [](auto& proxy) { return proxy.UpdateGameInfo(-7, "text", MIN32); };
    const auto callAuth = [](auto& proxy) { return proxy.CallAuth(std::string("a\0b", 3)); };
    const auto syncType = [](auto& proxy) { return proxy.SyncAppType("app", 9).empty() ? 0 : 1; };
    constexpr const char* none = RequestTexts::NONE;
    const RequestTexts noRemote = {"Remote is null"};
    const RequestTexts eventTexts = {none, "Veltra ReportGameEvent call remote failed. ret[%d]"};
    const RequestTexts typeTexts = {none, "Veltra SyncAppType call remote failed. ret[%d]"};
    const RequestTexts threadTexts = {none, "Veltra ReportGameRenderThread call remote failed. ret[%d]"};
    const RequestTexts graphicTexts = {"RegisterCallBackForGraphic Remote is null",
                                       "function RegisterCallBackForGraphic call failed! errCode:%d"};
    const RequestTexts stateTexts = {"[Proxy] Remote is null", "[Proxy] send request failed! errCode:%d",
                                     "[Proxy]write descriptor fail"};
    const RequestTexts sceneTexts = {"StopGetGpuPerfInfo Remote is null", none, "Write interface token error!"};
    const RequestTexts prioritysTexts = {nullptr, nullptr, "GetAppPrioritys write descriptor fail"};
    const RequestTexts resultsTexts = {nullptr, nullptr, "NotifyAppResourceDownLoadResults write descriptor fail"};
    return {
        {"RegisterCallBack", 5, CODE, {event->AsObject()}, registerEvent, {"UnRegisterCallBack Remote is null"}},
        {"UnRegisterCallBack", 6, CODE, {}, [](auto& p) { return p.UnRegisterCallBack(); }},
        {"UpdateGameInfo", 8, CODE, {-7, "text", MIN32}, update, noRemote},
        {"CallAuth", 9, CODE, {std::string("a\0b", 3)}, callAuth, noRemote},
        {"ReportGameEvent", 1, NOTHING, report, ReportGameEvent, eventTexts, {}},
        {"SyncAppType", 3, EMPTY_MAP, {"app", 9}, syncType, typeTexts, {2, "a", 1, "b", 0}},
        {"ReportRenderThread", 4, STATUS, {"one", "two", 3}, reportThread, threadTexts},
        {"RegisterCallbackForGraphic", 22, NOTHING, {"g", 4, graphic->AsObject()}, registerGraphic, graphicTexts, {}},
        {"StartGetGpuPerfInfo", 10, CODE, {5, gpu->AsObject()}, startGpu},
        {"StopGetGpuPerfInfo", 11, CODE, {}, [](auto& p) { return p.StopGetGpuPerfInfo(); }},
        {"GetSystemFunctionStatus", 27, EMPTY_MAP, {2, "a", "1", "b", ""}, GetFunctionStatus, {}, {1, "k", "v"}},
        {"QueryGameState", 28, STATUS, {}, QueryGameState, stateTexts, {0, 3, "com.game"}},
        {"NotifyGameEvent", 2, REPLY, {1, 11, "lobby", 2, "a", "1", "b", "2"}, NotifyGameEvent, sceneTexts},
        {"GetDeviceInfo", 13, CODE, {2, 6, 2, "a", "1", "b", "2", 7, 0}, getDeviceInfo, {}, {0, R"({"tempLevel":1})"}},
        {"QueryAppResourceInfos", 17, CODE, {2, "y", "x", resource->AsObject()}, queryInfos},
        {"GetAppPrioritys", 15, CODE, {0, resource->AsObject()}, getPrioritys, prioritysTexts},
        {"NotifyAppResourceDownLoadResults", 20, CODE, Items{2} + result + result, NotifyResults, resultsTexts},
    };
}

}  // namespace

const std::vector<ServerOperation>& ServerOperations()
{
    static const std::vector<ServerOperation> OPERATIONS = MakeOperations();
    return OPERATIONS;
}

}  // namespace TAVO::Veltra
