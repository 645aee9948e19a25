// SPDX-License-Identifier: Apache-2.0
// A table that is searched from its start: names are looked up when a person writes them (commands, filters, scenarios),
// and codes once for each record of a watched call.
#include "base/operation_names.h"

#include <algorithm>
#include <iterator>

namespace TAVO::Veltra {

namespace {

struct OperationName {
    const char* name;
    ServerCode code;
};
// The names of veltra_server_client.h, by which faults, filters and records refer to operations.
constexpr OperationName OPERATIONS[] = {
    {"ReportGameEvent", ServerCode::REPORT_GAME_EVENT},
    {"NotifyGameEvent", ServerCode::NOTIFY_GAME_EVENT},
    {"SyncAppType", ServerCode::SYNC_APP_TYPE},
    {"ReportRenderThread", ServerCode::REPORT_RENDER_THREAD},
    {"RegisterCallBack", ServerCode::REGISTER_CALL_BACK},
    {"UnRegisterCallBack", ServerCode::UN_REGISTER_CALL_BACK},
    {"UpdateGameInfo", ServerCode::UPDATE_GAME_INFO},
    {"CallAuth", ServerCode::CALL_AUTH},
    {"StartGetGpuPerfInfo", ServerCode::START_GET_GPU_PERF_INFO},
    {"StopGetGpuPerfInfo", ServerCode::STOP_GET_GPU_PERF_INFO},
    {"GetDeviceInfo", ServerCode::GET_DEVICE_INFO},
    {"GetAppPrioritys", ServerCode::GET_APP_PRIORITYS},
    {"QueryAppResourceInfos", ServerCode::QUERY_APP_RESOURCE_INFOS},
    {"NotifyAppResourceDownLoadResults", ServerCode::NOTIFY_APP_RESOURCE_DOWN_LOAD_RESULTS},
    {"RegisterCallbackForGraphic", ServerCode::REGISTER_CALLBACK_FOR_GRAPHIC},
    {"GetSystemFunctionStatus", ServerCode::GET_SYSTEM_FUNCTION_STATUS},
    {"QueryGameState", ServerCode::QUERY_GAME_STATE},
};

}  // namespace

const char* NameOf(ServerCode code)
{
    const auto found = std::find_if(std::begin(OPERATIONS), std::end(OPERATIONS),
                                    [code](const OperationName& row) { return row.code == code; });
    return found == std::end(OPERATIONS) ? "unknown" : found->name;
}

std::optional<ServerCode> FindOperation(std::string_view name)
{
    const auto found = std::find_if(std::begin(OPERATIONS), std::end(OPERATIONS),
                                    [name](const OperationName& row) { return row.name == name; });
    return found == std::end(OPERATIONS) ? std::nullopt : std::optional(found->code);
}

}  // namespace TAVO::Veltra
