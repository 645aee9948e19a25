// SPDX-License-Identifier: Apache-2.0
// The stub reads each request in the order in which clients write it, or does not act on it at all.
#include "veltra_server_stub.h"

#include <algorithm>
#include <climits>
#include <new>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "request_reader.h"
#include "service/request_items.h"
#include "service_result.h"
#include "veltra_result.h"

namespace TAVO::Veltra {
namespace {

// Notes each operation with its arguments and answers with values of its own.
class RecordingServer : public VeltraServerStub {
public:
    static constexpr int32_t RESULT = 4711;

    std::vector<std::string> calls;
    bool isOutOfMemory = false;
    DeviceInfoResult deviceInfo = {0, "{\"tempLevel\":1}"};
    int32_t gameStateResult = 0;

    int32_t RegisterCallBack(const sptr<IGpNapiEventCallback>& callback) override
    {
        return Note("RegisterCallBack", callback != nullptr);
    }
    int32_t UnRegisterCallBack() override { return Note("UnRegisterCallBack"); }
    int32_t UpdateGameInfo(int32_t first, const std::string& text, int32_t second) override
    {
        return Note("UpdateGameInfo", first, text, second);
    }
    int32_t CallAuth(const std::string& text) override { return Note("CallAuth", text); }
    void ReportGameEvent(GameInfo& info) override
    {
        Note("ReportGameEvent", info.int32Value, info.int64Value, info.text1, info.text2, info.text3, info.text4,
             info.text5, info.text6);
    }
    std::map<std::string, bool> SyncAppType(const std::string& text, int32_t value) override
    {
        Note("SyncAppType", text, value);
        return {{"a", true}, {"b", false}};
    }
    int32_t ReportRenderThread(std::string first, std::string second, int32_t value) override
    {
        return Note("ReportRenderThread", first, second, value);
    }
    void RegisterCallbackForGraphic(std::string text, int32_t value,
                                    const sptr<IGameGraphicCallback>& callback) override
    {
        Note("RegisterCallbackForGraphic", text, value, callback != nullptr);
    }
    int32_t StartGetGpuPerfInfo(int32_t value, const sptr<IGpuCounterNativeCallback>& callback) override
    {
        return Note("StartGetGpuPerfInfo", value, callback != nullptr);
    }
    int32_t StopGetGpuPerfInfo() override { return Note("StopGetGpuPerfInfo"); }
    std::map<std::string, std::string> GetSystemFunctionStatus(std::map<std::string, std::string>& query) override
    {
        Note("GetSystemFunctionStatus", query);
        return {{"k", "v"}};
    }
    int32_t QueryGameState(GameState& state) override
    {
        Note("QueryGameState");
        state = {3, "com.game"};
        return gameStateResult;
    }
    int32_t NotifyGameEvent(GameSceneBundle& bundle) override
    {
        return Note("NotifyGameEvent", bundle.sceneId, bundle.sceneName, bundle.attributes);
    }
    DeviceInfoResult GetDeviceInfo(std::vector<QueryDeviceStateDetail> details) override
    {
        Note("GetDeviceInfo", details.size());
        for (const QueryDeviceStateDetail& detail : details) {
            calls.back() += ' ' + std::to_string(detail.queryType) + Text(detail.queryParams);
        }
        return deviceInfo;
    }
    int32_t QueryAppResourceInfos(const std::vector<std::string>& bundleNames,
                                  const sptr<IResourcePreDownloadNativeCallback>& callback) override
    {
        return Note("QueryAppResourceInfos", bundleNames, callback != nullptr);
    }
    int32_t GetAppPrioritys(std::vector<std::string>& bundleNames,
                            const sptr<IResourcePreDownloadNativeCallback>& callback) override
    {
        return Note("GetAppPrioritys", bundleNames, callback != nullptr);
    }
    int32_t NotifyAppResourceDownLoadResults(std::vector<AppResourceDownLoadResult>& results) override
    {
        Note("NotifyAppResourceDownLoadResults", results.size());
        for (const AppResourceDownLoadResult& r : results) {
            const AppResourceInfo& info = r.resourceInfo;
            std::ostringstream line;
            line << ' ' << r.text1 << ' ' << r.text2 << ' ' << r.value1 << ' ' << r.value2 << ' ' << r.value3 << ' '
                 << r.count1 << ' ' << r.count2 << ' ' << r.value4 << " [" << info.text1 << ' ' << info.int1 << ' '
                 << info.int2 << ' ' << info.text2 << ' ' << info.text3 << ' ' << info.long1 << ' ' << info.int3 << ' '
                 << info.text4 << ']';
            calls.back() += line.str();
        }
        return RESULT;
    }

private:
    template <typename Value>
    static Value Text(const Value& value)
    {
        return value;
    }
    static std::string Text(const std::map<std::string, std::string>& pairs)
    {
        std::string text;
        for (const auto& [key, value] : pairs) {
            text += '{' + key + '=' + value + '}';
        }
        return text;
    }
    static std::string Text(const std::vector<std::string>& texts)
    {
        std::string all;
        for (const std::string& text : texts) {
            all += '<' + text + '>';
        }
        return all;
    }

