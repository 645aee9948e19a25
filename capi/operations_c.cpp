// SPDX-License-Identifier: Apache-2.0
// The sixteen operations of veltra.h. A function of the caller becomes a callback object of the client library, which
// converts its arguments for the time of the call. No exception may leave a function of this file, since C has none:
// Guarded turns std::bad_alloc into VELTRA_NO_MEMORY. Structures of the caller are read and written through Read and
// Write, which copy only as many bytes as the caller's version of the structure has.
#include <iterator>
#include <memory>
#include <utility>

#include "convert.h"
#include "veltra.h"
#include "veltra_server_client.h"

namespace TAVO::Veltra::C {
namespace {

// The four callback objects. The client library owns them; the caller keeps what `user` points to alive until it has
// unregistered. An exception of a conversion (out of memory) is caught below them, in the library or in the platform;
// the function is not called then.
class EventFunction : public GameEventCallbackBase {
public:
    EventFunction(veltra_game_event_function function, void* user) : function_(function), user_(user) {}
    int32_t OnGameCallbackEvent(const GameCallbackEventInfo& info) override
    {
        // Called on a platform thread, under the mutex of the callback object (veltra_callbacks.h).
        const veltra_device_info passed = DeviceInfo(info);
        return function_(user_, &passed);
    }

private:
    const veltra_game_event_function function_;
    void* const user_;
};

class GpuFunction : public GpuCounterCallBackBase {
public:
    GpuFunction(veltra_gpu_function function, void* user) : function_(function), user_(user) {}
    int32_t OnGpuData(std::vector<GpuPerfInfo>& infos) override
    {
        const std::vector<veltra_gpu_sample> samples = Samples(infos);
        return function_(user_, samples.data(), samples.size());
    }

private:
    const veltra_gpu_function function_;
    void* const user_;
};

class NamesFunction : public GetAppPrioritysCallbackBase {
public:
    NamesFunction(veltra_names_function function, void* user) : function_(function), user_(user) {}
    int32_t OnGetAppPrioritys(std::vector<std::string>& list) override
    {
        std::vector<const char*> names;
        for (const std::string& name : list) {
            // Pointers into `list`, which outlives the call of the function.
            names.push_back(name.c_str());
        }
        return function_(user_, names.data(), names.size());
    }

private:
    const veltra_names_function function_;
    void* const user_;
};

class ResourcesFunction : public QueryAppResourceInfoCallbackBase {
public:
    ResourcesFunction(veltra_resources_function function, void* user) : function_(function), user_(user) {}
    int32_t OnQueryAppResourceInfos(const AppResourceInfos& infos) override
    {
        // The structures point into `infos`, so they are valid during the call only.
        const std::vector<veltra_resource> resources = Resources(infos);
        return function_(user_, resources.data(), resources.size());
    }

private:
    const veltra_resources_function function_;
    void* const user_;
};

}  // namespace
}  // namespace TAVO::Veltra::C

using namespace TAVO::Veltra;
using namespace TAVO::Veltra::C;

int32_t veltra_register_game_callback(veltra_game_event_function function, void* user, int32_t key)
{
    if (function == nullptr) {
        return VELTRA_BAD_ARGUMENT;
    }
    return Guarded(
        [&] { return VeltraClient().RegisterGameCallback(std::make_unique<EventFunction>(function, user), key); });
}

int32_t veltra_unregister_game_callback(int32_t key)
{
    return Guarded([&] { return VeltraClient().UnRegisterGameCallback(key); });
}

int32_t veltra_start_get_gpu_perf_info(int32_t value, veltra_gpu_function function, void* user)
{
    if (function == nullptr) {
        return VELTRA_BAD_ARGUMENT;
    }
    return Guarded(
        [&] { return VeltraClient().StartGetGpuPerfInfo(value, std::make_unique<GpuFunction>(function, user)); });
}

int32_t veltra_stop_get_gpu_perf_info(void)
{
    return Guarded([] { return VeltraClient().StopGetGpuPerfInfo(); });
}

int32_t veltra_query_app_resource_infos(const char* const* names, size_t count, veltra_resources_function function,
                                        void* user)
{
    if (function == nullptr || !IsArray(names, count)) {
        return VELTRA_BAD_ARGUMENT;
    }
    return Guarded([&] {
        return VeltraClient().QueryAppResourceInfos(Texts(names, count),
                                                    std::make_unique<ResourcesFunction>(function, user));
    });
}

