// SPDX-License-Identifier: Apache-2.0
// VeltraClient, the one door to the game-support service.
#ifndef VELTRA_SERVER_CLIENT_H
#define VELTRA_SERVER_CLIENT_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "game_scene_bundle.h"
#include "veltra_export.h"
#include "veltra_records.h"
#include "veltra_result.h"

namespace TAVO::Veltra {

// Stateless: any number of instances share one connection, which is made by the first operation and made again after
// the service died; there is nothing to open or close. Call from any thread, in any order.
//
// Time: each operation may block up to 10 s while the service is loaded (callers that come meanwhile queue up behind
// it, each with 10 s of its own), up to 2 s for a manager that does not answer, then up to 8 s for the service's
// answer. With the service running it is one round trip. Nothing is sent twice: whether a request whose answer was lost
// has run is unknown.
//
// Errors: no operation throws, short of memory running out while an argument is copied or the connection object is
// made by the first call of the process. int32_t results are 0, a code of veltra_result.h or the service's own code.
// A request carries at most 64 MiB, ReportGameEvent 64 KiB; a longer one is not sent whole and fails. In a child of
// fork() every operation reports that there is no service.
//
// Arguments are read during the call only; those taken by non-const reference are not changed.
class VELTRA_EXPORT VeltraClient {
public:
    VeltraClient() = default;
    virtual ~VeltraClient();

    // Passes a text to the service for it to decide whether this process may use it. 0: yes.
    int32_t CallAuth(const std::string& text);

    // Tells the service about this game.
    int32_t UpdateGameInfo(int32_t first, const std::string& text, int32_t second);

    // Reports a game event and does not wait for the service: only finding or loading it takes time. Lost without
    // notice when there is no service or it does not keep up.
    void ReportGameEvent(GameInfo& info);

    // The answer of the service about app types: at most 1000 pairs. Empty when there is no service.
    std::map<std::string, bool> SyncAppType(const std::string& text, int32_t value);

    // Names a render thread of the game. RESULT_RENDER_NO_SERVICE (-1) when there is no service; a request that failed
    // on its way gives the platform's negative status instead of RESULT_NO_SERVICE.
    int32_t ReportRenderThread(std::string first, std::string second, int32_t value);

    // The load and thermal state of the device. Everything but `resultCode` has its default unless that is 0, and also
    // when the service's text was unusable, which still yields 0: test `tempLevel` for -1.
    GameCallbackEventInfo GetDeviceInfo(std::vector<QueryDeviceStateDetail> details);

    // Reports a scene. `bundle` is asked for its encoding on this thread, during the call.
    int32_t NotifyGameEvent(GameSceneBundle& bundle);

    // Reports how downloads of resources ended. RESULT_DOWNLOAD_RESULTS_REFUSED stands for every refusal of the service
    // and for a request that failed on its way.
    int32_t NotifyAppResourceDownLoadResults(std::vector<AppResourceDownLoadResult>& results);

    // The service's answers to named questions about system functions: at most 100 pairs. Empty when there is no
    // service.
    std::map<std::string, std::string> GetSystemFunctionStatus(std::map<std::string, std::string>& query);
};

}  // namespace TAVO::Veltra

#endif
