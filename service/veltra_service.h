// SPDX-License-Identifier: Apache-2.0
// The service itself: what each operation does on a Linux machine. docs/service.md gives every argument its meaning.
#ifndef VELTRA_SERVICE_VELTRA_SERVICE_H
#define VELTRA_SERVICE_VELTRA_SERVICE_H

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <tavo/mutex.h>

#include "base/device_state.h"
#include "base/gpu_counters.h"
#include "base/service_clock.h"
#include "base/ticker.h"
#include "catalogue.h"
#include "game_table.h"
#include "push/delivery_pool.h"
#include "push/push_desk.h"
#include "push/pusher.h"
#include "push/subscriptions.h"
#include "scenario/simulated_device.h"
#include "scenario/simulation.h"
#include "service_config.h"
#include "veltra_server_stub.h"
#include "watch/watch_hub.h"

namespace TAVO::Veltra {

// The configuration of a service.
struct ServiceSetup {
    std::string rootDir = "/";
    std::shared_ptr<const Scenario> scenario;  // in place of the machine; may be null
    double speed = 1;                          // of the scenario
    bool allowsSimulation = true;              // whether the control side may change it
    std::optional<Catalogue> catalogue;
    ServiceConfig config;
    // Names files that are read on top of `config` when it is first needed, so that a game's first call waits neither
    // for the search nor for the files; may be null. A file with a mistake is logged and ignored: it must not prevent
    // the service from running.
    std::function<std::vector<std::string>()> lateConfigFiles;
};

// What the control side shows and changes; lives as long as the service.
struct ServiceView {
    const ServiceSetup& setup;
    const ServiceClock& clock;
    const DeviceState& device;
    GameTable& games;
    const Subscriptions& subscriptions;
    Simulation& simulation;
    WatchHub& watchers;
    const CallCounts& calls;
    std::function<const ServiceConfig&()> config;
};

// Operations run on platform workers, several at once, and do not wait, except for the first that asks after GPU
// counters: it loads the driver's library. What is pushed goes out on threads of the service, never from a request.
class VeltraService final : public VeltraServerStub {
public:
    static constexpr size_t MAX_BUNDLE_NAME_BYTES = 256;  // of a name that is kept

    explicit VeltraService(ServiceSetup setup);

    ServiceView View();

    // Which of the names in `text` are games; all games for an empty text. At most MAX_APP_TYPES.
    static std::map<std::string, bool> AppTypes(const std::set<std::string>& games, const std::string& text);

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

    // One subscription of each kind for each process, the latest replacing.
    int32_t RegisterCallBack(const sptr<IGpNapiEventCallback>& callback) override;
    int32_t UnRegisterCallBack() override;
    int32_t StartGetGpuPerfInfo(int32_t value, const sptr<IGpuCounterNativeCallback>& callback) override;
    int32_t StopGetGpuPerfInfo() override;

    // The answers follow the result: to each query one, if the client takes it.
    int32_t QueryAppResourceInfos(const std::vector<std::string>& bundleNames,
                                  const sptr<IResourcePreDownloadNativeCallback>& callback) override;
    int32_t GetAppPrioritys(std::vector<std::string>& bundleNames,
                            const sptr<IResourcePreDownloadNativeCallback>& callback) override;

    // Not offered: the stub refuses it.
    void RegisterCallbackForGraphic(std::string text, int32_t value,
                                    const sptr<IGameGraphicCallback>& callback) override;

protected:
    int32_t BeforeRequest(ServerCode code) override;
    void AfterReply(ServerCode code, MessageParcel& reply) override;
    WatchHub* Watching() override { return hub_.Wants(WatchRecord::Kind::CALL) ? &hub_ : nullptr; }

private:
    int32_t ReportState(int32_t state, const std::string& bundleName);
    // `subscription`: its interval, and what the client requested.
    int32_t Subscribe(Subject subject, const sptr<IRemoteBroker>& callback, Subscription subscription);
    int32_t Unsubscribe(Subject subject);
    // Pushes `data` by `send(client, data)`.
    template <typename Send, typename Data>
    int32_t Answer(PushKind kind, const sptr<IRemoteBroker>& callback, Send send, Data data);
    // The configuration that the setup names, until that of the late files is known.
    const ServiceConfig& Config() TAVO_EXCLUDES(configMutex_);
    double Tick(double now);

    const ServiceSetup setup_;
    Mutex configMutex_;                                                  // held while the files are read
    std::optional<ServiceConfig> config_ TAVO_GUARDED_BY(configMutex_);  // never changed once it is set
    const ServiceClock clock_;
    Simulation simulation_;
    const DeviceState deviceState_;
    GameTable games_;
    SimulatedCounters gpuCounters_;
    const sptr<Subscriptions> subscriptions_;
    WatchHub hub_;
    const PushDesk desk_;
    DeliveryPool pool_;
    Pusher pusher_;
    Ticker ticker_;  // last: its thread uses the others
};

}  // namespace TAVO::Veltra

#endif
