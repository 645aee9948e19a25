// SPDX-License-Identifier: Apache-2.0
// Operations run on platform workers, several at once; each part that they use has its own lock. The constructor reads
// nothing of the machine: its configuration, the sensors and the GPU library are opened at first use, by one thread
// each, because a game may be blocked on the start of the service. What no descriptor was left for is opened by a later
// request. Subscriptions only store the callback and wake up the ticker, whose thread decides what to send and when;
// the delivery pool sends it. Where no thread can be started for the ticker, the subscription is removed and refused.
#include "veltra_service.h"

#include <unistd.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <string_view>
#include <utility>

#include <tavo/calling_peer.h>

#include "base/config_node.h"
#include "base/service_log.h"
#include "probes/machine_counters.h"
#include "probes/machine_source.h"
#include "push/callback_proxies.h"
#include "push/push_notes.h"
#include "service_result.h"

namespace TAVO::Veltra {

namespace {

const char* SupportedIf(bool isThere)
{
    return isThere ? "supported" : "unsupported";
}

// The machine, from the first reading on: its configuration is not read before. It is made anew if no descriptor was
// left for its folder or for the files of its configuration.
class LateMachine final : public DeviceSource {
public:
    LateMachine(std::string rootDir, std::function<const ServiceConfig&()> config)
        : rootDir_(std::move(rootDir)), config_(std::move(config))
    {
    }

    DeviceReading Read(const WantedState& wanted) override { return Machine(config_())->Read(wanted); }

private:
    std::shared_ptr<MachineSource> Machine(const ServiceConfig& config)
    {
        MutexLock lock(mutex_);
        if (machine_ == nullptr || !machine_->IsOpen() || madeFor_ != &config) {
            MachineSettings settings;
            settings.sensors = config.sensors;
            settings.heatInterval = config.heatInterval;
            settings.loadInterval = config.loadInterval;
            machine_ = std::make_shared<MachineSource>(rootDir_, settings);
            madeFor_ = &config;
        }
        return machine_;
    }