    template <typename... Values>
    int32_t Note(const char* operation, const Values&... values)
    {
        if (isOutOfMemory) {
            throw std::bad_alloc();
        }
        std::ostringstream line;
        line << operation;
        ((line << ' ' << Text(values)), ...);
        calls.push_back(line.str());
        return RESULT;
    }
};

class EventCallback : public IRemoteStub<IGpNapiEventCallback> {
    int32_t OnGameCallbackEvent(const GameCallbackEventInfo&) override { return 0; }
};
class GpuCallback : public IRemoteStub<IGpuCounterNativeCallback> {
    int32_t OnGpuData(std::vector<GpuPerfInfo>&) override { return 0; }
};
class GraphicCallback : public IRemoteStub<IGameGraphicCallback> {
    int32_t OnGraphicSetting(const std::string&, int32_t) override { return 0; }
};
class ResourceCallback : public IRemoteStub<IResourcePreDownloadNativeCallback> {
    int32_t OnGetAppPrioritys(std::vector<std::string>&) override { return 0; }
    int32_t OnQueryAppResourceInfos(const AppResourceInfos&) override { return 0; }
};

enum class ReplyKind { CODE, CODE_AND_DATA, DATA, NONE };

struct Request {
    ServerCode code;
    Items items;
    std::string call;  // as the recording server notes it
    ReplyKind kind;
    Items reply;
    int status = 0;
};

Items DownloadItems(const std::string& name)
{
    return {Str(name), Str("t2"), I64(-1), I64(2),    I64(3),    I32(4), I32(5),
            I64(6),    I32(7),    I32(8),  Str("i2"), Str("i3"), I32(9), I64(10)};
}

// Every request of the interface.
std::vector<Request> AllRequests()
{
    const Items code = {I32(RecordingServer::RESULT)};
    const sptr<IRemoteObject> event(new EventCallback());
    const sptr<IRemoteObject> gpu(new GpuCallback());
    const sptr<IRemoteObject> graphic(new GraphicCallback());
    const sptr<IRemoteObject> resource(new ResourceCallback());
    return {
        {ServerCode::REPORT_GAME_EVENT,
         {I32(-7), I64(INT64_MIN), Str("t1"), Str("t2"), Str("t3"), Str("t5"), Str("t6"), Str("t4")},
         "ReportGameEvent -7 -9223372036854775808 t1 t2 t3 t4 t5 t6",
         ReplyKind::NONE,
         {}},
        {ServerCode::NOTIFY_GAME_EVENT,
         {I32(1), I32(5), Str("boss"), I32(1), Str("k"), Str("v")},
         "NotifyGameEvent 5 boss {k=v}",
         ReplyKind::CODE,
         code},
        {ServerCode::SYNC_APP_TYPE,
         {Str("com.a"), I32(2)},
         "SyncAppType com.a 2",
         ReplyKind::DATA,
         {I32(2), Str("a"), I32(1), Str("b"), I32(0)}},
        {ServerCode::REPORT_RENDER_THREAD,
         {Str("one"), Str("two"), I32(3)},
         "ReportRenderThread one two 3",
         ReplyKind::CODE,
         code},
        {ServerCode::REGISTER_CALL_BACK, {Obj(event)}, "RegisterCallBack 1", ReplyKind::CODE, code},
        {ServerCode::UN_REGISTER_CALL_BACK, {}, "UnRegisterCallBack", ReplyKind::CODE, code},
        {ServerCode::UPDATE_GAME_INFO,
         {I32(1), Str("com.game"), I32(60)},
         "UpdateGameInfo 1 com.game 60",
         ReplyKind::CODE,
         code},
        {ServerCode::CALL_AUTH, {Str("com.game")}, "CallAuth com.game", ReplyKind::CODE, code},
        {ServerCode::START_GET_GPU_PERF_INFO, {I32(16), Obj(gpu)}, "StartGetGpuPerfInfo 16 1", ReplyKind::CODE, code},
        {ServerCode::STOP_GET_GPU_PERF_INFO, {}, "StopGetGpuPerfInfo", ReplyKind::CODE, code},
        {ServerCode::GET_DEVICE_INFO,
         {I32(2), I32(1), I32(2), Str("a"), Str("1"), Str("b"), Str("2"), I32(-3), I32(0)},
         "GetDeviceInfo 2 1{a=1}{b=2} -3",
         ReplyKind::CODE_AND_DATA,
         {I32(0), Str("{\"tempLevel\":1}")}},
        {ServerCode::GET_APP_PRIORITYS,
         {I32(2), Str("x"), Str(""), Obj(resource)},
         "GetAppPrioritys <x><> 1",
         ReplyKind::CODE,
         code},
        {ServerCode::QUERY_APP_RESOURCE_INFOS,
         {I32(1), Str("x"), Obj(resource)},
         "QueryAppResourceInfos <x> 1",
         ReplyKind::CODE,
         code},
        {ServerCode::NOTIFY_APP_RESOURCE_DOWN_LOAD_RESULTS,
         Items{I32(2)} + DownloadItems("first") + DownloadItems("second"),
         "NotifyAppResourceDownLoadResults 2 first t2 -1 2 3 4 5 6 [ 7 8 i2 i3 10 9 ]"
         " second t2 -1 2 3 4 5 6 [ 7 8 i2 i3 10 9 ]",
         ReplyKind::CODE, code},
        {ServerCode::REGISTER_CALLBACK_FOR_GRAPHIC,
         {Str("t"), I32(4), Obj(graphic)},
         "RegisterCallbackForGraphic t 4 1",
         ReplyKind::NONE,
         {},
         SERVICE_NOT_SUPPORTED},
        {ServerCode::GET_SYSTEM_FUNCTION_STATUS,
         {I32(2), Str("a"), Str(""), Str("b"), Str("2")},
         "GetSystemFunctionStatus {a=}{b=2}",
         ReplyKind::DATA,
         {I32(1), Str("k"), Str("v")}},
        {ServerCode::QUERY_GAME_STATE,
         {},
         "QueryGameState",
         ReplyKind::CODE_AND_DATA,
         {I32(0), I32(3), Str("com.game")}},
    };
}

// The refusal of a request, wherever its reply carries it; nothing else may be in the reply.
void ExpectRefused(const Sent& sent, ReplyKind kind, int32_t code)
{
    const bool leadsWithCode = kind == ReplyKind::CODE || kind == ReplyKind::CODE_AND_DATA;
    EXPECT_EQ(sent.status, leadsWithCode ? 0 : code);
    EXPECT_EQ(Bytes(sent.reply), Bytes(leadsWithCode ? Items{I32(code)} : Items{}));
}

TEST(VeltraServerStub, EachRequestReachesItsOperationAndGetsItsReply)
{
    const std::vector<Request> requests = AllRequests();
    ASSERT_EQ(requests.size(), 17U);
    for (const Request& request : requests) {
        SCOPED_TRACE(request.call);
        RecordingServer server;
        const Sent sent(server, request.code, request.items);
        EXPECT_EQ(sent.status, request.status);
        EXPECT_EQ(server.calls, std::vector<std::string>{request.call});
        EXPECT_EQ(Bytes(sent.reply), Bytes(request.reply));
    }
}

TEST(VeltraServerStub, ARequestCutAnywhereCallsNothing)
{
    for (const Request& request : AllRequests()) {
        for (size_t count = 0; count < request.items.size(); ++count) {
            SCOPED_TRACE(request.call + " cut to " + std::to_string(count));
            RecordingServer server;
            ExpectRefused(Sent(server, request.code, request.items, count), request.kind, SERVICE_BAD_REQUEST);
            EXPECT_TRUE(server.calls.empty());
        }
    }
}

TEST(VeltraServerStub, CountsAndTextsBeyondTheirBoundsCallNothing)
{
    const sptr<IRemoteObject> resource(new ResourceCallback());
    const sptr<IRemoteObject> event(new EventCallback());
    const Item longText = Str(std::string(MAX_REQUEST_TEXT_BYTES + 1, 'x'));
    const Items detail = {I32(0), I32(0)};
    const Items pair = {Str("k"), Str("v")};
    const struct {
        const char* what;
        ServerCode code;
        Items items;
    } rows[] = {
        {"details -1", ServerCode::GET_DEVICE_INFO, {I32(-1)}},
        {"details huge", ServerCode::GET_DEVICE_INFO, Items{I32(INT_MAX)} + detail},
        {"details 65", ServerCode::GET_DEVICE_INFO, Items{I32(65)} + Times(65, detail)},
        {"params -1", ServerCode::GET_DEVICE_INFO, {I32(1), I32(0), I32(-1)}},
        {"params huge", ServerCode::GET_DEVICE_INFO, Items{I32(1), I32(0), I32(INT_MAX)} + pair},
        {"params twice", ServerCode::GET_DEVICE_INFO, Items{I32(1), I32(0), I32(2)} + pair + pair},
        {"params descending", ServerCode::GET_DEVICE_INFO,
         Items{I32(1), I32(0), I32(2)} + pair + Items{Str("j"), Str("v")}},
        {"functions 101", ServerCode::GET_SYSTEM_FUNCTION_STATUS, Items{I32(101)} + Times(101, pair)},
        {"functions -1", ServerCode::GET_SYSTEM_FUNCTION_STATUS, {I32(-1)}},
        {"names 0", ServerCode::QUERY_APP_RESOURCE_INFOS, {I32(0), Obj(resource)}},
        {"names -1", ServerCode::GET_APP_PRIORITYS, {I32(-1), Obj(resource)}},
        {"names 1001", ServerCode::GET_APP_PRIORITYS,
         Items{I32(1001)} + Times(1001, {Str("n")}) + Items{Obj(resource)}},
        {"results -1", ServerCode::NOTIFY_APP_RESOURCE_DOWN_LOAD_RESULTS, {I32(-1)}},
        {"results 1001", ServerCode::NOTIFY_APP_RESOURCE_DOWN_LOAD_RESULTS,
         Items{I32(1001)} + Times(1001, DownloadItems("n"))},
        {"attributes 65", ServerCode::NOTIFY_GAME_EVENT, {I32(1), I32(5), Str("boss"), I32(65)}},
        {"no scene", ServerCode::NOTIFY_GAME_EVENT, {I32(0), I32(5), Str("boss"), I32(0)}},
        {"long text", ServerCode::CALL_AUTH, {longText}},
        {"text of -1 bytes", ServerCode::CALL_AUTH, {I32(-1), I32(0)}},
        {"text of 2 GiB", ServerCode::CALL_AUTH, {I32(INT_MAX), I32(0)}},
        {"text without end", ServerCode::CALL_AUTH, {I32(4), I32(0x61616161), I32(0x61616161)}},
        {"long last text",
         ServerCode::REPORT_GAME_EVENT,
         {I32(1), I64(2), Str(""), Str(""), Str(""), Str(""), Str(""), longText}},
        {"a number for an object", ServerCode::REGISTER_CALL_BACK, {I64(1)}},
        {"an object of another interface", ServerCode::REGISTER_CALL_BACK, {Obj(resource)}},
        {"an object of another interface", ServerCode::START_GET_GPU_PERF_INFO, {I32(1), Obj(event)}},
        {"an object of another interface", ServerCode::REGISTER_CALLBACK_FOR_GRAPHIC, {Str(""), I32(1), Obj(event)}},
        {"an object of another interface", ServerCode::QUERY_APP_RESOURCE_INFOS, {I32(1), Str("x"), Obj(event)}},
    };
    const std::vector<Request> requests = AllRequests();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const auto request = std::find_if(requests.begin(), requests.end(),
                                          [&row](const Request& candidate) { return candidate.code == row.code; });
        RecordingServer server;
        ExpectRefused(Sent(server, row.code, row.items), request->kind, SERVICE_BAD_REQUEST);
        EXPECT_TRUE(server.calls.empty());
    }
}

TEST(VeltraServerStub, RequestsAtTheirBoundsAreTaken)
{
    const sptr<IRemoteObject> resource(new ResourceCallback());
    Items pairs;
    for (int i = 100; i < 200; ++i) {
        pairs = pairs + Items{Str(std::to_string(i)), Str("v")};
    }
    const Items rows[] = {
        {I32(0)},
        Items{I32(64)} + Times(64, {I32(0), I32(0)}),
    };
    for (const Items& items : rows) {
        RecordingServer server;
        EXPECT_EQ(Sent(server, ServerCode::GET_DEVICE_INFO, items).reply.ReadInt32(), 0);
        EXPECT_EQ(server.calls.size(), 1U);
    }
    RecordingServer server;
    EXPECT_EQ(Sent(server, ServerCode::GET_SYSTEM_FUNCTION_STATUS, Items{I32(100)} + pairs).status, 0);
    Sent(server, ServerCode::NOTIFY_APP_RESOURCE_DOWN_LOAD_RESULTS, Items{I32(1000)} + Times(1000, DownloadItems("n")));
    Sent(server, ServerCode::NOTIFY_APP_RESOURCE_DOWN_LOAD_RESULTS, {I32(0)});
    Sent(server, ServerCode::GET_APP_PRIORITYS, {I32(0), Obj(resource)});
    Sent(server, ServerCode::QUERY_APP_RESOURCE_INFOS,
         Items{I32(1000)} + Times(1000, {Str("n")}) + Items{Obj(resource)});
    Sent(server, ServerCode::CALL_AUTH, {Str(std::string(MAX_REQUEST_TEXT_BYTES, 'x'))});
    EXPECT_EQ(server.calls.size(), 6U);
}

TEST(VeltraServerStub, ARequestForAnotherInterfaceIsRefusedBeforeItIsRead)
{
    using namespace std::string_view_literals;
    const std::u16string_view tokens[] = {
        u""sv,
        u"zem.game.perf.IVeltraServerInterface"sv,
        u"zem.game.perf.iVeltraServerInterfac"sv,
        u"zem.game.perf.iVeltraServerInterface\0"sv,
        u"zem.game.perf.iGpNapiEventCallback"sv,
    };
    for (const Request& request : AllRequests()) {
        for (const std::u16string_view token : tokens) {
            RecordingServer server;
            MessageParcel data;
            MessageParcel reply;
            MessageOption option;
            data.WriteInterfaceToken(token);
            WriteItems(data, request.items, request.items.size());
            EXPECT_EQ(server.OnRemoteRequest(static_cast<uint32_t>(request.code), data, reply, option),
                      RESULT_TOKEN_REFUSED);
            EXPECT_EQ(reply.GetDataSize(), 0U);
            EXPECT_TRUE(server.calls.empty());
        }
    }
}

TEST(VeltraServerStub, OtherCodesAreLeftToThePlatform)
{
    RecordingServer server;
    for (const uint32_t code : {0U, 7U, 12U, 14U, 16U, 18U, 19U, 21U, 23U, 26U, 29U, 0xFFFFFFFFU}) {
        EXPECT_EQ(Sent(server, static_cast<ServerCode>(code), {Str("x"), I32(1)}).status, IPC_UNKNOWN_CODE) << code;
    }
    EXPECT_TRUE(server.calls.empty());
}

TEST(VeltraServerStub, ARefusingOperationGivesItsCodeAlone)
{
    RecordingServer server;
    server.deviceInfo = {SERVICE_NO_SENSOR, "not to be sent"};
    server.gameStateResult = 77;
    ExpectRefused(Sent(server, ServerCode::GET_DEVICE_INFO, {I32(0)}), ReplyKind::CODE, SERVICE_NO_SENSOR);
    ExpectRefused(Sent(server, ServerCode::QUERY_GAME_STATE, {}), ReplyKind::CODE, 77);
}

TEST(VeltraServerStub, AnExceptionNeverLooksLikeSuccess)
{
    for (const Request& request : AllRequests()) {
        SCOPED_TRACE(request.call);
        RecordingServer server;
        server.isOutOfMemory = true;
        ExpectRefused(Sent(server, request.code, request.items), request.kind, SERVICE_NO_RESOURCES);
    }
}

TEST(VeltraServerStub, AReplyThatCannotBeWrittenWholeIsAFailure)
{
    for (const Request& request : AllRequests()) {
        const size_t whole = Bytes(request.reply).size();
        for (size_t limit = 0; limit < whole; limit += Parcel::SLOT) {
            SCOPED_TRACE(request.call + " capped at " + std::to_string(limit));
            RecordingServer server;
            MessageParcel data;
            MessageParcel reply;
            MessageOption option;
            reply.SetCapacityLimit(limit);
            data.WriteInterfaceToken(IVeltraServerInterface::GetDescriptor());
            WriteItems(data, request.items, request.items.size());
            EXPECT_EQ(server.OnRemoteRequest(static_cast<uint32_t>(request.code), data, reply, option),
                      RESULT_BAD_PARCEL);
        }
    }
}

}  // namespace
}  // namespace TAVO::Veltra
