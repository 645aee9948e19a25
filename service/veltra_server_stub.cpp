// SPDX-License-Identifier: Apache-2.0
#include "veltra_server_stub.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <string>
#include <utility>

#include <tavo/calling_peer.h>

#include "base/service_log.h"
#include "base/service_result.h"
#include "request_reader.h"
#include "veltra_result.h"

namespace TAVO::Veltra {

const VeltraServerStub::Request* VeltraServerStub::Find(uint32_t code)
{
    using Stub = VeltraServerStub;
    static constexpr Request REQUESTS[] = {
        {ServerCode::REPORT_GAME_EVENT, &Stub::HandleReportGameEvent, false},
        {ServerCode::NOTIFY_GAME_EVENT, &Stub::HandleNotifyGameEvent, true},
        {ServerCode::SYNC_APP_TYPE, &Stub::HandleSyncAppType, false},
        {ServerCode::REPORT_RENDER_THREAD, &Stub::HandleReportRenderThread, true},
        {ServerCode::REGISTER_CALL_BACK, &Stub::HandleRegisterCallBack, true},
        {ServerCode::UN_REGISTER_CALL_BACK, &Stub::HandleUnRegisterCallBack, true},
        {ServerCode::UPDATE_GAME_INFO, &Stub::HandleUpdateGameInfo, true},
        {ServerCode::CALL_AUTH, &Stub::HandleCallAuth, true},
        {ServerCode::START_GET_GPU_PERF_INFO, &Stub::HandleStartGetGpuPerfInfo, true},
        {ServerCode::STOP_GET_GPU_PERF_INFO, &Stub::HandleStopGetGpuPerfInfo, true},
        {ServerCode::GET_DEVICE_INFO, &Stub::HandleGetDeviceInfo, true},
        {ServerCode::GET_APP_PRIORITYS, &Stub::HandleGetAppPrioritys, true},
        {ServerCode::QUERY_APP_RESOURCE_INFOS, &Stub::HandleQueryAppResourceInfos, true},
        {ServerCode::NOTIFY_APP_RESOURCE_DOWN_LOAD_RESULTS, &Stub::HandleNotifyAppResourceDownLoadResults, true},
        {ServerCode::REGISTER_CALLBACK_FOR_GRAPHIC, &Stub::HandleRegisterCallbackForGraphic, false},
        {ServerCode::GET_SYSTEM_FUNCTION_STATUS, &Stub::HandleGetSystemFunctionStatus, false},
        {ServerCode::QUERY_GAME_STATE, &Stub::HandleQueryGameState, true},
    };
    const Request* found = std::find_if(std::begin(REQUESTS), std::end(REQUESTS), [code](const Request& request) {
        return static_cast<uint32_t>(request.code) == code;
    });
    return found == std::end(REQUESTS) ? nullptr : found;
}

int VeltraServerStub::OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option)
{
    const Request* request = Find(code);
    if (request == nullptr) {
        return IPCObjectStub::OnRemoteRequest(code, data, reply, option);
    }
    const int status =
        data.ReadInterfaceToken() == GetDescriptor() ? Answer(*request, data, reply) : RESULT_TOKEN_REFUSED;
    if (status != 0) {
        VELTRA_SERVICE_LOGI("request %u of process %d refused: %d", code, GetCallingPeer().pid, status);
    }
    return status;
}

int VeltraServerStub::Answer(const Request& request, MessageParcel& data, MessageParcel& reply)
{
    const int status = Perform(request, data, reply);
    AfterReply(request.code, reply);
    return status;
}

int VeltraServerStub::Perform(const Request& request, MessageParcel& data, MessageParcel& reply)
{
    int32_t result = SERVICE_NO_RESOURCES;
    try {
        const int32_t refusal = BeforeRequest(request.code);
        result = refusal != 0 ? refusal : (this->*request.handler)(data, reply);
    } catch (...) {  // memory; handlers write nothing before their operation has returned
    }
    if (!request.leadsWithCode || reply.GetDataSize() > 0) {
        return result;
    }
    return reply.WriteInt32(result) ? 0 : RESULT_BAD_PARCEL;
}

