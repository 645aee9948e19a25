// SPDX-License-Identifier: Apache-2.0
// The service as the client sees it: each operation is one request to the remote object.
#ifndef VELTRA_IPC_VELTRA_SERVER_PROXY_H
#define VELTRA_IPC_VELTRA_SERVER_PROXY_H

#include <map>
#include <string>
#include <vector>

#include "ipc/iveltra_server_interface.h"
#include "tavo/iremote_proxy.h"
#include "veltra_export.h"

namespace TAVO::Veltra {

// No state, no lock, no exception; blocks up to 8 s for the answer. Codes that are not the service's own:
// RESULT_TOKEN_REFUSED when the request could not be begun, RESULT_NO_SERVICE when there is no remote object or the
// sending failed. Callbacks must not be null. iface_cast makes the proxies, by way of `delegator_`.
class VELTRA_EXPORT VeltraServerProxy : public IRemoteProxy<IVeltraServerInterface> {
public:
    explicit VeltraServerProxy(const sptr<IRemoteObject>& impl);
    ~VeltraServerProxy() override;

    int32_t RegisterCallBack(const sptr<IGpNapiEventCallback>& callback) override;
    int32_t UnRegisterCallBack() override;
    int32_t UpdateGameInfo(int32_t first, const std::string& text, int32_t second) override;
    int32_t CallAuth(const std::string& text) override;
    void ReportGameEvent(GameInfo& info) override;
    std::map<std::string, bool> SyncAppType(const std::string& text, int32_t value) override;
    // Returns the status of a request that failed: the platform's, or that of the service's handler.
    int32_t ReportRenderThread(std::string first, std::string second, int32_t value) override;
    void RegisterCallbackForGraphic(std::string text, int32_t value,
                                    const sptr<IGameGraphicCallback>& callback) override;
    int32_t StartGetGpuPerfInfo(int32_t value, const sptr<IGpuCounterNativeCallback>& callback) override;
    int32_t StopGetGpuPerfInfo() override;
    std::map<std::string, std::string> GetSystemFunctionStatus(std::map<std::string, std::string>& query) override;
    // Returns the status of a request that failed: the platform's, or that of the service's handler. `state` changes
    // with a result of 0 only, and its bundleName only when the service names one.
    int32_t QueryGameState(GameState& state) override;
    // The value in the reply whatever the sending gave: 0 when the sending failed and there is none.
    int32_t NotifyGameEvent(GameSceneBundle& bundle) override;
    DeviceInfoResult GetDeviceInfo(std::vector<QueryDeviceStateDetail> details) override;
    // RESULT_NO_BUNDLE_NAMES, and nothing sent, for an empty list.
    int32_t QueryAppResourceInfos(const std::vector<std::string>& bundleNames,
                                  const sptr<IResourcePreDownloadNativeCallback>& callback) override;
    int32_t GetAppPrioritys(std::vector<std::string>& bundleNames,
                            const sptr<IResourcePreDownloadNativeCallback>& callback) override;
    int32_t NotifyAppResourceDownLoadResults(std::vector<AppResourceDownLoadResult>& results) override;

private:
    static BrokerDelegator<VeltraServerProxy> delegator_;
};

}  // namespace TAVO::Veltra

#endif
