// SPDX-License-Identifier: Apache-2.0
// The numbers on which client and service agree: ability id, request codes and limits.
#ifndef VELTRA_IPC_SERVER_CODES_H
#define VELTRA_IPC_SERVER_CODES_H

#include <cstdint>

namespace TAVO::Veltra {

// The system-ability id under which the manager knows the service.
constexpr int32_t VELTRA_SERVER_SA_ID = 66006;

// Requests of IVeltraServerInterface. The gaps are requests that this client does not send.
enum class ServerCode : uint32_t {
    REPORT_GAME_EVENT = 1,  // the only one-way request
    NOTIFY_GAME_EVENT = 2,
    SYNC_APP_TYPE = 3,
    REPORT_RENDER_THREAD = 4,
    REGISTER_CALL_BACK = 5,
    UN_REGISTER_CALL_BACK = 6,
    UPDATE_GAME_INFO = 8,
    CALL_AUTH = 9,
    START_GET_GPU_PERF_INFO = 10,
    STOP_GET_GPU_PERF_INFO = 11,
    GET_DEVICE_INFO = 13,
    GET_APP_PRIORITYS = 15,
    QUERY_APP_RESOURCE_INFOS = 17,
    NOTIFY_APP_RESOURCE_DOWN_LOAD_RESULTS = 20,
    REGISTER_CALLBACK_FOR_GRAPHIC = 22,
    GET_SYSTEM_FUNCTION_STATUS = 27,
    QUERY_GAME_STATE = 28,
};

// Requests that the service sends to the callback objects.
enum class CallbackCode : uint32_t {
    GAME_EVENT = 7,                // IGpNapiEventCallback
    GPU_COUNTER_DATA = 12,         // IGpuCounterNativeCallback
    GET_APP_PRIORITYS = 16,        // IResourcePreDownloadNativeCallback
    QUERY_APP_RESOURCE_INFOS = 18  // IResourcePreDownloadNativeCallback
};

// Most pairs that the client reads from a reply. The first is cut with a warning, the second silently.
constexpr int32_t MAX_APP_TYPES = 1000;
constexpr int32_t MAX_FUNCTION_STATUSES = 100;
// Most texts of an answer to GetAppPrioritys; more is refused.
constexpr int32_t MAX_PRIORITIES = 100;

}  // namespace TAVO::Veltra

#endif
