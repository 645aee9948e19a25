// SPDX-License-Identifier: Apache-2.0
// One entry for each operation of VeltraClient: its parameters, and a function that calls it with the arguments that
// were typed. What an operation returns besides its code becomes JSON with the names of the facade's records. A new
// operation needs an entry here and nothing else: `call`, the completion and `replay` use this table.
#include "call_operations.h"

#include <cstdlib>
#include <iterator>

#include "call_answers.h"
#include "utils/json_utils.h"

namespace VeltraTool {

using namespace TAVO::Veltra;

namespace {

using Arguments = CallArguments;

CallResult Code(int32_t code)
{
    return {code, Json::Value()};
}

CallResult RegisterGameCallback(VeltraClient& client, const Arguments& arguments)
{
    return Code(client.RegisterGameCallback(MakeEventCallback(), arguments.Int32("key")));
}

CallResult ReportGameEvent(VeltraClient& client, const Arguments& arguments)
{
    GameInfo info;
    info.int32Value = arguments.Int32("int32Value");
    info.int64Value = arguments.Int64("int64Value");
    info.text1 = arguments.Text("text1");
    info.text2 = arguments.Text("text2");
    info.text3 = arguments.Text("text3");
    info.text4 = arguments.Text("text4");
    info.text5 = arguments.Text("text5");
    info.text6 = arguments.Text("text6");
    client.ReportGameEvent(info);
    // One-way: there is no code.
    return {};
}

CallResult SyncAppType(VeltraClient& client, const Arguments& arguments)
{
    CallResult result{std::nullopt, Json::objectValue};
    for (const auto& [name, isGame] : client.SyncAppType(arguments.Text("text"), arguments.Int32("value"))) {
        result.answer[name] = isGame;
    }
    return result;
}

CallResult GetDeviceInfo(VeltraClient& client, const Arguments& arguments)
{
    std::vector<QueryDeviceStateDetail> details;
    for (const std::string& type : arguments.Names("queryTypes")) {
        char* end = nullptr;
        const long number = std::strtol(type.c_str(), &end, 10);
        details.push_back({static_cast<int32_t>(number), {}});
        if (*end != '\0' || type.empty() || number != details.back().queryType) {
            arguments.Refuse("queryTypes", "a list of numbers of 32 bits, such as 1,2");
        }
    }
    const GameCallbackEventInfo info = client.GetDeviceInfo(details);
    return {info.resultCode, info.resultCode == RESULT_OK ? JsonOf(info) : Json::Value()};
}

CallResult NotifyGameEvent(VeltraClient& client, const Arguments& arguments)
{
    GameSceneBundle bundle;
    bundle.sceneId = arguments.Int32("sceneId");
    bundle.sceneName = arguments.Text("sceneName");
    bundle.attributes = arguments.Pairs("attributes");
    return Code(client.NotifyGameEvent(bundle));
}

AppResourceDownLoadResult DownLoadResultOf(Json::Value json)
{
    const auto text = [](Json::Value& object, const char* key) { return JsonUtils::GetString(object, key, ""); };
    const auto number = [](Json::Value& object, const char* key) { return JsonUtils::GetInt(object, key, 0); };
    const auto large = [](Json::Value& object, const char* key) { return JsonUtils::GetInt64(object, key, 0); };
    AppResourceDownLoadResult result;
    result.text1 = text(json, "text1");
    result.text2 = text(json, "text2");
    result.value1 = large(json, "value1");
    result.value2 = large(json, "value2");
    result.value3 = large(json, "value3");
    result.count1 = number(json, "count1");
    result.count2 = number(json, "count2");
    result.value4 = large(json, "value4");
    // Adds an empty member if there is none; its fields then have their defaults.
    Json::Value& info = json["resourceInfo"];
    result.resourceInfo.int1 = JsonUtils::GetInt(info, "int1", 1);
    result.resourceInfo.int2 = number(info, "int2");
    result.resourceInfo.text2 = text(info, "text2");
    result.resourceInfo.text3 = text(info, "text3");
    result.resourceInfo.int3 = number(info, "int3");
    result.resourceInfo.long1 = large(info, "long1");
    return result;
}

CallResult NotifyAppResourceDownLoadResults(VeltraClient& client, const Arguments& arguments)
{
    std::vector<AppResourceDownLoadResult> results;
    for (const Json::Value& json : arguments.Objects("results")) {
        results.push_back(DownLoadResultOf(json));
    }
    return Code(client.NotifyAppResourceDownLoadResults(results));
}

CallResult GetAppPrioritys(VeltraClient& client, const Arguments& arguments)
{
    std::vector<std::string> names = arguments.Names("bundleNames");
    return Code(client.GetAppPrioritys(names, MakePrioritiesCallback()));
}

CallResult QueryGameState(VeltraClient& client, const Arguments&)
{
    GameState state;
    CallResult result{client.QueryGameState(state), Json::Value()};
    if (*result.code == RESULT_OK) {
        result.answer["state"] = state.state;
        result.answer["bundleName"] = state.bundleName;
    }
    return result;
}

CallResult GetSystemFunctionStatus(VeltraClient& client, const Arguments& arguments)
{
    CallResult result{std::nullopt, Json::objectValue};
    std::map<std::string, std::string> query = arguments.Pairs("query");
    for (const auto& [name, status] : client.GetSystemFunctionStatus(query)) {
        result.answer[name] = status;
    }
    return result;
}

// Each row: name, parameters in the order in which they are typed, description, answers that come by callback, the
// call, and how to end a stream of answers (null: there is none). Sorted by name, as `call` lists them.
std::vector<CallOperation> MakeOperations()
{
    return {
        {"CallAuth",
         {"text"},
         "whether this process may use the service",
         Answers::NONE,
         [](VeltraClient& client, const Arguments& arguments) { return Code(client.CallAuth(arguments.Text("text"))); },
         nullptr},
        {"GetAppPrioritys",
         {"bundleNames"},
         "the applications by priority; names: a,b",
         Answers::ONE,
         GetAppPrioritys,
         nullptr},
        {"GetDeviceInfo", {"queryTypes"}, "the state of the device; types: 1,2", Answers::NONE, GetDeviceInfo, nullptr},
        {"GetSystemFunctionStatus",
         {"query"},
         "which functions the service offers; names: a,b",
         Answers::NONE,
         GetSystemFunctionStatus,
         nullptr},
        {"NotifyAppResourceDownLoadResults",
         {"results"},
         "how downloads ended: results=[{...}], JSON objects",
         Answers::NONE,
         NotifyAppResourceDownLoadResults,
         nullptr},
        {"NotifyGameEvent",
         {"sceneId", "sceneName", "attributes"},
         "a scene begins; attributes: a=1,b=2",
         Answers::NONE,
         NotifyGameEvent,
         nullptr},
        {"QueryAppResourceInfos",
         {"bundleNames"},
         "the resources of applications; names: a,b",
         Answers::ONE,
         [](VeltraClient& client, const Arguments& arguments) {
             return Code(client.QueryAppResourceInfos(arguments.Names("bundleNames"), MakeResourcesCallback()));
         },
         nullptr},
        {"QueryGameState",
         {},
         "the game that the service knows; never starts the service",
         Answers::NONE,
         QueryGameState,
         nullptr},
        {"RegisterGameCallback",
         {"key"},
         "game events, printed as they come",
         Answers::STREAM,
         RegisterGameCallback,
         [](VeltraClient& client, const Arguments& arguments) {
             client.UnRegisterGameCallback(arguments.Int32("key"));
         }},
        {"ReportGameEvent",
         {"int32Value", "text1", "text2", "text3", "text4", "text5", "text6", "int64Value"},
         "a game event, one-way: state and bundle name first",
         Answers::NONE,
         ReportGameEvent,
         nullptr},
        {"ReportRenderThread",
         {"first", "second", "value"},
         "a render thread; value: its id",
         Answers::NONE,
         [](VeltraClient& client, const Arguments& arguments) {
             return Code(client.ReportRenderThread(arguments.Text("first"), arguments.Text("second"),
                                                   arguments.Int32("value")));
         },
         nullptr},
        {"StartGetGpuPerfInfo",
         {"value"},
         "GPU counters, printed as they come; value: milliseconds",
         Answers::STREAM,
         [](VeltraClient& client, const Arguments& arguments) {
             return Code(client.StartGetGpuPerfInfo(arguments.Int32("value"), MakeGpuCallback()));
         },
         [](VeltraClient& client, const Arguments&) { client.StopGetGpuPerfInfo(); }},
        {"StopGetGpuPerfInfo",
         {},
         "ends the counters of this process, which has none",
         Answers::NONE,
         [](VeltraClient& client, const Arguments&) { return Code(client.StopGetGpuPerfInfo()); },
         nullptr},
        {"SyncAppType",
         {"text", "value"},
         "which applications are running games; text: a,b",
         Answers::NONE,
         SyncAppType,
         nullptr},
        {"UnRegisterGameCallback",
         {"key"},
         "ends the game events of this process, which has none",
         Answers::NONE,
         [](VeltraClient& client, const Arguments& arguments) {
             return Code(client.UnRegisterGameCallback(arguments.Int32("key")));
         },
         nullptr},
        {"UpdateGameInfo",
         {"first", "text", "second"},
         "this game; first: its state, text: its bundle name",
         Answers::NONE,
         [](VeltraClient& client, const Arguments& arguments) {
             return Code(
                 client.UpdateGameInfo(arguments.Int32("first"), arguments.Text("text"), arguments.Int32("second")));
         },
         nullptr},
    };
}

}  // namespace

const std::vector<CallOperation>& CallOperations()
{
    static const std::vector<CallOperation> operations = MakeOperations();
    return operations;
}

}  // namespace VeltraTool
