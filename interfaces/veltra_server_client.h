// SPDX-License-Identifier: Apache-2.0
// VeltraClient, the one door to the game-support service.
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

// Stateless: any number of instances share one connection, which is made by the first operation and made again after
// the service died; there is nothing to open or close. Call from any thread, in any order; subscriptions take turns.
//
// Time: each operation may block up to 10 s while the service is loaded (each caller has 10 s of its own, and all return
// when the service is there), up to 2 s for a manager that does not answer, then up to 8 s for the service's answer.
// With the service running it is one round trip. Nothing is sent twice: whether a request whose answer was lost has run
// is unknown.
//
// Errors: no operation throws, short of memory running out while an argument is copied or the connection object is
// made by the first call of the process. int32_t results are 0, a code of veltra_result.h or the service's own code.
// A request carries at most 64 MiB, ReportGameEvent 64 KiB; a longer one is not sent whole and fails. In a child of
// fork() every operation reports that there is no service.
//
// Arguments are read during the call only; those taken by non-const reference are not changed, a GameState excepted.
//
// Callbacks belong to the library from the call on, when it fails too, and run on its threads: veltra_callbacks.h has
// the rules.
class VELTRA_EXPORT VeltraClient {
public:
    VeltraClient();
    virtual ~VeltraClient();

    // Subscriptions. The library does not lock what it keeps for them: the game sees to it that no two operations on one
    // matter (game events, GPU samples, resource information) run at the same time, those called in callbacks
    // included; GetAppPrioritys alone keeps nothing. Without a service all return RESULT_NO_SERVICE; a request that
    // could not be sent counts as refused. A null callback is taken like any other: what comes for it is dropped, and
    // for game events it adds no key.

    // Delivers game events to `callback` until `key` is unregistered; the same key again replaces, and destroys, the
    // earlier callback. Only the first key asks the service, others join without asking. RESULT_NOT_REGISTERED if the
    // service refused. Waits for an event that is being delivered. A service that died and came again does not know of
    // the registration: unregister every key, the last one again while that returns RESULT_NO_SERVICE, ignore what else
    // it returns, and register again.
    int32_t RegisterGameCallback(std::unique_ptr<GameEventCallbackBase> callback, int32_t key);

    // Destroys the callback of `key`; a key that is not there counts as removed. Waits for an event that is being
    // delivered. The last key tells the service: RESULT_NO_SERVICE then leaves the registration standing with no keys,
    // until the same is tried again with success; RESULT_UNREGISTER_REFUSED ends it. RESULT_NOT_REGISTERED when nothing
    // is registered.
    int32_t UnRegisterGameCallback(int32_t key);

    // Starts the stream of GPU counter samples; `value` is the service's. One stream at a time: the library releases
    // the earlier one, also if the service refuses the new one (RESULT_GPU_REFUSED). A service that refused may go on
    // sending to the earlier callback, which lives until the service releases it too. `callback` sees nothing that
    // comes before this returns 0. A service that died and came again sends nothing more, and refuses to stop what it
    // does not know of: start the stream again.
    int32_t StartGetGpuPerfInfo(int32_t value, std::unique_ptr<GpuCounterCallBackBase> callback);

    // Ends the stream. RESULT_GPU_REFUSED if the service refused; the callback stays then.
    int32_t StopGetGpuPerfInfo();

    // Asks about the resources of applications; the answer comes to `callback`, also before this returns, and the
    // callback is kept after it until the next such question. A refusal is returned as the service's own code;
    // RESULT_NO_BUNDLE_NAMES for an empty list.
    int32_t QueryAppResourceInfos(const std::vector<std::string>& bundleNames,
                                  std::unique_ptr<QueryAppResourceInfoCallbackBase> callback);

    // Asks for the priorities of applications; an empty list is sent as well. The answer comes to `callback`, also
    // before this returns; the callback is destroyed when the service releases it. RESULT_PRIORITIES_REFUSED stands for every
    // refusal.
    int32_t GetAppPrioritys(std::vector<std::string>& bundleNames,
                            std::unique_ptr<GetAppPrioritysCallbackBase> callback);

    // Reports and questions.

    // Passes a text to the service for it to decide whether this process may use it. 0: yes.
    int32_t CallAuth(const std::string& text);

    // Tells the service about this game.
    int32_t UpdateGameInfo(int32_t first, const std::string& text, int32_t second);

    // Reports a game event and does not wait for the service: only finding or loading it takes time. Lost without
    // notice when there is no service or it does not keep up.
    void ReportGameEvent(GameInfo& info);

    // The answer of the service about app types: at most 1000 pairs. Empty when there is no service.
    std::map<std::string, bool> SyncAppType(const std::string& text, int32_t value);

    // Names a render thread of the game. RESULT_RENDER_NO_SERVICE (-1) when there is no service. A request that failed
    // gives the platform's status (an IpcStatus, negative) or the status of the service's handler (which may be positive)
    // instead of RESULT_NO_SERVICE.
    int32_t ReportRenderThread(std::string first, std::string second, int32_t value);

    // The load and thermal state of the device. Everything but `resultCode` has its default unless that is 0, and also
    // when the service's text was unusable, which still yields 0: test `tempLevel` for -1. A text is unusable when it is
    // not a JSON object, has no usable "tempLevel", is longer than 1 MiB or is nested too deep for what is left of the
    // calling thread's stack: 16 KiB and 600 bytes a level.
    GameCallbackEventInfo GetDeviceInfo(std::vector<QueryDeviceStateDetail> details);

    // Reports a scene. `bundle` is asked for its encoding on this thread, during the call. 0 also when the request was
    // lost in transit.
    int32_t NotifyGameEvent(GameSceneBundle& bundle);

    // Reports how downloads of resources ended. RESULT_DOWNLOAD_RESULTS_REFUSED stands for every refusal of the service
    // and for a request that could not be sent.
    int32_t NotifyAppResourceDownLoadResults(std::vector<AppResourceDownLoadResult>& results);

    // The state of the game as the service sees it, into `state`. Never starts the service: while it does not run, or
    // no manager answers, the result is 0 with `state.state` 2 (no game) and its bundleName as it was. A request that
    // failed gives the platform's status (an IpcStatus, negative) or the status of the service's handler (which may be
    // positive).
    int32_t QueryGameState(GameState& state);

    // The service's answers to named questions about system functions: at most 100 pairs. Empty when there is no
    // service.
    std::map<std::string, std::string> GetSystemFunctionStatus(std::map<std::string, std::string>& query);
};

}  // namespace TAVO::Veltra

#endif
