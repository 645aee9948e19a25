// SPDX-License-Identifier: Apache-2.0
// VeltraClient: the facade by which a game uses the service.
#ifndef VELTRA_SERVER_CLIENT_H
#define VELTRA_SERVER_CLIENT_H

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "game_scene_bundle.h"
#include "veltra_callbacks.h"
#include "veltra_export.h"
#include "veltra_records.h"
#include "veltra_result.h"

namespace TAVO::Veltra {

// Stateless: any number of instances share one connection. The first operation connects, and the next one after a death
// of the service connects again; there is nothing to open or close. Call from any thread, in any order, except that
// subscription calls must not overlap (see below).
//
// Time: each operation may block up to 10 s while the service is loaded (each caller has 10 s of its own, and all
// return when the service is there), up to 2 s for a manager that does not answer or for a service that does not accept
// the connection, then up to 8 s for the service's answer. With the service running it is one round trip. Nothing is
// sent twice: whether a request whose answer was lost has run is unknown.
//
// Errors: no operation throws, except std::bad_alloc while an argument is copied or while the first call of the process
// creates the connection object. int32_t results are 0, a code of veltra_result.h or the service's own code. A request
// carries at most 64 MiB: a text that does not fit is left out, and the service refuses the request. A ReportGameEvent
// of more than 64 KiB has no effect. In a child of fork() every operation returns its result for a missing service.
//
// Arguments are read during the call only; those passed by non-const reference are not changed, except a GameState.
//
// The library owns a callback from the call on, also when the call fails. Callbacks run on threads of the platform:
// veltra_callbacks.h has the rules.
class VELTRA_EXPORT VeltraClient {
public:
    VeltraClient();
    virtual ~VeltraClient();

    // Subscriptions. The library does not lock what it keeps for them: the game must not run two operations on the same
    // subject (game events, GPU samples, resource information) at the same time, also not from callbacks. Only
    // GetAppPrioritys keeps nothing. Without a service all return RESULT_NO_SERVICE; a request that could not be sent
    // counts as refused. A null callback is accepted: what the service sends to it is dropped, and for game events it
    // adds no key.

    // Delivers game events to `callback` until `key` is unregistered; registering a key again replaces and destroys its
    // earlier callback. Only the first key sends a request to the service; further keys share its subscription.
    // RESULT_NOT_REGISTERED if the service refused. Waits for an event that is being delivered. After a restart of the
    // service no events arrive: unregister every key, repeat the last one while it returns RESULT_NO_SERVICE, ignore
    // any other result of it, and register again.
    int32_t RegisterGameCallback(std::unique_ptr<GameEventCallbackBase> callback, int32_t key);

    // Destroys the callback of `key`; a key that is not registered counts as removed. Waits for an event that is being
    // delivered. Removing the last key sends a request to the service. If that returns RESULT_NO_SERVICE, the
    // registration stays, without keys, until the call is repeated with success; RESULT_UNREGISTER_REFUSED ends the
    // registration. RESULT_NOT_REGISTERED if nothing is registered.
    int32_t UnRegisterGameCallback(int32_t key);

    // Starts the stream of GPU counter samples; `value` is the service's. One stream at a time: the library releases
    // the earlier one, also if the service refuses the new one (RESULT_GPU_REFUSED). A service that refused may
    // continue to send to the earlier callback, which lives until the service releases it too. `callback` receives no
    // batch that the library handles before the service has accepted the stream. After a restart of the service no
    // batches arrive, and StopGetGpuPerfInfo is refused: start the stream again.
    int32_t StartGetGpuPerfInfo(int32_t value, std::unique_ptr<GpuCounterCallBackBase> callback);

    // Ends the stream. RESULT_GPU_REFUSED if the service refused; the callback stays then.
    int32_t StopGetGpuPerfInfo();

    // Queries the resources of applications. `callback` receives the answer, possibly before this returns, and is kept
    // until the next such query. A refusal is returned as the service's own code; RESULT_NO_BUNDLE_NAMES for an empty
    // list.
    int32_t QueryAppResourceInfos(const std::vector<std::string>& bundleNames,
                                  std::unique_ptr<QueryAppResourceInfoCallbackBase> callback);

    // Queries the priorities of applications; an empty list is sent as well. `callback` receives the answer, possibly
    // before this returns, and is destroyed when the service releases it. RESULT_PRIORITIES_REFUSED for every refusal.
    int32_t GetAppPrioritys(std::vector<std::string>& bundleNames,
                            std::unique_ptr<GetAppPrioritysCallbackBase> callback);

    // Reports and queries.

    // Asks the service whether this process may use it; `text` is passed on. 0: yes.
    int32_t CallAuth(const std::string& text);

    // Reports this game to the service; docs/service.md explains the arguments.
    int32_t UpdateGameInfo(int32_t first, const std::string& text, int32_t second);

    // Reports a game event and does not wait for the service: only finding or loading it takes time. Lost without
    // notice when there is no service or it does not keep up.
    void ReportGameEvent(GameInfo& info);

    // Queries which applications are running games: at most 1000 pairs of bundle name and answer. Empty without a
    // service.
    std::map<std::string, bool> SyncAppType(const std::string& text, int32_t value);

    // Reports a render thread of the game. RESULT_RENDER_NO_SERVICE (-1) without a service. A request that failed
    // returns the platform's status (an IpcStatus, negative) or the status of the service's handler (which may be
    // positive) instead of RESULT_NO_SERVICE.
    int32_t ReportRenderThread(std::string first, std::string second, int32_t value);

    // The load and thermal state of the device. Everything but `resultCode` has its default unless that is 0, and also
    // when the service's text was unusable, which still yields 0: test `tempLevel` for -1. A text is unusable when it
    // is not a JSON object, has no usable "tempLevel", is longer than 1 MiB or is nested too deep for what is left of
    // the calling thread's stack: 16 KiB and 600 bytes a level.
    GameCallbackEventInfo GetDeviceInfo(std::vector<QueryDeviceStateDetail> details);

    // Reports a scene. Calls bundle.Marshalling on this thread, during the call. Returns 0 also if the request was lost
    // in transit.
    int32_t NotifyGameEvent(GameSceneBundle& bundle);

    // Reports how downloads of resources ended. RESULT_DOWNLOAD_RESULTS_REFUSED for every refusal of the service and
    // for a request that could not be sent.
    int32_t NotifyAppResourceDownLoadResults(std::vector<AppResourceDownLoadResult>& results);

    // Queries the game that the service knows, into `state`. Never starts the service: while it does not run, or no
    // manager answers, the result is 0 with `state.state` 2 (no game) and an unchanged bundleName. A request that
    // failed returns the platform's status (an IpcStatus, negative) or the status of the service's handler (which may
    // be positive).
    int32_t QueryGameState(GameState& state);

    // Queries the status of functions of the service by their names: at most 100 pairs. Empty without a service.
    std::map<std::string, std::string> GetSystemFunctionStatus(std::map<std::string, std::string>& query);
};

}  // namespace TAVO::Veltra

#endif