    const std::string rootDir_;
    const std::function<const ServiceConfig&()> config_;
    Mutex mutex_;
    std::shared_ptr<MachineSource> machine_ TAVO_GUARDED_BY(mutex_);
    const ServiceConfig* madeFor_ TAVO_GUARDED_BY(mutex_) = nullptr;
};

// Empty: no descriptor was left for one of the files.
std::optional<ServiceConfig> ReadConfig(const ServiceSetup& setup)
{
    ServiceConfig config = setup.config;
    const std::vector<std::string> files = setup.lateConfigFiles ? setup.lateConfigFiles() : std::vector<std::string>();
    for (const std::string& file : files) {
        try {
            // A copy, so that a file with a mistake in its middle changes nothing.
            ServiceConfig changed = config;
            changed.Read(file);
            config = std::move(changed);
        } catch (const ConfigError& error) {
            if (error.Mistake().isShortage) {
                return std::nullopt;
            }
            VELTRA_SERVICE_LOGE("%{public}s; the file is left out until it is corrected and the service restarted",
                                error.what());
        }
    }
    return config;
}

}  // namespace

VeltraService::VeltraService(ServiceSetup setup)
    : setup_(std::move(setup)),
      clock_(setup_.speed),
      simulation_(clock_),
      deviceState_(std::make_unique<SimulatedDevice>(
          simulation_,
          std::make_unique<LateMachine>(setup_.rootDir, [this]() -> const ServiceConfig& { return Config(); }))),
      // Opened at first use: loading the maker's library may take a second, and is tried once.
      gpuCounters_(
          simulation_,
          [this, isFirst = true]() mutable { return OpenGpuCounters(setup_.rootDir, std::exchange(isFirst, false)); }),
      subscriptions_(new Subscriptions()),
      hub_({[this] { return deviceState_.Values(); }, [this] { return games_.Processes(); }}),
      desk_(simulation_, hub_),
      pusher_(deviceState_, gpuCounters_, simulation_, *subscriptions_, pool_, desk_,
              [this] {
                  return Pusher::Periods{Config().lookSeconds, Config().repeatSeconds};
              }),
      ticker_(clock_, [this](double now) { return Tick(now); })
{
    // Also without subscribers: what is simulated may end the process.
    simulation_.OnChange([this] { ticker_.Wake(); });
    if (setup_.scenario != nullptr) {
        simulation_.Start(setup_.scenario);
    }
}

ServiceView VeltraService::View()
{
    return {setup_, clock_,          deviceState_,
            games_, *subscriptions_, simulation_,
            hub_,   Counts(),        [this]() -> const ServiceConfig& { return Config(); }};
}

const ServiceConfig& VeltraService::Config()
{
    MutexLock lock(configMutex_);
    if (!config_) {
        config_ = ReadConfig(setup_);
    }
    return config_ ? *config_ : setup_.config;
}

double VeltraService::Tick(double now)
{
    const std::shared_ptr<const Playing> playing = simulation_.Current();
    // A simulated death at a time, without a request that would cause it.
    const double death = playing != nullptr ? playing->DeathTime() : std::numeric_limits<double>::infinity();
    if (now >= death) {
        FaultPlan::Die();
    }
    return std::min(pusher_.Tick(now), death);
}

int32_t VeltraService::BeforeRequest(ServerCode code)
{
    // Any request shows that the process is alive and ends its silence; without silent clients this is one atomic load.
    pool_.Heard(GetCallingPeer().session);
    return simulation_.Before(code);
}

void VeltraService::AfterReply(ServerCode code, MessageParcel& reply)
{
    simulation_.After(code, reply);
}

int32_t VeltraService::UpdateGameInfo(int32_t first, const std::string& text, int32_t)
{
    return ReportState(first, text);
}

int32_t VeltraService::CallAuth(const std::string&)
{
    static const uid_t ownUser = geteuid();  // a system call less on the most frequent request
    return GetCallingPeer().uid == ownUser ? 0 : SERVICE_DENIED;
}

void VeltraService::ReportGameEvent(GameInfo& info)
{
    ReportState(info.int32Value, info.text1);
}

std::map<std::string, bool> VeltraService::SyncAppType(const std::string& text, int32_t)
{
    return AppTypes(games_.BundleNames(), text);
}

std::map<std::string, bool> VeltraService::AppTypes(const std::set<std::string>& games, const std::string& text)
{
    std::map<std::string, bool> types;
    if (text.empty()) {
        // The client reads at most that many.
        for (auto name = games.begin(); name != games.end() && types.size() < MAX_APP_TYPES; ++name) {
            types.emplace(*name, true);
        }
    }
    std::string_view rest(text);
    while (!rest.empty() && types.size() < MAX_APP_TYPES) {
        const std::string name(rest.substr(0, rest.find(',')));
        // With the comma, which the last name does not have.
        rest.remove_prefix(std::min(name.size() + 1, rest.size()));
        if (!name.empty()) {
            types.emplace(name, games.count(name) > 0);
        }
    }
    return types;
}

// The three reports below are checked and logged only: nothing in this service depends on them, and games that send
// them must not be refused.
int32_t VeltraService::ReportRenderThread(std::string, std::string, int32_t value)
{
    if (value <= 0) {
        return SERVICE_BAD_REQUEST;
    }
    VELTRA_SERVICE_LOGD("process %d renders on thread %d", GetCallingPeer().pid, value);
    return 0;
}

int32_t VeltraService::NotifyGameEvent(GameSceneBundle& bundle)
{
    VELTRA_SERVICE_LOGD("process %d is in scene %d", GetCallingPeer().pid, bundle.sceneId);
    return 0;
}

int32_t VeltraService::NotifyAppResourceDownLoadResults(std::vector<AppResourceDownLoadResult>& results)
{
    VELTRA_SERVICE_LOGD("process %d reports %zu downloads", GetCallingPeer().pid, results.size());
    return 0;
}

int32_t VeltraService::QueryGameState(GameState& state)
{
    state = games_.Query(GetCallingPeer());
    return 0;
}

std::map<std::string, std::string> VeltraService::GetSystemFunctionStatus(std::map<std::string, std::string>& query)
{
    std::map<std::string, std::string> all = {
        {"deviceState", SupportedIf(deviceState_.ReportsAnything())},
        {"gpuState", SupportedIf(deviceState_.ReportsGpu())},
        {"gameState", SupportedIf(true)},
        {"gameEvents", SupportedIf(true)},
        {"gpuCounters", SupportedIf(gpuCounters_.IsThere())},
        {"graphicSettings", SupportedIf(false)},
        {"resourcePreDownload", SupportedIf(setup_.catalogue.has_value())},
    };
    if (query.empty()) {
        return all;
    }
    std::map<std::string, std::string> answers;
    // An unknown name is left out of the answer, so that a newer game can ask an older service.
    for (const auto& [name, unused] : query) {
        const auto found = all.find(name);
        if (found != all.end()) {
            answers.insert(*found);
        }
    }
    return answers;
}

DeviceInfoResult VeltraService::GetDeviceInfo(std::vector<QueryDeviceStateDetail> details)
{
    return deviceState_.Describe(details, GetCallingPeer().pid);
}

int32_t VeltraService::RegisterCallBack(const sptr<IGpNapiEventCallback>& callback)
{
    return Subscribe(Subject::EVENTS, callback, {});
}

int32_t VeltraService::UnRegisterCallBack()
{
    return Unsubscribe(Subject::EVENTS);
}

int32_t VeltraService::StartGetGpuPerfInfo(int32_t value, const sptr<IGpuCounterNativeCallback>& callback)
{
    if (!gpuCounters_.IsThere()) {
        return SERVICE_NO_GPU_COUNTERS;
    }
    Subscription subscription;
    subscription.milliseconds = value;
    subscription.interval = gpuCounters_.Interval(value);
    return Subscribe(Subject::GPU_COUNTERS, callback, subscription);
}

int32_t VeltraService::StopGetGpuPerfInfo()
{
    return Unsubscribe(Subject::GPU_COUNTERS);
}

template <typename Send, typename Data>
int32_t VeltraService::Answer(PushKind kind, const sptr<IRemoteBroker>& callback, Send send, Data data)
{
    if (callback == nullptr) {
        return SERVICE_NO_RESOURCES;
    }
    const CallingPeer caller = GetCallingPeer();
    // The delivery keeps the object, and with it the reference to the client's callback, until it has been sent.
    const sptr<IRemoteObject> object = callback->AsObject();
    const auto deliver = [&desk = desk_, kind, object, process = caller.pid, send, data](uint32_t) mutable {
        return desk.Push(
            kind, process, 0,
            [&](PushSpoil spoil) {
                ResourcePreDownloadCallbackProxy client(object, spoil);
                return send(client, data);
            },
            [&data](Note& note) { Describe(data, note); });
    };
    // The answer may reach the client before this request's own reply does: they travel on different connections.
    return pool_.PushAnswer(caller.session, object, deliver) ? 0 : SERVICE_NO_RESOURCES;
}

int32_t VeltraService::QueryAppResourceInfos(const std::vector<std::string>& bundleNames,
                                             const sptr<IResourcePreDownloadNativeCallback>& callback)
{
    if (!setup_.catalogue) {
        return SERVICE_NOT_SUPPORTED;
    }
    return Answer(
        PushKind::RESOURCE_INFOS, callback,
        [](auto& client, const AppResourceInfos& infos) { return client.OnQueryAppResourceInfos(infos); },
        setup_.catalogue->Resources(bundleNames));
}

int32_t VeltraService::GetAppPrioritys(std::vector<std::string>& bundleNames,
                                       const sptr<IResourcePreDownloadNativeCallback>& callback)
{
    if (!setup_.catalogue) {
        return SERVICE_NOT_SUPPORTED;
    }
    return Answer(
        PushKind::APP_PRIORITIES, callback,
        [](auto& client, std::vector<std::string>& names) { return client.OnGetAppPrioritys(names); },
        setup_.catalogue->Priorities(bundleNames));
}

void VeltraService::RegisterCallbackForGraphic(std::string, int32_t, const sptr<IGameGraphicCallback>&)
{
    // The stub reports to the sender that nothing was kept.
}

int32_t VeltraService::ReportState(int32_t state, const std::string& bundleName)
{
    if (bundleName.size() > MAX_BUNDLE_NAME_BYTES) {
        return SERVICE_BAD_REQUEST;
    }
    return games_.Report(GetCallingPeer(), state, bundleName) ? 0 : SERVICE_NO_RESOURCES;
}

int32_t VeltraService::Subscribe(Subject subject, const sptr<IRemoteBroker>& callback, Subscription subscription)
{
    if (callback == nullptr) {
        return SERVICE_NO_RESOURCES;
    }
    // By session, not by process id: an id can be reused while the subscription lasts.
    subscription.client = GetCallingPeer().session;
    subscription.object = callback->AsObject();
    subscription.process = GetCallingPeer().pid;
    // Counters come after the first interval: clients set their callback once the request has returned.
    subscription.due = clock_.Now() + subscription.interval;
    sptr<IRemoteObject> replaced;
    const bool isKept = subscriptions_->Add(subject, subscription, replaced);
    if (replaced != nullptr) {
        // What is queued for the replaced callback is not sent any more.
        pool_.Drop(replaced);
    }
    if (isKept && !ticker_.Wake()) {
        Unsubscribe(subject);
        return SERVICE_NO_RESOURCES;
    }
    return isKept ? 0 : SERVICE_NO_RESOURCES;
}

int32_t VeltraService::Unsubscribe(Subject subject)
{
    const sptr<IRemoteObject> object = subscriptions_->Remove(subject, GetCallingPeer().session);
    if (object == nullptr) {
        return SERVICE_NOT_SUBSCRIBED;
    }
    pool_.Drop(object);
    return 0;
}

}  // namespace TAVO::Veltra