int32_t VeltraServerStub::HandleReportGameEvent(MessageParcel& data, MessageParcel&)
{
    RequestReader reader(data);
    GameInfo info;
    info.int32Value = reader.Int32();
    info.int64Value = reader.Int64();
    info.text1 = reader.Text();
    info.text2 = reader.Text();
    info.text3 = reader.Text();
    info.text5 = reader.Text();
    info.text6 = reader.Text();
    info.text4 = reader.Text();  // Deliberate: sent last; in the order of the record three texts would change places.
    if (reader.IsBad()) {
        return SERVICE_BAD_REQUEST;
    }
    ReportGameEvent(info);
    return 0;
}

int32_t VeltraServerStub::HandleNotifyGameEvent(MessageParcel& data, MessageParcel&)
{
    const std::unique_ptr<GameSceneBundle> bundle = data.ReadParcelable<GameSceneBundle>();
    return bundle == nullptr ? SERVICE_BAD_REQUEST : NotifyGameEvent(*bundle);
}

int32_t VeltraServerStub::HandleSyncAppType(MessageParcel& data, MessageParcel& reply)
{
    RequestReader reader(data);
    const std::string text = reader.Text();
    const int32_t value = reader.Int32();
    if (reader.IsBad()) {
        return SERVICE_BAD_REQUEST;
    }
    const std::map<std::string, bool> types = SyncAppType(text, value);
    bool isWritten = reply.WriteInt32(static_cast<int32_t>(types.size()));
    for (const auto& [name, isGame] : types) {
        isWritten = isWritten && reply.WriteString(name) && reply.WriteBool(isGame);
    }
    return isWritten ? 0 : RESULT_BAD_PARCEL;
}

int32_t VeltraServerStub::HandleReportRenderThread(MessageParcel& data, MessageParcel&)
{
    RequestReader reader(data);
    std::string first = reader.Text();
    std::string second = reader.Text();
    const int32_t value = reader.Int32();
    return reader.IsBad() ? SERVICE_BAD_REQUEST : ReportRenderThread(std::move(first), std::move(second), value);
}

int32_t VeltraServerStub::HandleRegisterCallBack(MessageParcel& data, MessageParcel&)
{
    RequestReader reader(data);
    const sptr<IGpNapiEventCallback> callback = reader.Callback<IGpNapiEventCallback>();
    return reader.IsBad() ? SERVICE_BAD_REQUEST : RegisterCallBack(callback);
}

int32_t VeltraServerStub::HandleUnRegisterCallBack(MessageParcel&, MessageParcel&)
{
    return UnRegisterCallBack();
}

int32_t VeltraServerStub::HandleUpdateGameInfo(MessageParcel& data, MessageParcel&)
{
    RequestReader reader(data);
    const int32_t first = reader.Int32();
    const std::string text = reader.Text();
    const int32_t second = reader.Int32();
    return reader.IsBad() ? SERVICE_BAD_REQUEST : UpdateGameInfo(first, text, second);
}

int32_t VeltraServerStub::HandleCallAuth(MessageParcel& data, MessageParcel&)
{
    RequestReader reader(data);
    const std::string text = reader.Text();
    return reader.IsBad() ? SERVICE_BAD_REQUEST : CallAuth(text);
}

int32_t VeltraServerStub::HandleStartGetGpuPerfInfo(MessageParcel& data, MessageParcel&)
{
    RequestReader reader(data);
    const int32_t value = reader.Int32();
    const sptr<IGpuCounterNativeCallback> callback = reader.Callback<IGpuCounterNativeCallback>();
    return reader.IsBad() ? SERVICE_BAD_REQUEST : StartGetGpuPerfInfo(value, callback);
}

int32_t VeltraServerStub::HandleStopGetGpuPerfInfo(MessageParcel&, MessageParcel&)
{
    return StopGetGpuPerfInfo();
}

int32_t VeltraServerStub::HandleRegisterCallbackForGraphic(MessageParcel& data, MessageParcel&)
{
    RequestReader reader(data);
    std::string text = reader.Text();
    const int32_t value = reader.Int32();
    const sptr<IGameGraphicCallback> callback = reader.Callback<IGameGraphicCallback>();
    if (reader.IsBad()) {
        return SERVICE_BAD_REQUEST;
    }
    RegisterCallbackForGraphic(std::move(text), value, callback);
    return SERVICE_NOT_SUPPORTED;  // the operation has no result, and the sender should not take it for done
}

}  // namespace TAVO::Veltra