int32_t veltra_get_app_prioritys(const char* const* names, size_t count, veltra_names_function function, void* user)
{
    if (function == nullptr || !IsArray(names, count)) {
        return VELTRA_BAD_ARGUMENT;
    }
    return Guarded([&] {
        std::vector<std::string> list = Texts(names, count);
        return VeltraClient().GetAppPrioritys(list, std::make_unique<NamesFunction>(function, user));
    });
}

int32_t veltra_call_auth(const char* text)
{
    return Guarded([&] { return VeltraClient().CallAuth(Text(text)); });
}

int32_t veltra_update_game_info(int32_t first, const char* text, int32_t second)
{
    return Guarded([&] { return VeltraClient().UpdateGameInfo(first, Text(text), second); });
}

int32_t veltra_report_game_event(const veltra_game_info* info)
{
    if (!IsGiven(info)) {
        return VELTRA_BAD_ARGUMENT;
    }
    return Guarded([&] {
        GameInfo record = GameInfoOf(Read(info));
        VeltraClient().ReportGameEvent(record);
        return RESULT_OK;
    });
}

int32_t veltra_report_render_thread(const char* first, const char* second, int32_t value)
{
    return Guarded([&] { return VeltraClient().ReportRenderThread(Text(first), Text(second), value); });
}

int32_t veltra_sync_app_type(const char* text, int32_t value, veltra_app_type_function function, void* user)
{
    if (function == nullptr) {
        return VELTRA_BAD_ARGUMENT;
    }
    return Guarded([&] {
        // The function runs on the calling thread, before this operation returns.
        for (const auto& [name, isRunning] : VeltraClient().SyncAppType(Text(text), value)) {
            function(user, name.c_str(), isRunning ? 1 : 0);
        }
        return RESULT_OK;
    });
}

int32_t veltra_get_system_function_status(const char* const* names, const char* const* values, size_t count,
                                          veltra_function_status_function function, void* user)
{
    if (function == nullptr || !IsArray(names, count) || !IsArray(values, count)) {
        return VELTRA_BAD_ARGUMENT;
    }
    return Guarded([&] {
        std::map<std::string, std::string> query = Pairs(names, values, count);
        for (const auto& [name, status] : VeltraClient().GetSystemFunctionStatus(query)) {
            function(user, name.c_str(), status.c_str());
        }
        return RESULT_OK;
    });
}

int32_t veltra_get_device_info(const int32_t* query_types, size_t count, veltra_device_info* info)
{
    if (!IsArray(query_types, count) || !IsGiven(info)) {
        return VELTRA_BAD_ARGUMENT;
    }
    return Guarded([&] {
        std::vector<QueryDeviceStateDetail> details(count);
        for (size_t i = 0; i < count; ++i) {
            // C callers give no parameters of the query: the service reads none.
            details[i].queryType = query_types[i];
        }
        const GameCallbackEventInfo answer = VeltraClient().GetDeviceInfo(std::move(details));
        if (answer.resultCode == RESULT_OK) {
            veltra_device_info whole = DeviceInfo(answer);
            // The text would be freed before the caller could read it; a query has none anyway.
            whole.event_text = nullptr;
            Write(whole, info);
        }
        return answer.resultCode;
    });
}

int32_t veltra_notify_game_event(int32_t scene_id, const char* scene_name, const char* const* keys,
                                 const char* const* values, size_t count)
{
    if (!IsArray(keys, count) || !IsArray(values, count)) {
        return VELTRA_BAD_ARGUMENT;
    }
    return Guarded([&] {
        GameSceneBundle bundle = SceneOf(scene_id, scene_name, Pairs(keys, values, count));
        return VeltraClient().NotifyGameEvent(bundle);
    });
}

int32_t veltra_notify_app_resource_down_load_results(const veltra_download_result* results, size_t count)
{
    // The size is read from the first element; all elements of an array have the same.
    if (count > 0 && !IsGiven(results)) {
        return VELTRA_BAD_ARGUMENT;
    }
    return Guarded([&] {
        std::vector<AppResourceDownLoadResult> list = Downloads(results, count);
        return VeltraClient().NotifyAppResourceDownLoadResults(list);
    });
}

int32_t veltra_query_game_state(veltra_game_state* state)
{
    if (!IsGiven(state)) {
        return VELTRA_BAD_ARGUMENT;
    }
    return Guarded([&] {
        GameState answer;
        const int32_t result = VeltraClient().QueryGameState(answer);
        if (result == RESULT_OK) {
            veltra_game_state whole{};
            whole.state = answer.state;
            // The structure was zeroed, so the text ends with a NUL also when it is cut.
            answer.bundleName.copy(whole.bundle_name, sizeof(whole.bundle_name) - 1);
            Write(whole, state);
        }
        return result;
    });
}
