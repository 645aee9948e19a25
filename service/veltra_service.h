// SPDX-License-Identifier: Apache-2.0
// The service itself: what each operation does on a Linux machine. docs/service.md gives every argument its meaning.
#ifndef VELTRA_SERVICE_VELTRA_SERVICE_H
#define VELTRA_SERVICE_VELTRA_SERVICE_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "device_state.h"
#include "game_table.h"
#include "veltra_server_stub.h"

namespace TAVO::Veltra {

// Operations run on platform workers, several at once, and wait for nobody.
class VeltraService final : public VeltraServerStub {
public:
    static constexpr size_t MAX_BUNDLE_NAME_BYTES = 256;  // of a name that is kept

    explicit VeltraService(const std::string& rootDir) : deviceState_(rootDir) {}

    int32_t UpdateGameInfo(int32_t first, const std::string& text, int32_t second) override;
    int32_t CallAuth(const std::string& text) override;
    void ReportGameEvent(GameInfo& info) override;
    std::map<std::string, bool> SyncAppType(const std::string& text, int32_t value) override;
    int32_t ReportRenderThread(std::string first, std::string second, int32_t value) override;
    int32_t NotifyGameEvent(GameSceneBundle& bundle) override;
    int32_t NotifyAppResourceDownLoadResults(std::vector<AppResourceDownLoadResult>& results) override;
    int32_t QueryGameState(GameState& state) override;
    std::map<std::string, std::string> GetSystemFunctionStatus(std::map<std::string, std::string>& query) override;
    DeviceInfoResult GetDeviceInfo(std::vector<QueryDeviceStateDetail> details) override;

    // What calls back into a client: SERVICE_NOT_SUPPORTED, and the callback is not kept.
    int32_t RegisterCallBack(const sptr<IGpNapiEventCallback>& callback) override;
    int32_t UnRegisterCallBack() override;
    void RegisterCallbackForGraphic(std::string text, int32_t value,
                                    const sptr<IGameGraphicCallback>& callback) override;
    int32_t StartGetGpuPerfInfo(int32_t value, const sptr<IGpuCounterNativeCallback>& callback) override;
    int32_t StopGetGpuPerfInfo() override;
    int32_t QueryAppResourceInfos(const std::vector<std::string>& bundleNames,
                                  const sptr<IResourcePreDownloadNativeCallback>& callback) override;
    int32_t GetAppPrioritys(std::vector<std::string>& bundleNames,
                            const sptr<IResourcePreDownloadNativeCallback>& callback) override;

private:
    int32_t ReportState(int32_t state, const std::string& bundleName);

    DeviceState deviceState_;
    GameTable games_;
};

}  // namespace TAVO::Veltra

#endif
