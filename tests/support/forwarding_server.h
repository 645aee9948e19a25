// SPDX-License-Identifier: Apache-2.0
// A server that hands each request on through a proxy: what a stub decoded is encoded again, and can be compared.
#ifndef VELTRA_TESTS_SUPPORT_FORWARDING_SERVER_H
#define VELTRA_TESTS_SUPPORT_FORWARDING_SERVER_H

#include <map>
#include <new>
#include <string>
#include <vector>

#include "ipc/veltra_server_proxy.h"
#include "veltra_server_stub.h"

namespace TAVO::Veltra {

class ForwardingServer : public VeltraServerStub {
public:
    explicit ForwardingServer(const sptr<IRemoteObject>& next) : next_(next) {}

    bool isOutOfMemory = false;

    int32_t RegisterCallBack(const sptr<IGpNapiEventCallback>& callback) override
    {
        return Next().RegisterCallBack(callback);
    }
    int32_t UnRegisterCallBack() override { return Next().UnRegisterCallBack(); }
    int32_t UpdateGameInfo(int32_t first, const std::string& text, int32_t second) override
    {
        return Next().UpdateGameInfo(first, text, second);
    }
    int32_t CallAuth(const std::string& text) override { return Next().CallAuth(text); }
    void ReportGameEvent(GameInfo& info) override { Next().ReportGameEvent(info); }
    std::map<std::string, bool> SyncAppType(const std::string& text, int32_t value) override
    {
        return Next().SyncAppType(text, value);
    }
    int32_t ReportRenderThread(std::string first, std::string second, int32_t value) override
    {
        return Next().ReportRenderThread(first, second, value);
    }
    void RegisterCallbackForGraphic(std::string text, int32_t value, const sptr<IGameGraphicCallback>& object) override
    {
        Next().RegisterCallbackForGraphic(text, value, object);
    }
    int32_t StartGetGpuPerfInfo(int32_t value, const sptr<IGpuCounterNativeCallback>& callback) override
    {
        return Next().StartGetGpuPerfInfo(value, callback);
    }
    int32_t StopGetGpuPerfInfo() override { return Next().StopGetGpuPerfInfo(); }
    std::map<std::string, std::string> GetSystemFunctionStatus(std::map<std::string, std::string>& query) override
    {
        return Next().GetSystemFunctionStatus(query);
    }
    int32_t QueryGameState(GameState& state) override { return Next().QueryGameState(state); }
    int32_t NotifyGameEvent(GameSceneBundle& bundle) override { return Next().NotifyGameEvent(bundle); }
    DeviceInfoResult GetDeviceInfo(std::vector<QueryDeviceStateDetail> details) override
    {
        return Next().GetDeviceInfo(details);
    }
    int32_t QueryAppResourceInfos(const std::vector<std::string>& bundleNames,
                                  const sptr<IResourcePreDownloadNativeCallback>& callback) override
    {
        return Next().QueryAppResourceInfos(bundleNames, callback);
    }
    int32_t GetAppPrioritys(std::vector<std::string>& bundleNames,
                            const sptr<IResourcePreDownloadNativeCallback>& callback) override
    {
        return Next().GetAppPrioritys(bundleNames, callback);
    }
    int32_t NotifyAppResourceDownLoadResults(std::vector<AppResourceDownLoadResult>& results) override
    {
        return Next().NotifyAppResourceDownLoadResults(results);
    }

private:
    VeltraServerProxy& Next() { return isOutOfMemory ? throw std::bad_alloc() : next_; }

    VeltraServerProxy next_;
};

}  // namespace TAVO::Veltra

#endif
