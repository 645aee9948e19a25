// SPDX-License-Identifier: Apache-2.0
// The operations that send the service an object to call back: each creates the object, keeps it and releases it.
//
// No lock guards the fields they use: callers take turns. A game's callback is destroyed before the operation returns
// if no object accepted it, or if the service holds no reference to its object.
#include <utility>

#include "callback/game_event_callback.h"
#include "callback/gpu_counter_call_back.h"
#include "callback/resource_pre_download_callback.h"
#include "client/veltra_server_client_proxy.h"
#include "tavo/ipc_threads.h"
#include "utils/veltra_log.h"
#include "veltra_result.h"

namespace TAVO::Veltra {

// Deliberate: once registered, keys are only added here, also after a restart of the service. A game that wants events
// from the new service unregisters first.
int32_t VeltraClientProxy::RegisterGameCallback(std::unique_ptr<GameEventCallbackBase> callback, int32_t key)
try {
    if (IpcThreads::IsForkedChild()) {  // Before the endpoint's lock, which a thread of the parent may hold.
        return RESULT_NO_SERVICE;
    }
    if (isRegistered_ && callbackPtr_ != nullptr) {
        VELTRA_LOGW("already register to SA, try to add callback list");
        return callbackPtr_->AddCallback(std::move(callback), key);
    }
    const sptr<IVeltraServerInterface> service = FindService();
    if (service == nullptr) {
        return RESULT_NO_SERVICE;
    }
    const sptr<GameEventCallback> callbacks(new GameEventCallback());
    if (const int32_t result = callbacks->AddCallback(std::move(callback), key); result != RESULT_OK) {
        return result;
    }
    // Before the request: the service may send the first event before its answer arrives.
    callbackPtr_ = callbacks;
    if (service->RegisterCallBack(callbacks) != RESULT_OK) {
        callbackPtr_ = nullptr;
        return RESULT_NOT_REGISTERED;
    }
    isRegistered_ = true;
    VELTRA_LOGI("register callback success!");
    return RESULT_OK;
} catch (...) {
    return RESULT_NO_SERVICE;
}

int32_t VeltraClientProxy::UnRegisterGameCallback(int32_t key)
try {
    if (IpcThreads::IsForkedChild()) {
        return RESULT_NO_SERVICE;
    }
    if (!isRegistered_) {
        VELTRA_LOGW("not register!");
        return RESULT_NOT_REGISTERED;
    }
    if (callbackPtr_ == nullptr) {  // after registrations that did not take turns
        isRegistered_ = false;
        VELTRA_LOGW("callbackPtr_ is nullptr!");
        return RESULT_CALLBACK_MISSING;
    }
    // Waits for an event that is being delivered: afterwards the game may destroy what its callback uses.
    callbackPtr_->RemoveCallback(key);
    if (callbackPtr_->HasCallBacks()) {
        return RESULT_OK;
    }
    const sptr<IVeltraServerInterface> service = FindService();
    if (service == nullptr) {
        return RESULT_NO_SERVICE;  // Deliberate: still registered, without keys; another try asks the service again.
    }
    if (service->UnRegisterCallBack() != RESULT_OK) {
        isRegistered_ = false;
        VELTRA_LOGW("unregister failed!");
        return RESULT_UNREGISTER_REFUSED;
    }
    callbackPtr_ = nullptr;
    isRegistered_ = false;
    VELTRA_LOGI("UnRegisterCallBack success!");
    return RESULT_OK;
} catch (...) {
    return RESULT_NO_SERVICE;
}

int32_t VeltraClientProxy::StartGetGpuPerfInfo(int32_t value, std::unique_ptr<GpuCounterCallBackBase> callback)
try {
    const sptr<IVeltraServerInterface> service = FindService();
    if (service == nullptr) {
        return RESULT_NO_SERVICE;
    }
    const sptr<GpuCounterCallBack> samples(new GpuCounterCallBack());
    // Replaces the object of an earlier stream, which the service still holds until it has accepted this one.
    gpuCallbackPtr_ = samples;
    const int32_t result = service->StartGetGpuPerfInfo(value, samples);
    if (result != RESULT_OK) {
        VELTRA_LOGI("serviceProxy StartGetGpuPerfInfo[%{public}d] ret!", result);
        gpuCallbackPtr_ = nullptr;
        return RESULT_GPU_REFUSED;
    }
    // Deliberate: only now, so that a refused callback never runs; samples that came before are dropped.
    return samples->SetProcessCallback(std::move(callback));
} catch (...) {
    return RESULT_NO_SERVICE;
}

int32_t VeltraClientProxy::StopGetGpuPerfInfo()
try {
    const sptr<IVeltraServerInterface> service = FindService();
    if (service == nullptr) {
        return RESULT_NO_SERVICE;
    }
    const int32_t result = service->StopGetGpuPerfInfo();
    if (result != RESULT_OK) {
        VELTRA_LOGI("serviceProxy StopGetGpuPerfInfo[%{public}d] ret!", result);
        return RESULT_GPU_REFUSED;  // Deliberate: the stream's object stays; the service may still send.
    }
    gpuCallbackPtr_ = nullptr;
    return RESULT_OK;
} catch (...) {
    return RESULT_NO_SERVICE;
}

// Deliberate: keeps the object though the service holds it too, and passes the service's code on, by which games tell
// the refusals of this query apart; GetAppPrioritys does neither.
int32_t VeltraClientProxy::QueryAppResourceInfos(const std::vector<std::string>& bundleNames,
                                                 std::unique_ptr<QueryAppResourceInfoCallbackBase> callback)
try {
    const sptr<IVeltraServerInterface> service = FindService();
    if (service == nullptr) {
        return RESULT_NO_SERVICE;
    }
    const sptr<ResourcePreDownloadCallback> answers(new ResourcePreDownloadCallback());
    resourceCallbackPtr_ = answers;
    answers->SetQueryAppResourceInfoCallback(std::move(callback));
    const int32_t result = service->QueryAppResourceInfos(bundleNames, answers);
    if (result != RESULT_OK) {
        VELTRA_LOGE("serviceProxy QueryAppResourceInfos ret=[%{public}d]", result);
        resourceCallbackPtr_ = nullptr;
    }
    return result;
} catch (...) {
    return RESULT_NO_SERVICE;
}

// Only the service holds the object afterwards: it may be asked again while an answer is outstanding.
int32_t VeltraClientProxy::GetAppPrioritys(std::vector<std::string>& bundleNames,
                                           std::unique_ptr<GetAppPrioritysCallbackBase> callback)
try {
    const sptr<IVeltraServerInterface> service = FindService();
    if (service == nullptr) {
        VELTRA_LOGE("get veltraServerProxy failed!");
        return RESULT_NO_SERVICE;
    }
    const sptr<ResourcePreDownloadCallback> answers(new ResourcePreDownloadCallback());
    answers->SetGetAppPrioritysCallback(std::move(callback));
    const int32_t result = service->GetAppPrioritys(bundleNames, answers);
    if (result != RESULT_OK) {
        VELTRA_LOGE("GetAppPrioritys failed! [%{public}d] ret!", result);
        return RESULT_PRIORITIES_REFUSED;
    }
    return RESULT_OK;
} catch (...) {
    return RESULT_NO_SERVICE;
}

}  // namespace TAVO::Veltra
