// SPDX-License-Identifier: Apache-2.0
// A request passes here on a platform worker, in this order: find its row in the table, check the interface token, call
// BeforeRequest, decode and perform it in its handler, write the result code if the reply is still empty, call
// AfterReply. A handler writes to the reply only after its operation has returned, so an exception before that leaves
// room for a refusal. Each request is counted with its duration. With a watcher the same path also fills a record;
// without one it costs one test of a pointer.
#include "veltra_server_stub.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <string>
#include <utility>

#include <tavo/calling_peer.h>

#include "base/operation_names.h"
#include "base/service_log.h"
#include "service_result.h"
#include "veltra_result.h"

namespace TAVO::Veltra {

const VeltraServerStub::Request* VeltraServerStub::Find(uint32_t code)
{
    using Stub = VeltraServerStub;
    // The last column: whether a reply begins with the result code. Without one the status carries the code.
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
    // A code from a caller is counted only after it was found in this table, so this is the one check of its range.
    static_assert(std::all_of(std::begin(REQUESTS), std::end(REQUESTS), [](const Request& request) {
        return static_cast<size_t>(request.code) < CallCounts::CODES;
    }));
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
    // One atomic load; null while no tool watches calls.
    WatchHub* const watch = Watching();
    const Answered answered =
        watch == nullptr ? Count(*request, data, reply, nullptr) : AnswerWatched(*watch, *request, data, reply);
    if (answered.status != 0) {
        VELTRA_SERVICE_LOGI("request %u of process %d refused: %d", code, GetCallingPeer().pid, answered.status);
    }
    return answered.status;
}

VeltraServerStub::Answered VeltraServerStub::Count(const Request& request, MessageParcel& data, MessageParcel& reply,
                                                   WatchRecord* record)
{
    const auto begin = WatchRecord::Clock::now();
    const Answered answered = Answer(request, data, reply, record);
    const WatchRecord::Clock::duration duration = WatchRecord::Clock::now() - begin;
    counts_.Add(request.code, answered.result != 0, duration);
    if (record != nullptr) {
        record->code = answered.result;
        record->duration = duration;
    }
    return answered;
}

VeltraServerStub::Answered VeltraServerStub::Answer(const Request& request, MessageParcel& data, MessageParcel& reply,
                                                    WatchRecord* record)
{
    if (!data.MatchInterfaceToken(GetDescriptor())) {
        return {RESULT_TOKEN_REFUSED, RESULT_TOKEN_REFUSED};
    }
    const Answered answered = Perform(request, data, reply, record);
    // After the whole reply is written: a simulated fault may delay or damage it.
    AfterReply(request.code, reply);
    return answered;
}

VeltraServerStub::Answered VeltraServerStub::AnswerWatched(WatchHub& watch, const Request& request, MessageParcel& data,
                                                           MessageParcel& reply)
{
    WatchRecord record;
    record.name = NameOf(request.code);
    record.process = GetCallingPeer().pid;
    if (!watch.HasRoom()) {
        watch.CountLost(record);
        return Count(request, data, reply, nullptr);
    }
    record.isOneWay = request.code == ServerCode::REPORT_GAME_EVENT;
    const Answered answered = Count(request, data, reply, &record);
    try {
        watch.Add(std::move(record));
    } catch (...) {  // memory; the record is lost, the request is done
    }
    return answered;
}

VeltraServerStub::Answered VeltraServerStub::Perform(const Request& request, MessageParcel& data, MessageParcel& reply,
                                                     WatchRecord* record)
{
    int32_t result = SERVICE_NO_RESOURCES;
    try {
        RequestReader reader(data, record != nullptr ? &record->values : nullptr);
        ReplyWriter writer(reply, record != nullptr ? &record->reply : nullptr);
        // May block or end the process, by a simulated fault.
        const int32_t refusal = BeforeRequest(request.code);
        result = refusal != 0 ? refusal : (this->*request.handler)(reader, writer);
    } catch (...) {  // memory; handlers write nothing before their operation has returned
    }
    // A handler that has written its reply has written the code first.
    if (!request.leadsWithCode || reply.GetDataSize() > 0) {
        return {result, result};
    }
    return {reply.WriteInt32(result) ? 0 : RESULT_BAD_PARCEL, result};
}

int32_t VeltraServerStub::HandleReportGameEvent(RequestReader& request, ReplyWriter&)
{
    GameInfo info;
    request.Object("info", [&request, &info] {
        info.int32Value = request.Int32("int32Value");
        info.int64Value = request.Int64("int64Value");
        info.text1 = request.Text("text1");
        info.text2 = request.Text("text2");
        info.text3 = request.Text("text3");
        info.text5 = request.Text("text5");
        info.text6 = request.Text("text6");
        info.text4 = request.Text("text4");  // Deliberate: sent last; else three texts would change places.
    });
    if (request.IsBad()) {
        return SERVICE_BAD_REQUEST;
    }
    ReportGameEvent(info);
    return 0;
}

int32_t VeltraServerStub::HandleNotifyGameEvent(RequestReader& request, ReplyWriter&)
{
    const std::unique_ptr<GameSceneBundle> bundle = request.Record<GameSceneBundle>();
    if (bundle == nullptr) {
        return SERVICE_BAD_REQUEST;
    }
    // The bundle is read by its own code, not by the reader, so its fields are noted here.
    if (Note* note = request.GetNote()) {
        note->Begin("bundle");
        note->Number("sceneId", bundle->sceneId);
        note->Text("sceneName", bundle->sceneName);
        note->Pairs("attributes", bundle->attributes);
        note->End();
    }
    return NotifyGameEvent(*bundle);
}

int32_t VeltraServerStub::HandleSyncAppType(RequestReader& request, ReplyWriter& reply)
{
    const std::string text = request.Text("text");
    const int32_t value = request.Int32("value");
    if (request.IsBad()) {
        return SERVICE_BAD_REQUEST;
    }
    return reply.Pairs("result", SyncAppType(text, value)) ? 0 : RESULT_BAD_PARCEL;
}

int32_t VeltraServerStub::HandleReportRenderThread(RequestReader& request, ReplyWriter&)
{
    std::string first = request.Text("first");
    std::string second = request.Text("second");
    const int32_t value = request.Int32("value");
    return request.IsBad() ? SERVICE_BAD_REQUEST : ReportRenderThread(std::move(first), std::move(second), value);
}

int32_t VeltraServerStub::HandleRegisterCallBack(RequestReader& request, ReplyWriter&)
{
    const sptr<IGpNapiEventCallback> callback = request.Callback<IGpNapiEventCallback>();
    return request.IsBad() ? SERVICE_BAD_REQUEST : RegisterCallBack(callback);
}

int32_t VeltraServerStub::HandleUnRegisterCallBack(RequestReader&, ReplyWriter&)
{
    return UnRegisterCallBack();
}

int32_t VeltraServerStub::HandleUpdateGameInfo(RequestReader& request, ReplyWriter&)
{
    const int32_t first = request.Int32("first");
    const std::string text = request.Text("text");
    const int32_t second = request.Int32("second");
    return request.IsBad() ? SERVICE_BAD_REQUEST : UpdateGameInfo(first, text, second);
}

int32_t VeltraServerStub::HandleCallAuth(RequestReader& request, ReplyWriter&)
{
    const std::string text = request.Text("text");
    return request.IsBad() ? SERVICE_BAD_REQUEST : CallAuth(text);
}

int32_t VeltraServerStub::HandleStartGetGpuPerfInfo(RequestReader& request, ReplyWriter&)
{
    const int32_t value = request.Int32("value");
    const sptr<IGpuCounterNativeCallback> callback = request.Callback<IGpuCounterNativeCallback>();
    return request.IsBad() ? SERVICE_BAD_REQUEST : StartGetGpuPerfInfo(value, callback);
}

int32_t VeltraServerStub::HandleStopGetGpuPerfInfo(RequestReader&, ReplyWriter&)
{
    return StopGetGpuPerfInfo();
}

int32_t VeltraServerStub::HandleRegisterCallbackForGraphic(RequestReader& request, ReplyWriter&)
{
    std::string text = request.Text("text");
    const int32_t value = request.Int32("value");
    const sptr<IGameGraphicCallback> callback = request.Callback<IGameGraphicCallback>();
    if (request.IsBad()) {
        return SERVICE_BAD_REQUEST;
    }
    RegisterCallbackForGraphic(std::move(text), value, callback);
    return SERVICE_NOT_SUPPORTED;  // the operation has no result, and the sender should not take it for done
}

}  // namespace TAVO::Veltra
