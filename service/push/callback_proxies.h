// SPDX-License-Identifier: Apache-2.0
// The callback objects of clients as the service sees them: each operation is one request to the remote object.
#ifndef VELTRA_SERVICE_CALLBACK_PROXIES_H
#define VELTRA_SERVICE_CALLBACK_PROXIES_H

#include <cstdint>
#include <string>
#include <vector>

#include <tavo/iremote_proxy.h>

#include "ipc/igp_napi_event_callback.h"
#include "ipc/igpu_counter_native_callback.h"
#include "ipc/iresource_pre_download_native_callback.h"

namespace TAVO::Veltra {

// No state, no lock. Each operation blocks up to 8 s for the client's answer and gives the result of the client's
// callback; where none came back, the status of the request: an IpcStatus, which no sane result is equal to, or what
// the client's stub refused the request with.

class GameEventCallbackProxy : public IRemoteProxy<IGpNapiEventCallback> {
public:
    explicit GameEventCallbackProxy(const sptr<IRemoteObject>& object) : IRemoteProxy(object) {}
    int32_t OnGameCallbackEvent(const GameCallbackEventInfo& info) override;

private:
    static BrokerDelegator<GameEventCallbackProxy> delegator_;
};

class GpuCounterCallbackProxy : public IRemoteProxy<IGpuCounterNativeCallback> {
public:
    explicit GpuCounterCallbackProxy(const sptr<IRemoteObject>& object) : IRemoteProxy(object) {}
    // IPC_TOO_LARGE, and nothing sent, when the list does not fit a message.
    int32_t OnGpuData(std::vector<GpuPerfInfo>& infos) override;

private:
    static BrokerDelegator<GpuCounterCallbackProxy> delegator_;
};

class ResourcePreDownloadCallbackProxy : public IRemoteProxy<IResourcePreDownloadNativeCallback> {
public:
    explicit ResourcePreDownloadCallbackProxy(const sptr<IRemoteObject>& object) : IRemoteProxy(object) {}
    // Sends the first MAX_PRIORITIES texts: clients refuse a longer list whole.
    int32_t OnGetAppPrioritys(std::vector<std::string>& list) override;
    // IPC_TOO_LARGE, and nothing sent, when the list does not fit a message.
    int32_t OnQueryAppResourceInfos(const AppResourceInfos& infos) override;

private:
    static BrokerDelegator<ResourcePreDownloadCallbackProxy> delegator_;
};

}  // namespace TAVO::Veltra

#endif
