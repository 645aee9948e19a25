// SPDX-License-Identifier: Apache-2.0
#include "ipc/server_operations.h"

#include <limits>

#include "support/callback_stubs.h"

namespace TAVO::Veltra {
namespace {

constexpr int32_t MIN32 = std::numeric_limits<int32_t>::min();
constexpr int64_t MIN64 = std::numeric_limits<int64_t>::min();
constexpr int64_t BIG = 0x0102030405060708;

std::string Text(const char* text)
{
    return text;
}

GameInfo SampleGameInfo()
{
    return {MIN32, BIG, "one", "two", std::string("th\0ree", 6), "four", "", "six"};
}

AppResourceDownLoadResult SampleResult()
{
    AppResourceDownLoadResult result{"r1", "r2", MIN64, 2, 3, 4, 5, 6, {}};
    result.resourceInfo.text1 = "unsent";
    result.resourceInfo.int1 = 21;
    result.resourceInfo.int2 = 22;
    result.resourceInfo.text2 = "t2";
    result.resourceInfo.text3 = "t3";
    result.resourceInfo.long1 = BIG;
    result.resourceInfo.int3 = 23;
    result.resourceInfo.text4 = "unsent";
    return result;
}

GameSceneBundle SampleBundle()
{
    GameSceneBundle bundle;
    bundle.sceneId = 11;
    bundle.sceneName = "lobby";
    bundle.attributes = {{"b", "2"}, {"a", "1"}};
    return bundle;
}

std::vector<ServerOperation> MakeOperations()
{
    const sptr<IGpNapiEventCallback> event = MakeRef<SilentEventCallback>();
    const sptr<IGpuCounterNativeCallback> gpu = MakeRef<SilentGpuCallback>();
    const sptr<IResourcePreDownloadNativeCallback> resource = MakeRef<SilentResourceCallback>();
    const sptr<IGameGraphicCallback> graphic = MakeRef<SilentGraphicCallback>();
    return {
        {"RegisterCallBack",
         5,
         Report::CODE,
         {event->AsObject()},
         [event](VeltraServerProxy& proxy) { return proxy.RegisterCallBack(event); }},
        {"UnRegisterCallBack",
         6,
         Report::CODE,
         {},
         [](VeltraServerProxy& proxy) { return proxy.UnRegisterCallBack(); }},
        {"UpdateGameInfo",
         8,
         Report::CODE,
         {-7, Text("text"), MIN32},
         [](VeltraServerProxy& proxy) { return proxy.UpdateGameInfo(-7, "text", MIN32); }},
        {"CallAuth",
         9,
         Report::CODE,
         {std::string("a\0b", 3)},
         [](VeltraServerProxy& proxy) { return proxy.CallAuth(std::string("a\0b", 3)); }},
        {"ReportGameEvent",
         1,
         Report::NOTHING,
         {MIN32, BIG, Text("one"), Text("two"), std::string("th\0ree", 6), Text(""), Text("six"), Text("four")},
         [](VeltraServerProxy& proxy) {
             GameInfo info = SampleGameInfo();
             proxy.ReportGameEvent(info);
             return 0;
         }},
        {"SyncAppType",
         3,
         Report::EMPTY_MAP,
         {Text("app"), 9},
         [](VeltraServerProxy& proxy) { return proxy.SyncAppType("app", 9).empty() ? 0 : 1; }},
        {"ReportRenderThread",
         4,
         Report::STATUS,
         {Text("first"), Text("second"), 3},
         [](VeltraServerProxy& proxy) { return proxy.ReportRenderThread("first", "second", 3); }},
        {"RegisterCallbackForGraphic",
         22,
         Report::NOTHING,
         {Text("g"), 4, graphic->AsObject()},
         [graphic](VeltraServerProxy& proxy) {
             proxy.RegisterCallbackForGraphic("g", 4, graphic);
             return 0;
         }},
        {"StartGetGpuPerfInfo",
         10,
         Report::CODE,
         {5, gpu->AsObject()},
         [gpu](VeltraServerProxy& proxy) { return proxy.StartGetGpuPerfInfo(5, gpu); }},
        {"StopGetGpuPerfInfo",
         11,
         Report::CODE,
         {},
         [](VeltraServerProxy& proxy) { return proxy.StopGetGpuPerfInfo(); }},
        {"GetSystemFunctionStatus",
         27,
         Report::EMPTY_MAP,
         {2, Text("a"), Text("1"), Text("b"), Text("")},
         [](VeltraServerProxy& proxy) {
             std::map<std::string, std::string> query = {{"b", ""}, {"a", "1"}};
             return proxy.GetSystemFunctionStatus(query).empty() ? 0 : 1;
         }},
        {"QueryGameState",
         28,
         Report::STATUS,
         {},
         [](VeltraServerProxy& proxy) {
             GameState state;
             return proxy.QueryGameState(state);
         }},
        {"NotifyGameEvent",
         2,
         Report::REPLY,
         {1, 11, Text("lobby"), 2, Text("a"), Text("1"), Text("b"), Text("2")},
         [](VeltraServerProxy& proxy) {
             GameSceneBundle bundle = SampleBundle();
             return proxy.NotifyGameEvent(bundle);
         }},
        {"GetDeviceInfo",
         13,
         Report::CODE,
         {2, 6, 2, Text("a"), Text("1"), Text("b"), Text("2"), 7, 0},
         [](VeltraServerProxy& proxy) {
             return proxy.GetDeviceInfo({{6, {{"b", "2"}, {"a", "1"}}}, {7, {}}}).retCode;
         }},
        {"QueryAppResourceInfos",
         17,
         Report::CODE,
         {2, Text("y"), Text("x"), resource->AsObject()},
         [resource](VeltraServerProxy& proxy) {
             return proxy.QueryAppResourceInfos({"y", "x"}, resource);
         }},
        {"GetAppPrioritys",
         15,
         Report::CODE,
         {0, resource->AsObject()},
         [resource](VeltraServerProxy& proxy) {
             std::vector<std::string> none;
             return proxy.GetAppPrioritys(none, resource);
         }},
        {"NotifyAppResourceDownLoadResults",
         20,
         Report::CODE,
         {1, Text("r1"), Text("r2"), MIN64, int64_t{2}, int64_t{3}, 4, 5, int64_t{6}, 21, 22, Text("t2"), Text("t3"),
          23, BIG},
         [](VeltraServerProxy& proxy) {
             std::vector<AppResourceDownLoadResult> results = {SampleResult()};
             return proxy.NotifyAppResourceDownLoadResults(results);
         }},
    };
}

}  // namespace

const std::vector<ServerOperation>& ServerOperations()
{
    static const std::vector<ServerOperation> OPERATIONS = MakeOperations();
    return OPERATIONS;
}

}  // namespace TAVO::Veltra
