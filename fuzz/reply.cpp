// SPDX-License-Identifier: Apache-2.0
// Does each operation make of any answer what its contract says: the result in it, a code, or its default?
#include <functional>
#include <new>

#include "input.h"
#include "ipc/veltra_server_proxy.h"
#include "support/callback_stubs.h"
#include "support/fake_remote_object.h"
#include "veltra_result.h"

namespace {

using Fuzz::Require;
using namespace TAVO;
using namespace TAVO::Veltra;

using Coded = std::function<int32_t(VeltraServerProxy&)>;

// Operations whose result is the first Int32 of the answer.
const std::vector<Coded>& CodedOperations()
{
    static const sptr<SilentResourceCallback> resource = MakeRef<SilentResourceCallback>();
    static std::vector<std::string> names = {"bundle"};
    static std::vector<AppResourceDownLoadResult> results(1);
    static const std::vector<Coded> operations = {
        [](VeltraServerProxy& proxy) { return proxy.RegisterCallBack(MakeRef<SilentEventCallback>()); },
        [](VeltraServerProxy& proxy) { return proxy.UnRegisterCallBack(); },
        [](VeltraServerProxy& proxy) { return proxy.UpdateGameInfo(1, "text", 2); },
        [](VeltraServerProxy& proxy) { return proxy.CallAuth("text"); },
        [](VeltraServerProxy& proxy) { return proxy.StartGetGpuPerfInfo(1, MakeRef<SilentGpuCallback>()); },
        [](VeltraServerProxy& proxy) { return proxy.StopGetGpuPerfInfo(); },
        [](VeltraServerProxy& proxy) { return proxy.QueryAppResourceInfos(names, resource); },
        [](VeltraServerProxy& proxy) { return proxy.GetAppPrioritys(names, resource); },
        [](VeltraServerProxy& proxy) { return proxy.NotifyAppResourceDownLoadResults(results); },
        [](VeltraServerProxy& proxy) { return proxy.GetDeviceInfo({}).retCode; },
    };
    return operations;
}

// A service that gives the same answer to everything, or has no memory left for one.
struct Service {
    int status = IPC_OK;
    bool isThrowing = false;
    MessageParcel answer;

    int Answer(MessageParcel& reply)
    {
        if (isThrowing) {
            throw std::bad_alloc();
        }
        reply.SetData(answer.GetData(), answer.GetDataSize());
        return status;
    }
};

// More pairs than any operation takes, with a text or a flag each.
void WritePairs(FuzzedDataProvider& input, MessageParcel& answer)
{
    const int count = input.ConsumeIntegralInRange(0, MAX_APP_TYPES + 9);
    const bool isText = input.ConsumeBool();
    answer.WriteInt32(count);
    for (int i = 0; i < count; ++i) {
        answer.WriteString(std::to_string(i));
        isText ? answer.WriteString("on") : answer.WriteBool(true);
    }
}

void RequireCodes(VeltraServerProxy& proxy, const Service& service, bool isAnswered, int32_t first)
{
    const int32_t ownStatus = service.isThrowing ? IPC_BROKEN : service.status;
    for (const Coded& call : CodedOperations()) {
        Require(call(proxy) == (isAnswered ? first : RESULT_NO_SERVICE), "the result of the answer, or no service");
    }
    Require(proxy.ReportRenderThread("a", "b", 1) == (isAnswered ? first : ownStatus), "the result or the status");
    GameSceneBundle bundle;
    Require(proxy.NotifyGameEvent(bundle) == (service.isThrowing ? RESULT_NO_SERVICE : first),
            "the answer's in any case");
    GameInfo info;
    proxy.ReportGameEvent(info);
    proxy.RegisterCallbackForGraphic("text", 1, MakeRef<SilentGraphicCallback>());
}

void RequireGameState(VeltraServerProxy& proxy, bool isAnswered, MessageParcel& answer)
{
    GameState state{-5, "before"};
    const int32_t result = proxy.QueryGameState(state);
    ParcelAccess::ResetRead(answer);
    if (isAnswered && answer.ReadInt32() == RESULT_OK) {
        Require(result == RESULT_OK && state.state == answer.ReadInt32(), "the state that was told");
        const std::string name = answer.ReadString();
        Require(state.bundleName == (name.empty() ? "before" : name), "the name that was told, if one was");
    } else {
        Require((result != RESULT_OK || !isAnswered) && state.state == -5 && state.bundleName == "before",
                "no result, no change");
    }
}

template <typename Value>
void RequireMap(const std::map<std::string, Value>& map, bool isAnswered, int32_t count, int32_t cap, size_t bytes)
{
    const auto most = static_cast<size_t>(isAnswered ? std::clamp(count, 0, cap) : 0);
    Require(map.size() <= most && (most == 0) == map.empty(), "as many pairs as announced, within the cap");
    // What was announced and is not there comes as one pair of defaults.
    Require(map.size() <= bytes / Parcel::SLOT + 1, "no more than the answer holds");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    FuzzedDataProvider input(bytes, size);
    Service service;
    service.isThrowing = input.ConsumeIntegralInRange(0, 15) == 0;
    service.status = input.ConsumeBool() ? IPC_OK : input.ConsumeIntegral<int32_t>();
    if (input.ConsumeIntegralInRange(0, 7) == 0) {
        WritePairs(input, service.answer);
    } else if (input.ConsumeBool()) {
        service.answer.WriteInt32(RESULT_OK);
    }
    Fuzz::WriteItems(input, service.answer);
    Fuzz::Damage(input, service.answer);
    VeltraServerProxy proxy(MakeRef<FakeRemoteObject>(
        [&service](uint32_t, MessageParcel&, MessageParcel& reply) { return service.Answer(reply); }));
    const bool isAnswered = service.status == IPC_OK && !service.isThrowing;
    const int32_t first = service.answer.ReadInt32();
    const size_t sizeBytes = service.answer.GetDataSize();
    RequireCodes(proxy, service, isAnswered, first);
    RequireGameState(proxy, isAnswered, service.answer);
    RequireMap(proxy.SyncAppType("text", 1), isAnswered, first, MAX_APP_TYPES, sizeBytes);
    std::map<std::string, std::string> query = {{"a", "b"}};
    RequireMap(proxy.GetSystemFunctionStatus(query), isAnswered, first, MAX_FUNCTION_STATUSES, sizeBytes);
    const DeviceInfoResult info = proxy.GetDeviceInfo({{1, {{"a", "b"}}}});
    Require(info.retCode == RESULT_OK || info.result.empty(), "no state without success");
    return 0;
}
