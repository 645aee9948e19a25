// SPDX-License-Identifier: Apache-2.0
// The operations that only forward: find the service, call it, return its answer. Nothing may throw into the game, so
// each has a catch-all, whose result is the one for a missing service: out of memory, the request was not made either.
#include <utility>

#include "client/veltra_server_client_proxy.h"
#include "utils/veltra_log.h"
#include "veltra_result.h"

namespace TAVO::Veltra {

int32_t VeltraClientProxy::UpdateGameInfo(int32_t first, const std::string& text, int32_t second)
try {
    const sptr<IVeltraServerInterface> service = FindService();
    return service != nullptr ? service->UpdateGameInfo(first, text, second) : RESULT_NO_SERVICE;
} catch (...) {
    return RESULT_NO_SERVICE;
}

int32_t VeltraClientProxy::CallAuth(const std::string& text)
try {
    const sptr<IVeltraServerInterface> service = FindService();
    return service != nullptr ? service->CallAuth(text) : RESULT_NO_SERVICE;
} catch (...) {
    return RESULT_NO_SERVICE;
}

void VeltraClientProxy::ReportGameEvent(GameInfo& info)
try {
    const sptr<IVeltraServerInterface> service = FindService();
    if (service != nullptr) {
        service->ReportGameEvent(info);
    }
} catch (...) {
}

std::map<std::string, bool> VeltraClientProxy::SyncAppType(const std::string& text, int32_t value)
try {
    const sptr<IVeltraServerInterface> service = FindService();
    return service != nullptr ? service->SyncAppType(text, value) : std::map<std::string, bool>();
} catch (...) {
    return {};
}

// Deliberate: -1 for no service, unlike its neighbours; engines test for it.
int32_t VeltraClientProxy::ReportRenderThread(std::string first, std::string second, int32_t value)
try {
    const sptr<IVeltraServerInterface> service = FindService();
    return service != nullptr ? service->ReportRenderThread(std::move(first), std::move(second), value)
                              : RESULT_RENDER_NO_SERVICE;
} catch (...) {
    return RESULT_RENDER_NO_SERVICE;
}

// Deliberate: tests the reference itself, not the field.
int32_t VeltraClientProxy::NotifyGameEvent(GameSceneBundle& bundle)
try {
    const sptr<IVeltraServerInterface> service = GetServiceProxy();
    if (service == nullptr) {
        return RESULT_NO_SERVICE;
    }
    const int32_t result = service->NotifyGameEvent(bundle);
    VELTRA_LOGD("serviceProxy NotifyGameEvent ret=[%{public}d]", result);
    return result;
} catch (...) {
    return RESULT_NO_SERVICE;
}

int32_t VeltraClientProxy::NotifyAppResourceDownLoadResults(std::vector<AppResourceDownLoadResult>& results)
try {
    const sptr<IVeltraServerInterface> service = FindService();
    if (service == nullptr) {
        VELTRA_LOGE("get veltraServerProxy failed!");
        return RESULT_NO_SERVICE;
    }
    const int32_t result = service->NotifyAppResourceDownLoadResults(results);
    if (result != RESULT_OK) {
        VELTRA_LOGE("NotifyAppResourceDownLoadResults failed! [%{public}d] ret!", result);
        return RESULT_DOWNLOAD_RESULTS_REFUSED;
    }
    return RESULT_OK;
} catch (...) {
    return RESULT_NO_SERVICE;
}

std::map<std::string, std::string> VeltraClientProxy::GetSystemFunctionStatus(std::map<std::string, std::string>& query)
try {
    const sptr<IVeltraServerInterface> service = FindService();
    return service != nullptr ? service->GetSystemFunctionStatus(query) : std::map<std::string, std::string>();
} catch (...) {
    return {};
}

}  // namespace TAVO::Veltra
