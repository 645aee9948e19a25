// SPDX-License-Identifier: Apache-2.0
// The process's one connection to the service, and the operations that go through it.
#ifndef VELTRA_CLIENT_VELTRA_SERVER_CLIENT_PROXY_H
#define VELTRA_CLIENT_VELTRA_SERVER_CLIENT_PROXY_H

#include <condition_variable>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "client/veltra_sa_death_recipient.h"
#include "ipc/iveltra_server_interface.h"
#include "tavo/delayed_ref_singleton.h"
#include "tavo/mutex.h"
#include "veltra_callbacks.h"
#include "veltra_export.h"

namespace TAVO::Veltra {

class GameEventCallback;
class GpuCounterCallBack;
class ResourcePreDownloadCallback;

// Four ideas in a file each: the connection, the operations, the subscriptions, the device state. Any thread, but
// subscriptions one at a time. Used through DelayedRefSingleton, so it lives to the end of the process; an operation
// throws nothing, whatever happens below it.
class VELTRA_EXPORT VeltraClientProxy {
public:
    VeltraClientProxy();
    virtual ~VeltraClientProxy();
    VeltraClientProxy(const VeltraClientProxy&) = delete;
    VeltraClientProxy& operator=(const VeltraClientProxy&) = delete;

    // Connection.

    // Returns the service, looked up anew by each call and loaded if it is not running. Calls to the manager are made
    // under proxyMutex_, one caller after the other; the wait for a load, up to 10 s, releases it, so that several
    // callers wait for one start at the same time. Null if there is no service; without a manager or out of memory
    // the field keeps its value.
    sptr<IVeltraServerInterface> GetServiceProxy();
    // Drops the connection and its death notice.
    void ReleaseServiceProxy() TAVO_REQUIRES(proxyMutex_);
    // From the load callback and the death recipient, on a platform thread.
    void LoadSystemAbilitySuccess(const sptr<IRemoteObject>& remoteObject);
    void LoadSystemAbilityFail();
    void OnRemoteSaDead(const wptr<IRemoteObject>& object);

    // Operations: the contracts of VeltraClient.

    int32_t UpdateGameInfo(int32_t first, const std::string& text, int32_t second);
    int32_t CallAuth(const std::string& text);
    void ReportGameEvent(GameInfo& info);
    std::map<std::string, bool> SyncAppType(const std::string& text, int32_t value);
    int32_t ReportRenderThread(std::string first, std::string second, int32_t value);
    int32_t NotifyGameEvent(GameSceneBundle& bundle);
    int32_t NotifyAppResourceDownLoadResults(std::vector<AppResourceDownLoadResult>& results);
    std::map<std::string, std::string> GetSystemFunctionStatus(std::map<std::string, std::string>& query);

    // Subscriptions: the contracts of VeltraClient.

    // Sends a request for the first key only, later ones share its object. The death of the service changes nothing
    // here.
    int32_t RegisterGameCallback(std::unique_ptr<GameEventCallbackBase> callback, int32_t key);
    // Sends a request when the last key is removed. Without a service the registration stays, without keys.
    int32_t UnRegisterGameCallback(int32_t key);
    int32_t StartGetGpuPerfInfo(int32_t value, std::unique_ptr<GpuCounterCallBackBase> callback);
    int32_t StopGetGpuPerfInfo();
    int32_t QueryAppResourceInfos(const std::vector<std::string>& bundleNames,
                                  std::unique_ptr<QueryAppResourceInfoCallbackBase> callback);
    int32_t GetAppPrioritys(std::vector<std::string>& bundleNames,
                            std::unique_ptr<GetAppPrioritysCallbackBase> callback);

    // Device state.

    GameCallbackEventInfo GetDeviceInfo(std::vector<QueryDeviceStateDetail> details);
    // Fills `info` from the service's JSON text; resultCode becomes RESULT_BAD_DEVICE_STATE, and nothing else changes,
    // for a text that is no object, has no usable "tempLevel" or is longer than 1 MiB.
    void AssembleDeviceStateResponse(std::string response, GameCallbackEventInfo& info);

private:
    // Reads the field without the lock, on purpose: a null test of an sptr is no data race, and the field may be
    // replaced at any time anyway. Calls go through the reference that GetServiceProxy returned.
    bool HasServiceProxy() const TAVO_NO_THREAD_ANALYSIS { return serviceProxy_ != nullptr; }
    // The service for one operation: null when the field is null or GetServiceProxy returned no reference.
    VELTRA_HIDDEN sptr<IVeltraServerInterface> FindService();
    VELTRA_HIDDEN bool WaitForServiceProxy() TAVO_REQUIRES(proxyMutex_);

    Mutex proxyMutex_;                        // released while GetServiceProxy waits for a load
    std::condition_variable proxyCondition_;  // notified when a load succeeded with an object, or failed
    sptr<IVeltraServerInterface> serviceProxy_ TAVO_GUARDED_BY(proxyMutex_);  // null: not connected
    const sptr<VeltraSaDeathRecipient> deathRecipient_;                       // never null
    // No lock: callers serialise subscriptions. The service holds references of its own to these objects.
    sptr<GameEventCallback> callbackPtr_;                    // null: nothing registered
    sptr<GpuCounterCallBack> gpuCallbackPtr_;                // null: no stream
    sptr<ResourcePreDownloadCallback> resourceCallbackPtr_;  // of the latest QueryAppResourceInfos, null if refused
    bool isRegistered_ = false;                              // the service has accepted callbackPtr_
};

}  // namespace TAVO::Veltra

// The one instance is the library's, whatever module asks for it.
extern template class VELTRA_EXPORT TAVO::DelayedRefSingleton<TAVO::Veltra::VeltraClientProxy>;

#endif
