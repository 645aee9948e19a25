// SPDX-License-Identifier: Apache-2.0
// The requests and replies that carry lists and maps. Counts in a reply are limited before the loop, and elements that
// are missing read as empty: so a hostile count costs at most its limit. An exception can only be bad_alloc and becomes
// the result for a missing service.
#include <algorithm>

#include "ipc/server_request.h"
#include "ipc/veltra_server_proxy.h"
#include "utils/veltra_log.h"
#include "veltra_result.h"

namespace TAVO::Veltra {
namespace {

void WriteTexts(ServerRequest& request, const std::vector<std::string>& texts)
{
    request.WriteCount(texts.size());
    for (const std::string& text : texts) {
        request.data.WriteString(text);
    }
}

void WritePairs(ServerRequest& request, const std::map<std::string, std::string>& pairs)
{
    request.WriteCount(pairs.size());
    for (const auto& [key, value] : pairs) {
        request.data.WriteString(key);
        request.data.WriteString(value);
    }
}

// Deliberate: the resource information goes as six of its eight fields and with int3 before long1, not in its own
// encoding; the service reads exactly these.
void WriteDownLoadResult(MessageParcel& data, const AppResourceDownLoadResult& result)
{
    data.WriteString(result.text1);
    data.WriteString(result.text2);
    data.WriteInt64(result.value1);
    data.WriteInt64(result.value2);
    data.WriteInt64(result.value3);
    data.WriteInt32(result.count1);
    data.WriteInt32(result.count2);
    data.WriteInt64(result.value4);
    data.WriteInt32(result.resourceInfo.int1);
    data.WriteInt32(result.resourceInfo.int2);
    data.WriteString(result.resourceInfo.text2);
    data.WriteString(result.resourceInfo.text3);
    data.WriteInt32(result.resourceInfo.int3);
    data.WriteInt64(result.resourceInfo.long1);
}

}  // namespace

std::map<std::string, bool> VeltraServerProxy::SyncAppType(const std::string& text, int32_t value)
try {
    ServerRequest request("SyncAppType", ServerCode::SYNC_APP_TYPE);
    if (!request.WriteToken()) {
        return {};
    }
    request.data.WriteString(text);
    request.data.WriteInt32(value);
    if (!request.Send(Remote(), "Veltra SyncAppType call remote failed. ret[%{public}d]")) {
        return {};
    }
    int32_t count = request.reply.ReadInt32();
    if (count > MAX_APP_TYPES) {
        VELTRA_LOGW("[SyncTask]sync app type count over max. count[%{public}d] will be set max[%{public}d]", count,
                    MAX_APP_TYPES);
        count = MAX_APP_TYPES;
    }
    std::map<std::string, bool> types;
    for (int32_t i = 0; i < count; ++i) {
        std::string key = request.reply.ReadString();
        types[std::move(key)] = request.reply.ReadBool();
    }
    return types;
} catch (...) {
    return {};
}

std::map<std::string, std::string> VeltraServerProxy::GetSystemFunctionStatus(std::map<std::string, std::string>& query)
try {
    ServerRequest request("GetSystemFunctionStatus", ServerCode::GET_SYSTEM_FUNCTION_STATUS);
    if (!request.WriteToken()) {
        return {};
    }
    WritePairs(request, query);
    if (!request.Send(Remote(), "GetSystemFunctionStatus Remote is null",
                      "function GetSystemFunctionStatus call failed! errCode:%{public}d")) {
        return {};
    }
    const int32_t count = std::min(request.reply.ReadInt32(), MAX_FUNCTION_STATUSES);
    std::map<std::string, std::string> statuses;
    for (int32_t i = 0; i < count; ++i) {
        std::string key = request.reply.ReadString();
        statuses[std::move(key)] = request.reply.ReadString();
    }
    return statuses;
} catch (...) {
    return {};
}

int32_t VeltraServerProxy::QueryGameState(GameState& state)
try {
    ServerRequest request("QueryGameState", ServerCode::QUERY_GAME_STATE);
    if (!request.WriteToken("[Proxy]write descriptor fail")) {
        return RESULT_TOKEN_REFUSED;
    }
    const sptr<IRemoteObject> remote = Remote();
    if (remote == nullptr) {
        VELTRA_LOGE("[Proxy] Remote is null");
        return RESULT_NO_SERVICE;
    }
    // Deliberate: the platform's own status, so that a caller can tell a lost query from a refused one.
    if (!request.Send(remote, "[Proxy] send request failed! errCode:%{public}d")) {
        return request.Status();
    }
    const int32_t result = request.reply.ReadInt32();
    if (result != RESULT_OK) {
        VELTRA_LOGE("[Proxy] call sa failed! retCode:%{public}d",
                    0);  // Deliberate: 0; the code is for the caller only.
        return result;
    }
    state.state = request.reply.ReadInt32();
    std::string bundleName = request.reply.ReadString();
    if (!bundleName.empty()) {
        state.bundleName = std::move(bundleName);
    }
    VELTRA_LOGI("[Proxy] state:%{public}d, bundleName:%{public}s", state.state, state.bundleName.c_str());
    return RESULT_OK;
} catch (...) {
    return RESULT_NO_SERVICE;
}

DeviceInfoResult VeltraServerProxy::GetDeviceInfo(std::vector<QueryDeviceStateDetail> details)
try {
    ServerRequest request("GetDeviceInfo", ServerCode::GET_DEVICE_INFO);
    if (!request.WriteToken()) {
        return {RESULT_TOKEN_REFUSED, {}};
    }
    const sptr<IRemoteObject> remote = Remote();
    if (remote == nullptr) {
        VELTRA_LOGE("GetDeviceInfo Remote is null");
        return {RESULT_NO_SERVICE, {}};
    }
    request.WriteCount(details.size());
    for (const QueryDeviceStateDetail& detail : details) {
        request.data.WriteInt32(detail.queryType);
        WritePairs(request, detail.queryParams);
    }
    if (!request.Send(remote, "function GetDeviceInfo call failed! errCode:%{public}d")) {
        return {RESULT_NO_SERVICE, {}};
    }
    DeviceInfoResult info;
    info.retCode = request.reply.ReadInt32();
    if (info.retCode != RESULT_OK) {
        VELTRA_LOGE("proxy GetDeviceInfo failed! retCode:%{public}d", info.retCode);
        return info;
    }
    // A document that the facade parses and checks; here it is only a text.
    info.result = request.reply.ReadString();
    VELTRA_LOGI("GetDeviceInfo success, result=%{public}s", info.result.c_str());
    return info;
} catch (...) {
    return {RESULT_NO_SERVICE, {}};
}

int32_t VeltraServerProxy::QueryAppResourceInfos(const std::vector<std::string>& bundleNames,
                                                 const sptr<IResourcePreDownloadNativeCallback>& callback)
{
    ServerRequest request("QueryAppResourceInfos", ServerCode::QUERY_APP_RESOURCE_INFOS);
    if (!request.WriteToken()) {
        return RESULT_TOKEN_REFUSED;
    }
    if (bundleNames.empty()) {
        VELTRA_LOGE("bundleNames size cannot be 0");
        return RESULT_NO_BUNDLE_NAMES;
    }
    WriteTexts(request, bundleNames);
    // From here on the service holds a reference to the callback, which keeps it alive after this call has returned.
    request.data.WriteRemoteObject(callback->AsObject());
    if (!request.Send(Remote(), "QueryAppResourceInfos Remote is null",
                      "function QueryAppResourceInfos call failed! errCode:%{public}d")) {
        return RESULT_NO_SERVICE;
    }
    return request.reply.ReadInt32();
}

// Deliberate: no test for an empty list, unlike the resource query; to the service it asks for every app.
int32_t VeltraServerProxy::GetAppPrioritys(std::vector<std::string>& bundleNames,
                                           const sptr<IResourcePreDownloadNativeCallback>& callback)
{
    ServerRequest request("GetAppPrioritys", ServerCode::GET_APP_PRIORITYS);
    if (!request.WriteToken("GetAppPrioritys write descriptor fail")) {
        return RESULT_TOKEN_REFUSED;
    }
    const sptr<IRemoteObject> remote = Remote();
    if (remote == nullptr) {
        VELTRA_LOGE("GetAppPrioritys Remote is null");
        return RESULT_NO_SERVICE;
    }
    WriteTexts(request, bundleNames);
    request.data.WriteRemoteObject(callback->AsObject());
    if (!request.Send(remote, "function GetAppPrioritys call failed! errCode:%{public}d")) {
        return RESULT_NO_SERVICE;
    }
    return request.reply.ReadInt32();
}

int32_t VeltraServerProxy::NotifyAppResourceDownLoadResults(std::vector<AppResourceDownLoadResult>& results)
{
    ServerRequest request("NotifyAppResourceDownLoadResults", ServerCode::NOTIFY_APP_RESOURCE_DOWN_LOAD_RESULTS);
    if (!request.WriteToken("NotifyAppResourceDownLoadResults write descriptor fail")) {
        return RESULT_TOKEN_REFUSED;
    }
    const sptr<IRemoteObject> remote = Remote();
    if (remote == nullptr) {
        VELTRA_LOGE("NotifyAppResourceDownLoadResults Remote is null");
        return RESULT_NO_SERVICE;
    }
    request.WriteCount(results.size());
    for (const AppResourceDownLoadResult& result : results) {
        WriteDownLoadResult(request.data, result);
    }
    if (!request.Send(remote, "function NotifyAppResourceDownLoadResults call failed! errCode:%{public}d")) {
        return RESULT_NO_SERVICE;
    }
    return request.reply.ReadInt32();
}

}  // namespace TAVO::Veltra
