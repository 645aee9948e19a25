// SPDX-License-Identifier: Apache-2.0
// Each operation is one request on the calling thread: token, arguments in the service's order, sending, then mostly an
// int32 from the reply. Order, codes and log texts are fixed by services and log filters in the field, oddities
// included; those are marked. Writes to the parcel are not checked: a request that came out short is refused by the
// service. A reply that is too short reads as 0. Operations that carry lists or maps are in
// veltra_server_proxy_collections.cpp.
#include "ipc/veltra_server_proxy.h"

#include "ipc/server_request.h"
#include "utils/veltra_log.h"
#include "veltra_result.h"

namespace TAVO::Veltra {

BrokerDelegator<VeltraServerProxy> VeltraServerProxy::delegator_;

VeltraServerProxy::VeltraServerProxy(const sptr<IRemoteObject>& impl) : IRemoteProxy<IVeltraServerInterface>(impl) {}

VeltraServerProxy::~VeltraServerProxy() = default;

int32_t VeltraServerProxy::RegisterCallBack(const sptr<IGpNapiEventCallback>& callback)
{
    ServerRequest request("RegisterCallBack", ServerCode::REGISTER_CALL_BACK);
    if (!request.WriteToken()) {
        return RESULT_TOKEN_REFUSED;
    }
    request.data.WriteRemoteObject(callback->AsObject());
    // Deliberate: the unregister wording; log filters recognise a missing service by it.
    if (!request.Send(Remote(), "UnRegisterCallBack Remote is null",
                      "function RegisterCallBack call failed! errCode:%{public}d")) {
        return RESULT_NO_SERVICE;
    }
    return request.reply.ReadInt32();
}

int32_t VeltraServerProxy::UnRegisterCallBack()
{
    ServerRequest request("UnRegisterCallBack", ServerCode::UN_REGISTER_CALL_BACK);
    if (!request.WriteToken()) {
        return RESULT_TOKEN_REFUSED;
    }
    if (!request.Send(Remote(), "UnRegisterCallBack Remote is null",
                      "function UnRegisterCallBack call failed! errCode:%{public}d")) {
        return RESULT_NO_SERVICE;
    }
    VELTRA_LOGI("UnRegisterCallBack success!");  // Deliberate: before the service's result is known.
    return request.reply.ReadInt32();
}

int32_t VeltraServerProxy::UpdateGameInfo(int32_t first, const std::string& text, int32_t second)
{
    ServerRequest request("UpdateGameInfo", ServerCode::UPDATE_GAME_INFO);
    if (!request.WriteToken()) {
        return RESULT_TOKEN_REFUSED;
    }
    request.data.WriteInt32(first);
    request.data.WriteString(text);
    request.data.WriteInt32(second);
    if (!request.Send(Remote(), "Remote is null", "function UpdateGameInfo call failed! errCode:%{public}d")) {
        return RESULT_NO_SERVICE;
    }
    const int32_t result = request.reply.ReadInt32();
    VELTRA_LOGI("function UpdateGameInfo call reply:%{public}d", result);
    return result;
}

int32_t VeltraServerProxy::CallAuth(const std::string& text)
{
    ServerRequest request("CallAuth", ServerCode::CALL_AUTH);
    if (!request.WriteToken()) {
        return RESULT_TOKEN_REFUSED;
    }
    request.data.WriteString(text);
    if (!request.Send(Remote(), "Remote is null", "function CallAuth call failed! errCode:%{public}d")) {
        return RESULT_NO_SERVICE;
    }
    const int32_t result = request.reply.ReadInt32();
    VELTRA_LOGI("function callAuth reply:%{public}d", result);  // Deliberate: lower-case c.
    return result;
}

void VeltraServerProxy::ReportGameEvent(GameInfo& info)
{
    // One-way: the game reports from its frame loop and must not wait. A full queue of the service loses the event,
    // which is logged.
    ServerRequest request("ReportGameEvent", ServerCode::REPORT_GAME_EVENT, ServerRequest::ONE_WAY);
    if (!request.WriteToken()) {
        return;
    }
    request.data.WriteInt32(info.int32Value);
    request.data.WriteInt64(info.int64Value);
    request.data.WriteString(info.text1);
    request.data.WriteString(info.text2);
    request.data.WriteString(info.text3);
    request.data.WriteString(info.text5);
    request.data.WriteString(info.text6);
    request.data.WriteString(info.text4);  // Deliberate: last; in the record's order the service would mix them up.
    request.Send(Remote(), "Veltra ReportGameEvent call remote failed. ret[%{public}d]");
}

int32_t VeltraServerProxy::ReportRenderThread(std::string first, std::string second, int32_t value)
{
    ServerRequest request("ReportRenderThread", ServerCode::REPORT_RENDER_THREAD);
    if (!request.WriteToken()) {
        return RESULT_TOKEN_REFUSED;
    }
    request.data.WriteString(first);
    request.data.WriteString(second);
    request.data.WriteInt32(value);
    // Deliberate: "Game" in the text, and the platform's own status; callers tell a lost thread report by it.
    if (!request.Send(Remote(), "Veltra ReportGameRenderThread call remote failed. ret[%{public}d]")) {
        return request.Status();
    }
    return request.reply.ReadInt32();
}

void VeltraServerProxy::RegisterCallbackForGraphic(std::string text, int32_t value,
                                                   const sptr<IGameGraphicCallback>& callback)
{
    ServerRequest request("RegisterCallbackForGraphic", ServerCode::REGISTER_CALLBACK_FOR_GRAPHIC);
    if (!request.WriteToken()) {
        return;
    }
    request.data.WriteString(text);
    request.data.WriteInt32(value);
    request.data.WriteRemoteObject(callback->AsObject());
    // Deliberate: "CallBack" in the texts, unlike the operation's name.
    request.Send(Remote(), "RegisterCallBackForGraphic Remote is null",
                 "function RegisterCallBackForGraphic call failed! errCode:%{public}d");
}

int32_t VeltraServerProxy::StartGetGpuPerfInfo(int32_t value, const sptr<IGpuCounterNativeCallback>& callback)
{
    ServerRequest request("StartGetGpuPerfInfo", ServerCode::START_GET_GPU_PERF_INFO);
    if (!request.WriteToken()) {
        return RESULT_TOKEN_REFUSED;
    }
    request.data.WriteInt32(value);
    request.data.WriteRemoteObject(callback->AsObject());
    if (!request.Send(Remote(), "StartGetGpuPerfInfo Remote is null",
                      "function StartGetGpuPerfInfo call failed! errCode:%{public}d")) {
        return RESULT_NO_SERVICE;
    }
    return request.reply.ReadInt32();
}

int32_t VeltraServerProxy::StopGetGpuPerfInfo()
{
    ServerRequest request("StopGetGpuPerfInfo", ServerCode::STOP_GET_GPU_PERF_INFO);
    if (!request.WriteToken()) {
        return RESULT_TOKEN_REFUSED;
    }
    if (!request.Send(Remote(), "StopGetGpuPerfInfo Remote is null",
                      "function StopGetGpuPerfInfo call failed! errCode:%{public}d")) {
        return RESULT_NO_SERVICE;
    }
    VELTRA_LOGI("StopGetGpuPerfInfo success!");  // Deliberate: before the service's result is known.
    return request.reply.ReadInt32();
}

int32_t VeltraServerProxy::NotifyGameEvent(GameSceneBundle& bundle)
try {
    ServerRequest request("NotifyGameEvent", ServerCode::NOTIFY_GAME_EVENT);
    if (!request.WriteToken("Write interface token error!")) {
        return RESULT_TOKEN_REFUSED;
    }
    request.data.WriteParcelable(&bundle);  // calls the caller's code, which may throw
    const sptr<IRemoteObject> remote = Remote();
    if (remote == nullptr) {
        VELTRA_LOGE(
            "StopGetGpuPerfInfo Remote is null");  // Deliberate: the message of a neighbour, as watchers know it.
        return RESULT_NO_SERVICE;
    }
    const int status = request.Send(*remote);
    // Deliberate: read after a failed sending too; a scene that got lost is no failure of the game.
    const int32_t result = request.reply.ReadInt32();
    VELTRA_LOGI("ret is %{public}d, result is %{public}d", status, result);
    return result;
} catch (...) {
    return RESULT_NO_SERVICE;
}

}  // namespace TAVO::Veltra
