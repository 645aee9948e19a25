// SPDX-License-Identifier: Apache-2.0
#include "veltra_service.h"

#include <unistd.h>

#include <algorithm>
#include <set>
#include <string_view>

#include <tavo/calling_peer.h>

#include "service_log.h"
#include "service_result.h"

namespace TAVO::Veltra {

namespace {

const char* SupportedIf(bool isThere)
{
    return isThere ? "supported" : "unsupported";
}

}  // namespace

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
    const std::set<std::string> games = games_.BundleNames();
    std::map<std::string, bool> types;
    if (text.empty()) {
        for (const std::string& name : games) {
            types.emplace(name, true);
        }
    }
    std::string_view rest(text);
    while (!rest.empty() && types.size() < MAX_APP_TYPES) {
        const std::string name(rest.substr(0, rest.find(',')));
        rest.remove_prefix(std::min(name.size() + 1, rest.size()));
        if (!name.empty()) {
            types.emplace(name, games.count(name) > 0);
        }
    }
    return types;
}

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
        {"deviceState", SupportedIf(deviceState_.TellsLevel())},
        {"gpuState", SupportedIf(deviceState_.TellsGpu())},
        {"gameState", SupportedIf(true)},
        {"gameEvents", SupportedIf(false)},
        {"gpuCounters", SupportedIf(false)},
        {"graphicSettings", SupportedIf(false)},
        {"resourcePreDownload", SupportedIf(false)},
    };
    if (query.empty()) {
        return all;
    }
    std::map<std::string, std::string> answers;
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
    return deviceState_.Describe(details);
}

int32_t VeltraService::RegisterCallBack(const sptr<IGpNapiEventCallback>&)
{
    return SERVICE_NOT_SUPPORTED;
}

int32_t VeltraService::UnRegisterCallBack()
{
    return SERVICE_NOT_SUPPORTED;
}

void VeltraService::RegisterCallbackForGraphic(std::string, int32_t, const sptr<IGameGraphicCallback>&)
{
    // The stub tells the sender that nothing was kept.
}

int32_t VeltraService::StartGetGpuPerfInfo(int32_t, const sptr<IGpuCounterNativeCallback>&)
{
    return SERVICE_NOT_SUPPORTED;
}

int32_t VeltraService::StopGetGpuPerfInfo()
{
    return SERVICE_NOT_SUPPORTED;
}

int32_t VeltraService::QueryAppResourceInfos(const std::vector<std::string>&,
                                             const sptr<IResourcePreDownloadNativeCallback>&)
{
    return SERVICE_NOT_SUPPORTED;
}

int32_t VeltraService::GetAppPrioritys(std::vector<std::string>&, const sptr<IResourcePreDownloadNativeCallback>&)
{
    return SERVICE_NOT_SUPPORTED;
}

int32_t VeltraService::ReportState(int32_t state, const std::string& bundleName)
{
    if (bundleName.size() > MAX_BUNDLE_NAME_BYTES) {
        return SERVICE_BAD_REQUEST;
    }
    return games_.Report(GetCallingPeer(), state, bundleName) ? 0 : SERVICE_NO_RESOURCES;
}

}  // namespace TAVO::Veltra
